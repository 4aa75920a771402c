#include "sim_channel.h"

#include <pthread.h>

#include <algorithm>
#include <cstring>

#include "sim_frame.h"

namespace nxsim {

namespace {

constexpr uint32_t kClassicClock = 8000000;
constexpr uint32_t kFdClock = 80000000;
constexpr uint32_t kMaxQueueSize = 1u << 20;

}  // namespace

NXTCanError MakeWireFrame(uint32_t messageType, uint32_t id, uint32_t idType, uint32_t flags, uint32_t dlc,
                          const uint8_t* data, WireFrame& out, const char** reason)
{
    auto refuse = [reason](const char* why) {
        *reason = why;
        return NXCAN_ERR_INVALID_MESSAGE;
    };
    if (messageType != NXCAN_MESSAGE_TYPE_DATA && messageType != NXCAN_MESSAGE_TYPE_REMOTE)
        return refuse("only data and remote frames can be sent");
    if (idType == NXCAN_IDENTIFIER_TYPE_STD) {
        if (id > kMaxStandardId)
            return refuse("standard identifier above 0x7FF");
    } else if (idType == NXCAN_IDENTIFIER_TYPE_XTD) {
        if (id > kMaxExtendedId)
            return refuse("extended identifier above 0x1FFFFFFF");
    } else {
        return refuse("identifier type must be standard or extended");
    }
    if (dlc > 15)
        return refuse("DLC above 15");
    const bool fd = (flags & NXCAN_FLAG_TX_FD) != 0;
    const bool brs = (flags & NXCAN_FLAG_TX_BRS) != 0;
    const bool remote = messageType == NXCAN_MESSAGE_TYPE_REMOTE;
    if (brs && !fd)
        return refuse("bit rate switch without CAN FD format");
    if (remote && fd)
        return refuse("CAN FD has no remote frames");
    if (dlc > 8 && !fd)
        return refuse("DLC above 8 needs CAN FD format");
    std::memset(&out, 0, sizeof out);
    out.id = id;
    out.extended = idType == NXCAN_IDENTIFIER_TYPE_XTD;
    out.fd = fd;
    out.brs = brs;
    out.remote = remote;
    out.dlc = static_cast<uint16_t>(dlc);
    if (!remote)
        std::memcpy(out.data, data, static_cast<size_t>(DlcToLength(dlc)));
    return NXCAN_SUCCESS;
}

Channel::Channel(const ChannelConfig& config, Bus& bus)
    : m_config(config), m_bus(bus), m_index(static_cast<uint32_t>(config.indexInBus))
{
    m_bitrate = bus.Config().bitrate;
    m_dataBitrate = bus.Config().dataBitrate;
    BaudrateToTiming(m_clock, m_bitrate, &m_arbitration);
}

Channel::~Channel()
{
    Close();
}

bool Channel::RatesMatchLocked() const
{
    return m_bitrate == m_bus.Config().bitrate && (!m_fd || m_dataBitrate == m_bus.Config().dataBitrate);
}

NXTCanError Channel::Init(NXECanIdentifierType type, uint32_t queueSize, bool canFd, bool* fdSupported)
{
    if (type < NXCAN_IDENTIFIER_TYPE_STD || type > NXCAN_IDENTIFIER_TYPE_STD_XTD || queueSize == 0 ||
        queueSize > kMaxQueueSize)
        return NXCAN_ERR_INVALID_ARGUMENT;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_state == State::Closed)
        return NXCAN_ERR_INVALID_HANDLE;
    if (m_state == State::Active)
        return NXCAN_ERR_WRONG_STATE;
    m_idType = type;
    m_fd = canFd;
    m_rx.assign(queueSize, NXSCanMessage{});
    m_rxHead = m_rxCount = 0;
    m_rxLost = 0;
    m_clock = canFd ? kFdClock : kClassicClock;
    m_bitrate = m_bus.Config().bitrate;
    m_dataBitrate = m_bus.Config().dataBitrate;
    BaudrateToTiming(m_clock, m_bitrate, &m_arbitration);
    m_data = NXSCanBitTimingParameters{};
    if (canFd)
        BaudrateToTiming(m_clock, m_dataBitrate, &m_data);
    m_state = State::Initialised;
    if (fdSupported != nullptr)
        *fdSupported = true;
    return NXCAN_SUCCESS;
}

