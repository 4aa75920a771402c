// Counted CAN frames sent on a channel of the simulated bus from a thread of
// this process, through the library at the package's fixed path (the same
// instance the package loads): a benchmark's or a test's traffic, without a
// diagram of its own in the way. Frame k carries k in its first four payload
// bytes, little-endian, and (k + i) & 0xFF in byte i from 4 on, as the io
// package's CanGenerator does, so that its statistics and a recording can
// tell loss and order; a frame without payload, the shortest a bus carries,
// has k modulo 2048 as its identifier instead.
//
// Two paces: `rate` frames a second, spread evenly (a sender that fell
// behind catches up at twice the rate at most, as no bus delivers a backlog
// at once), or, with rate 0, as fast as the bus takes them: the channel's
// transmit queue is kept full, so that the bus's own bit timing sets the
// rate and the wire is never idle.
#pragma once

#include <dlfcn.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "NXBusApiCan.h"

namespace veldor_test {

class CanLoad {
public:
    // Opens `channel` (vendor and interface as its configuration names
    // them), for CAN FD too, with 8-byte classic frames to send.
    CanLoad(const char* library, const std::string& channel, const std::string& vendor, const std::string& interface)
    {
        void* lib = dlopen(library, RTLD_NOW | RTLD_LOCAL);
        if (!lib) {
            m_error = dlerror();
            return;
        }
        Resolve(lib, "NXCAN_RegisterChannel", &m_register);
        Resolve(lib, "NXCAN_InitChannel", &m_init);
        Resolve(lib, "NXCAN_ActivateChannel", &m_activate);
        Resolve(lib, "NXCAN_DeactivateChannel", &m_deactivate);
        Resolve(lib, "NXCAN_UnregisterChannel", &m_unregister);
        Resolve(lib, "NXCAN_TransmitMessages", &m_transmit);
        if (!m_error.empty()) return;
        std::vector<char> v(vendor.begin(), vendor.end()), i(interface.begin(), interface.end()),
            c(channel.begin(), channel.end());
        char serial[] = "";
        v.push_back(0), i.push_back(0), c.push_back(0);
        bool fdSupported = false;
        if (m_register(v.data(), i.data(), serial, c.data(), &m_handle) != NXCAN_SUCCESS ||
            m_init(m_handle, NXCAN_IDENTIFIER_TYPE_STD_XTD, 1024, true, &fdSupported) != NXCAN_SUCCESS ||
            m_activate(m_handle) != NXCAN_SUCCESS)
            m_error = "cannot open " + channel;
    }
    ~CanLoad()
    {
        Join();
        if (m_handle != NXCAN_INVALID_HANDLE) {
            m_deactivate(m_handle);
            m_unregister(m_handle);
        }
    }
    CanLoad(const CanLoad&) = delete;
    CanLoad& operator=(const CanLoad&) = delete;

    // The frames to send: `length` bytes, FD with a bit rate switch when
    // `fd`.
    void SetFrames(bool fd, unsigned length)
    {
        m_fd = fd;
        m_length = length;
    }

    // Empty when the channel is open.
    const std::string& Error() const { return m_error; }

    // Sends frames 0 to count - 1 at `rate` (0: as fast as the bus takes
    // them); returns the frames the library took, all but on a failure.
    std::uint64_t Send(std::uint64_t count, double rate)
    {
        using Clock = std::chrono::steady_clock;
        const std::uint32_t batchLimit = 64;
        std::vector<NXSCanMessage> batch(batchLimit);
        const auto begin = Clock::now();
        std::uint64_t sent = 0;
        while (sent < count && m_error.empty()) {
            std::uint64_t n = std::min<std::uint64_t>(batchLimit, count - sent);
            if (rate > 0) {
                const double elapsed = std::chrono::duration<double>(Clock::now() - begin).count();
                const std::uint64_t due = std::min<std::uint64_t>(count, static_cast<std::uint64_t>(elapsed * rate) + 1);
                // Every 100 us, the frames due; a backlog at twice the rate.
                const std::uint64_t tick = std::max<std::uint64_t>(1, static_cast<std::uint64_t>(rate * 2e-4));
                n = std::min({n, due > sent ? due - sent : 0, tick});
                if (n == 0) {
                    std::this_thread::sleep_for(std::chrono::microseconds(100));
                    continue;
                }
            }
            for (std::uint64_t k = 0; k < n; ++k) Fill(batch[k], static_cast<std::uint32_t>(sent + k));
            const NXTCanError code = m_transmit(m_handle, static_cast<std::uint32_t>(n), batch.data());
            if (code == NXCAN_ERR_TX_QUEUE_FULL) {
                std::this_thread::sleep_for(std::chrono::microseconds(500));
                continue;
            }
            if (code != NXCAN_SUCCESS) {
                m_error = "NXCAN_TransmitMessages failed with " + std::to_string(code);
                break;
            }
            sent += n;
        }
        return sent;
    }

    // Send on a thread of its own; Join waits for it.
    void Start(std::uint64_t count, double rate)
    {
        m_thread = std::thread([this, count, rate] { m_sent = Send(count, rate); });
    }
    std::uint64_t Join()
    {
        if (m_thread.joinable()) m_thread.join();
        return m_sent;
    }

private:
    template <class F>
    void Resolve(void* lib, const char* name, F* function)
    {
        *function = reinterpret_cast<F>(dlsym(lib, name));
        if (!*function) m_error = std::string("missing symbol ") + name;
    }

    void Fill(NXSCanMessage& m, std::uint32_t counter) const
    {
        static const unsigned char kDlc[65] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  9,  9,  9,  10, 10, 10, 10,
                                               11, 11, 11, 11, 12, 12, 12, 12, 13, 13, 13, 13, 13, 13, 13, 13, 14,
                                               14, 14, 14, 14, 14, 14, 14, 14, 14, 14, 14, 14, 14, 14, 14, 15, 15,
                                               15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15};
        std::memset(&m, 0, sizeof m);
        m.tMessageType = NXCAN_MESSAGE_TYPE_DATA;
        m.ulCanIdentifier = m_length == 0 ? counter % 0x800 : 0x123;
        m.tCanIdentifierType = NXCAN_IDENTIFIER_TYPE_STD;
        m.ulFlags = m_fd ? 3 : 0;
        m.usDLC = kDlc[std::min(64u, m_length)];
        for (unsigned b = 0; b < 4 && b < m_length; ++b) m.ucData[b] = static_cast<std::uint8_t>(counter >> (8 * b));
        for (unsigned b = 4; b < m_length; ++b) m.ucData[b] = static_cast<std::uint8_t>((counter + b) & 0xFF);
    }

    bool m_fd = false;
    unsigned m_length = 8;
    std::string m_error;
    NXTCanHandle m_handle = NXCAN_INVALID_HANDLE;
    std::thread m_thread;
    std::uint64_t m_sent = 0;
    decltype(&::NXCAN_RegisterChannel) m_register = nullptr;
    decltype(&::NXCAN_InitChannel) m_init = nullptr;
    decltype(&::NXCAN_ActivateChannel) m_activate = nullptr;
    decltype(&::NXCAN_DeactivateChannel) m_deactivate = nullptr;
    decltype(&::NXCAN_UnregisterChannel) m_unregister = nullptr;
    decltype(&::NXCAN_TransmitMessages) m_transmit = nullptr;
};

}  // namespace veldor_test
