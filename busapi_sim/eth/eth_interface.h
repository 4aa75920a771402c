// A registered Ethernet interface of this process: its network device, the
// socket that sends, the receive ring while it is active, and, for a
// replay interface, its replay.
#pragma once

#include <sys/socket.h>
#include <sys/uio.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "NXBusApiEthernet.h"
#include "hardware_clock.h"
#include "library_state.h"
#include "net_device.h"
#include "receive_ring.h"
#include "replay_engine.h"
#include "sim_config.h"

namespace nxsim {

// The read buffer that holds one sampling period at `bitRate`.
uint32_t InterfaceBufferSize(uint64_t bitRate, uint32_t mtu);

// Frame bytes a raw frame of this type and length puts on the wire, or -1
// for a type that cannot be sent.
int64_t WireBytes(uint32_t frameType, uint32_t rawDataLength);

class EthInterface : private ReplayBus {
public:
    EthInterface(const EthInterfaceConfig& config, const HardwareClock& clock);
    ~EthInterface();

    const EthInterfaceConfig& Config() const { return m_config; }
    VendorError& LastVendorError() { return m_vendorError; }

    // A failing call leaves the system's reason in *detail.
    NXTEthError Init(std::string* detail);
    NXTEthError Activate(std::string* detail);
    NXTEthError Deactivate();
    bool Accessible() const;
    NXTEthError BufferSize(uint32_t* size, std::string* detail);
    NXTEthError Read(uint32_t bufferSize, uint8_t* buffer, uint32_t* count);
    NXTEthError FlushReceive();
    NXTEthError Transmit(uint32_t size, const uint8_t* frames, uint32_t* sent, std::string* detail);
    NXTEthError FlushTransmit();
    NXTEthError SetFilter(const char* expression, std::string* detail);

    // Replay interfaces only.
    void MakeReplay(const ReplaySettings& settings);
    ReplayEngine* GetReplay() { return m_replay.get(); }

    // Ends the replay, reception and sending. Idempotent.
    void Close();

private:
    enum class State { Registered, Initialised, Active, Closed };

    StreamRecord ReadRecord(const uint8_t* data, uint32_t available) override;
    bool EmitFrame(const uint8_t* payload, uint32_t size, const std::function<bool()>& abandon) override;

    // Sends `count` frames of m_messages from `first`, waiting for room;
    // returns the frames sent.
    size_t SendBatch(size_t first, size_t count, const std::function<bool()>& abandon, int* error);
    NXTEthError ApplyFilterLocked(std::string* detail);

    const EthInterfaceConfig m_config;
    const HardwareClock m_clock;
    VendorError m_vendorError;

    std::mutex m_mutex;  // state, sockets, filter
    std::atomic<State> m_state{State::Registered};
    DeviceInfo m_device;
    std::atomic<uint32_t> m_mtu{1500};  // of the device, once initialised
    std::atomic<int> m_txFd{-1};
    std::vector<uint8_t> m_filterProgram;  // struct sock_filter[], compiled; empty: none

    std::mutex m_rxMutex;  // the ring and what goes with reading it
    std::unique_ptr<ReceiveRing> m_rx;
    uint64_t m_pendingDrops = 0;

    std::mutex m_txMutex;  // the batch of direct transmission
    std::vector<iovec> m_iov;
    std::vector<mmsghdr> m_messages;

    std::unique_ptr<ReplayEngine> m_replay;
};

}  // namespace nxsim