NXTCanError Channel::SetBaudrate(uint32_t clock, const NXSCanBitTimingParameters* arbitration,
                                 const NXSCanBitTimingParameters* data)
{
    if (arbitration == nullptr)
        return NXCAN_ERR_INVALID_ARGUMENT;
    uint32_t bitrate = 0;
    if (const NXTCanError rc = TimingToBaudrate(clock, *arbitration, &bitrate); rc != NXCAN_SUCCESS)
        return rc;
    uint32_t dataBitrate = 0;
    const bool withData = data != nullptr && !TimingIsZero(*data);
    if (withData)
        if (const NXTCanError rc = TimingToBaudrate(clock, *data, &dataBitrate); rc != NXCAN_SUCCESS)
            return rc;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_state == State::Closed)
        return NXCAN_ERR_INVALID_HANDLE;
    m_clock = clock;
    m_bitrate = bitrate;
    m_arbitration = *arbitration;
    if (withData) {
        m_dataBitrate = dataBitrate;
        m_data = *data;
    } else if (m_fd) {
        // The data rate stays; express it at the new clock if that can be done.
        if (BaudrateToTiming(clock, m_dataBitrate, &m_data) != NXCAN_SUCCESS)
            m_data = NXSCanBitTimingParameters{};
    }
    return RatesMatchLocked() ? NXCAN_SUCCESS : NXCAN_ERR_BITRATE_MISMATCH;
}

NXTCanError Channel::GetBaudrate(uint32_t* clock, NXSCanBitTimingParameters* arbitration, bool* canFd,
                                 NXSCanBitTimingParameters* data)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_state == State::Closed)
        return NXCAN_ERR_INVALID_HANDLE;
    if (clock != nullptr)
        *clock = m_clock;
    if (arbitration != nullptr)
        *arbitration = m_arbitration;
    if (canFd != nullptr)
        *canFd = m_fd;
    if (data != nullptr)
        *data = m_fd ? m_data : NXSCanBitTimingParameters{};
    return NXCAN_SUCCESS;
}

NXTCanError Channel::SetAcceptance(uint32_t stdCode, uint32_t stdMask, uint32_t xtdCode, uint32_t xtdMask)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_state == State::Closed)
        return NXCAN_ERR_INVALID_HANDLE;
    m_stdCode = stdCode;
    m_stdMask = stdMask;
    m_xtdCode = xtdCode;
    m_xtdMask = xtdMask;
    return NXCAN_SUCCESS;
}

NXTCanError Channel::SetEventNotification(NXTEventHandle event, uint32_t count)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_state == State::Closed)
        return NXCAN_ERR_INVALID_HANDLE;
    m_event = static_cast<NXCanEventRecord*>(event);
    m_eventCount = std::max<uint32_t>(1, count);
    return NXCAN_SUCCESS;
}

NXTCanError Channel::Activate()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_state == State::Closed)
            return NXCAN_ERR_INVALID_HANDLE;
        if (m_state == State::Registered)
            return NXCAN_ERR_WRONG_STATE;
        if (m_state == State::Active)
            return NXCAN_SUCCESS;
        m_state = State::Active;
        m_activeSinceNs = MonotonicNs();
    }
    m_bus.AddReceiver(shared_from_this());
    return NXCAN_SUCCESS;
}

NXTCanError Channel::Deactivate()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_state == State::Closed)
            return NXCAN_ERR_INVALID_HANDLE;
        if (m_state != State::Active)
            return NXCAN_SUCCESS;
        m_state = State::Initialised;
        m_bus.WithdrawPending(m_index);
    }
    m_bus.RemoveReceiver(this);
    return NXCAN_SUCCESS;
}

