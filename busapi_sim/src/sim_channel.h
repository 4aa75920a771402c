// A registered channel of this process: its state, receive queue, filters,
// bit rates, event notification and, for a replay channel, its replay.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "NXBusApiCan.h"
#include "library_state.h"
#include "replay_engine.h"
#include "sim_bus.h"
#include "sim_config.h"

namespace nxsim {

// Builds a wire frame from message fields; INVALID_MESSAGE with a reason for
// a type, identifier, DLC or flag combination that a controller would refuse.
NXTCanError MakeWireFrame(uint32_t messageType, uint32_t id, uint32_t idType, uint32_t flags, uint32_t dlc,
                          const uint8_t* data, WireFrame& out, const char** reason);

class Channel : public std::enable_shared_from_this<Channel>, private ReplayBus {
public:
    Channel(const ChannelConfig& config, Bus& bus);
    ~Channel();

    const ChannelConfig& Config() const { return m_config; }
    Bus& GetBus() { return m_bus; }

    NXTCanError Init(NXECanIdentifierType type, uint32_t queueSize, bool canFd, bool* fdSupported);
    NXTCanError SetBaudrate(uint32_t clock, const NXSCanBitTimingParameters* arbitration,
                            const NXSCanBitTimingParameters* data);
    NXTCanError GetBaudrate(uint32_t* clock, NXSCanBitTimingParameters* arbitration, bool* canFd,
                            NXSCanBitTimingParameters* data);
    NXTCanError SetAcceptance(uint32_t stdCode, uint32_t stdMask, uint32_t xtdCode, uint32_t xtdMask);
    NXTCanError SetEventNotification(NXTEventHandle event, uint32_t count);
    NXTCanError Activate();
    NXTCanError Deactivate();
    NXTCanError Read(uint32_t* count, NXSCanMessage* messages);
    NXTCanError FlushReceive();
    NXTCanError Transmit(uint32_t count, const NXSCanMessage* messages);
    NXTCanError FlushTransmit();

    // Replay channels only.
    void MakeReplay(const ReplaySettings& settings);
    ReplayEngine* GetReplay() { return m_replay.get(); }

    // Deactivates, ends the replay and releases the claim. Idempotent.
    void Close();

    // From the delivery thread.
    void Deliver(const WireFrame* frames, size_t count, uint8_t load, uint64_t lost);

    VendorError& LastVendorError() { return m_vendorError; }

private:
    enum class State { Registered, Initialised, Active, Closed };

    bool RatesMatchLocked() const;
    void SignalLocked();

    // The replay records of the stream, and putting a replayed frame on the
    // wire (waiting for room in the transmit queue).
    StreamRecord ReadRecord(const uint8_t* data, uint32_t available) override;
    bool EmitFrame(const uint8_t* payload, uint32_t size, const std::function<bool()>& abandon) override;

    const ChannelConfig m_config;
    Bus& m_bus;
    const uint32_t m_index;

    std::mutex m_mutex;
    State m_state = State::Registered;
    bool m_fd = false;
    NXECanIdentifierType m_idType = NXCAN_IDENTIFIER_TYPE_STD_XTD;
    int64_t m_activeSinceNs = 0;

    std::vector<NXSCanMessage> m_rx;
    size_t m_rxHead = 0;
    size_t m_rxCount = 0;
    uint64_t m_rxLost = 0;
    uint16_t m_rxErrors = 0;
    uint16_t m_txErrors = 0;

    uint32_t m_stdCode = 0, m_stdMask = 0, m_xtdCode = 0, m_xtdMask = 0;
    NXCanEventRecord* m_event = nullptr;
    uint32_t m_eventCount = 1;

    uint32_t m_clock = 8000000;
    uint32_t m_bitrate = 0;
    uint32_t m_dataBitrate = 0;
    NXSCanBitTimingParameters m_arbitration{};
    NXSCanBitTimingParameters m_data{};

    VendorError m_vendorError;

    std::vector<WireFrame> m_txScratch;
    WireFrame m_replayScratch{};
    std::unique_ptr<ReplayEngine> m_replay;
};

}  // namespace nxsim