void Channel::Close()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_state == State::Closed)
            return;
    }
    Deactivate();
    m_replay.reset();  // joins the replay thread, which may still emit
    std::lock_guard<std::mutex> lock(m_mutex);
    m_state = State::Closed;
    m_event = nullptr;
    m_bus.Release(m_index);
}

NXTCanError Channel::Read(uint32_t* count, NXSCanMessage* messages)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_state == State::Closed)
        return NXCAN_ERR_INVALID_HANDLE;
    if (m_state == State::Registered)
        return NXCAN_ERR_WRONG_STATE;
    const size_t n = std::min<size_t>(*count, m_rxCount);
    const size_t capacity = m_rx.size();
    const size_t first = std::min(n, capacity - m_rxHead);
    std::memcpy(messages, &m_rx[m_rxHead], first * sizeof(NXSCanMessage));
    std::memcpy(messages + first, m_rx.data(), (n - first) * sizeof(NXSCanMessage));
    m_rxHead = (m_rxHead + n) % capacity;
    m_rxCount -= n;
    *count = static_cast<uint32_t>(n);
    if (m_rxLost == 0)
        return NXCAN_SUCCESS;
    m_vendorError.Set(NXCAN_VENDOR_RX_OVERFLOW, "receive queue overflow: " + std::to_string(m_rxLost) + " frames lost");
    m_rxLost = 0;
    return NXCAN_ERR_VENDOR_SPECIFIC;
}

NXTCanError Channel::FlushReceive()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_state == State::Closed)
        return NXCAN_ERR_INVALID_HANDLE;
    m_rxHead = m_rxCount = 0;
    m_rxLost = 0;
    return NXCAN_SUCCESS;
}

NXTCanError Channel::Transmit(uint32_t count, const NXSCanMessage* messages)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_state == State::Closed)
        return NXCAN_ERR_INVALID_HANDLE;
    if (m_state != State::Active)
        return NXCAN_ERR_WRONG_STATE;
    if (!RatesMatchLocked()) {
        m_txErrors = static_cast<uint16_t>(std::min(0xFFFF, m_txErrors + 1));
        return NXCAN_ERR_BITRATE_MISMATCH;
    }
    m_txScratch.resize(count);
    for (uint32_t i = 0; i < count; ++i) {
        const NXSCanMessage& m = messages[i];
        const char* reason = nullptr;
        if (MakeWireFrame(m.tMessageType, m.ulCanIdentifier, m.tCanIdentifierType, m.ulFlags, m.usDLC, m.ucData,
                          m_txScratch[i], &reason) != NXCAN_SUCCESS ||
            (m_txScratch[i].fd && !m_fd))
            return NXCAN_ERR_INVALID_MESSAGE;
    }
    return m_bus.Transmit(m_index, m_config.IsVirtual(), m_txScratch.data(), count);
}

NXTCanError Channel::FlushTransmit()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_state == State::Closed)
            return NXCAN_ERR_INVALID_HANDLE;
        if (m_state == State::Active)
            m_bus.WithdrawPending(m_index);
    }
    if (m_replay)
        m_replay->Flush();
    return NXCAN_SUCCESS;
}

void Channel::MakeReplay(const ReplaySettings& settings)
{
    m_replay = std::make_unique<ReplayEngine>(static_cast<ReplayBus&>(*this), m_bus.Clock(), settings);
}

StreamRecord Channel::ReadRecord(const uint8_t* data, uint32_t available)
{
    StreamRecord record;
    if (available < sizeof(NXSCanReplayData)) {
        record.kind = StreamRecord::Kind::Incomplete;
        return record;
    }
    NXSCanReplayData head;
    std::memcpy(&head, data, sizeof head);
    const uint32_t expected = ReplayRecordSize(head.tMsgHeader.usDLC);
    if ((head.tHeader.reserved1 & 0xFFFFFF00u) != NXCAN_REPLAY_RECORD_MARK || expected == 0 ||
        head.tHeader.ulSize != expected)
        return record;  // corrupt
    record.size = expected;
    if (available < expected) {
        record.kind = StreamRecord::Kind::Incomplete;
        return record;
    }
    record.timestamp = head.tHeader.ui64Timestamp;
    if ((head.tHeader.reserved1 & NXCAN_REPLAY_RECORD_END_OF_STREAM) != 0) {
        record.kind = StreamRecord::Kind::EndOfStream;
        return record;
    }
    const NXSCanReplayMsgHeader& msg = head.tMsgHeader;
    const char* reason = nullptr;
    if (MakeWireFrame(msg.tMessageType, msg.ulCanId, msg.tMsgFormat, msg.ulFlags, msg.usDLC,
                      data + offsetof(NXSCanReplayData, ui64StartOfMsgData), m_replayScratch,
                      &reason) != NXCAN_SUCCESS) {
        record.kind = StreamRecord::Kind::InvalidContents;
        return record;
    }
    record.kind = StreamRecord::Kind::Frame;
    record.payload = &m_replayScratch;
    record.payloadSize = sizeof m_replayScratch;
    return record;
}

bool Channel::EmitFrame(const uint8_t* payload, uint32_t size, const std::function<bool()>& abandon)
{
    WireFrame frame;
    std::memcpy(&frame, payload, sizeof frame);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_state != State::Active || !RatesMatchLocked() || (frame.fd && !m_fd))
            return false;
    }
    return m_bus.TransmitWaiting(m_index, m_config.IsVirtual(), frame, abandon) == NXCAN_SUCCESS;
}

void Channel::SignalLocked()
{
    if (m_event == nullptr || m_rxCount < m_eventCount)
        return;
    pthread_mutex_lock(&m_event->m_mutex);
    m_event->m_signalled = true;
    pthread_cond_broadcast(&m_event->m_cond);
    pthread_mutex_unlock(&m_event->m_mutex);
}

void Channel::Deliver(const WireFrame* frames, size_t count, uint8_t load, uint64_t lost)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_state != State::Active)
        return;
    m_rxLost += lost;
    const HardwareClock& clock = m_bus.Clock();
    const size_t capacity = m_rx.size();
    bool added = false;
    for (size_t i = 0; i < count; ++i) {
        const WireFrame& f = frames[i];
        if (f.source == m_index || f.endNs < m_activeSinceNs)
            continue;
        if (!RatesMatchLocked()) {
            m_rxErrors = static_cast<uint16_t>(std::min(0xFFFF, m_rxErrors + 1));
            continue;
        }
        if (f.fd && !m_fd)
            continue;
        if (f.extended) {
            if (m_idType == NXCAN_IDENTIFIER_TYPE_STD || ((f.id ^ m_xtdCode) & m_xtdMask) != 0)
                continue;
        } else if (m_idType == NXCAN_IDENTIFIER_TYPE_XTD || ((f.id ^ m_stdCode) & m_stdMask) != 0) {
            continue;
        }
        if (m_rxCount == capacity) {
            ++m_rxLost;
            continue;
        }
        NXSCanMessage& m = m_rx[(m_rxHead + m_rxCount) % capacity];
        std::memset(&m, 0, sizeof m);
        m.tMessageType = f.remote ? NXCAN_MESSAGE_TYPE_REMOTE : NXCAN_MESSAGE_TYPE_DATA;
        m.ui64Timestamp = clock.TicksAt(f.startNs);
        m.ulCanIdentifier = f.id;
        m.tCanIdentifierType = f.extended ? NXCAN_IDENTIFIER_TYPE_XTD : NXCAN_IDENTIFIER_TYPE_STD;
        m.ulFlags = (f.fd ? NXCAN_FLAG_RX_FD : 0u) | (f.brs ? NXCAN_FLAG_RX_BRS : 0u);
        m.usDLC = f.dlc;
        std::memcpy(m.ucData, f.data, sizeof m.ucData);
        m.tBusInfo.tBusStatus = NXCAN_BUS_STATUS_ACTIVE;
        m.tBusInfo.usRxErrorCounter = m_rxErrors;
        m.tBusInfo.usTxErrorCounter = m_txErrors;
        m.tBusInfo.ucBusLoad = load;
        ++m_rxCount;
        added = true;
    }
    if (added)
        SignalLocked();
}

}  // namespace nxsim
