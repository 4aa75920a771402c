#include "eth_interface.h"

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <pcap/pcap.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace nxsim {

namespace {

constexpr uint32_t kHeader = NXETH_RAW_FRAME_HEADER_SIZE;
constexpr uint32_t kMinFrame = 14;        // addresses and type
constexpr uint32_t kVlanAndHeader = 18;   // what a frame has beyond its MTU at most
constexpr uint64_t kDefaultBitRate = 1000000000;
constexpr int64_t kTransmitPatienceNs = 1000000000;
constexpr size_t kBatch = 256;            // frames per sendmmsg

bool Sendable(uint32_t bytes, uint32_t mtu)
{
    return bytes >= kMinFrame && bytes <= mtu + kVlanAndHeader;
}

// Waits until the socket may take more, at most `ns`, or until `abandon`.
void WaitForRoom(int fd, int error, int64_t ns)
{
    if (error == ENOBUFS) {
        // The device's queue dropped the frame: it is sent again shortly.
        timespec pause{0, 50000};
        nanosleep(&pause, nullptr);
        return;
    }
    pollfd p{fd, POLLOUT, 0};
    poll(&p, 1, static_cast<int>(std::clamp<int64_t>(ns / 1000000, 1, 10)));
}

}  // namespace

uint32_t InterfaceBufferSize(uint64_t bitRate, uint32_t mtu)
{
    const uint64_t wireBitsPerPeriod = bitRate * NXETH_SAMPLING_PERIOD_US / 1000000;
    const uint64_t frames = (wireBitsPerPeriod + 8 * NXETH_MIN_FRAME_WIRE_BYTES - 1) / (8 * NXETH_MIN_FRAME_WIRE_BYTES);
    const uint64_t bytes = std::max<uint64_t>(frames * (kHeader + 64), kHeader + mtu + kVlanAndHeader + NXETH_FCS_SIZE);
    return static_cast<uint32_t>(std::min<uint64_t>(bytes, 0x7FFFFFFF));
}

int64_t WireBytes(uint32_t frameType, uint32_t rawDataLength)
{
    if (frameType == NXETH_FRAME_TYPE_ETHERNET_FRAME)
        return rawDataLength >= NXETH_FCS_SIZE ? rawDataLength - NXETH_FCS_SIZE : -1;
    if (frameType == NXETH_FRAME_TYPE_ETHERNET_FRAME_WITHOUT_FCS)
        return rawDataLength;
    return -1;
}

EthInterface::EthInterface(const EthInterfaceConfig& config, const HardwareClock& clock)
    : m_config(config), m_clock(clock)
{
}

EthInterface::~EthInterface()
{
    Close();
}

NXTEthError EthInterface::Init(std::string* detail)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const State state = m_state;
    if (state == State::Closed)
        return NXETH_ERR_INVALID_HANDLE;
    if (state == State::Active)
        return NXETH_ERR_WRONG_STATE;
    if (state == State::Initialised)
        return NXETH_SUCCESS;
    if (!QueryDevice(m_config.device, &m_device, detail))
        return NXETH_ERR_DEVICE;
    if (m_config.lineRate != 0 && !SetLineRate(m_device.ifindex, m_config.lineRate, m_device.mtu, detail)) {
        *detail = "device " + m_config.device + ": " + *detail;
        return NXETH_ERR_DEVICE;
    }
    // Sends only: protocol 0 receives nothing.
    const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_ifindex = m_device.ifindex;
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        *detail = "device " + m_config.device + ": packet socket: " + std::strerror(errno);
        if (fd >= 0)
            close(fd);
        return NXETH_ERR_DEVICE;
    }
    m_txFd = fd;
    m_mtu = m_device.mtu;
    m_state = State::Initialised;
    return NXETH_SUCCESS;
}

NXTEthError EthInterface::Activate(std::string* detail)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const State state = m_state;
    if (state == State::Closed)
        return NXETH_ERR_INVALID_HANDLE;
    if (state == State::Registered)
        return NXETH_ERR_WRONG_STATE;
    if (state == State::Active)
        return NXETH_SUCCESS;
    std::unique_ptr<ReceiveRing> ring;
    if (!ReceiveRing::Open(m_device.ifindex, m_config.rxRingBytes, &ring, detail)) {
        *detail = "device " + m_config.device + ": " + *detail;
        return NXETH_ERR_DEVICE;
    }
    {
        std::lock_guard<std::mutex> rxLock(m_rxMutex);
        m_rx = std::move(ring);
        m_pendingDrops = 0;
    }
    if (const NXTEthError rc = ApplyFilterLocked(detail); rc != NXETH_SUCCESS) {
        std::lock_guard<std::mutex> rxLock(m_rxMutex);
        m_rx.reset();
        return rc;
    }
    m_state = State::Active;
    return NXETH_SUCCESS;
}

NXTEthError EthInterface::Deactivate()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const State state = m_state;
    if (state == State::Closed)
        return NXETH_ERR_INVALID_HANDLE;
    if (state != State::Active)
        return NXETH_SUCCESS;
    m_state = State::Initialised;
    std::lock_guard<std::mutex> rxLock(m_rxMutex);
    m_rx.reset();
    return NXETH_SUCCESS;
}

bool EthInterface::Accessible() const
{
    return m_state != State::Closed && DevicePresent(m_config.device);
}

void EthInterface::Close()
{
    if (m_state == State::Closed)
        return;
    Deactivate();
    m_replay.reset();  // joins the replay thread, which may still send
    std::lock_guard<std::mutex> lock(m_mutex);
    m_state = State::Closed;
    const int fd = m_txFd.exchange(-1);
    if (fd >= 0)
        close(fd);
}

NXTEthError EthInterface::BufferSize(uint32_t* size, std::string* detail)
{
    DeviceInfo device;
    if (!QueryDevice(m_config.device, &device, detail))
        return NXETH_ERR_DEVICE;
    const uint64_t rate = m_config.lineRate != 0 ? m_config.lineRate
                          : device.speed != 0   ? device.speed
                                                : kDefaultBitRate;
    *size = InterfaceBufferSize(rate, device.mtu);
    return NXETH_SUCCESS;
}

NXTEthError EthInterface::Read(uint32_t bufferSize, uint8_t* buffer, uint32_t* count)
{
    *count = 0;
    const State state = m_state;
    if (state == State::Closed)
        return NXETH_ERR_INVALID_HANDLE;
    if (state == State::Registered)
        return NXETH_ERR_WRONG_STATE;
    std::lock_guard<std::mutex> lock(m_rxMutex);
    if (!m_rx)
        return NXETH_SUCCESS;
    m_pendingDrops += m_rx->TakeDrops();
    const int64_t realMinusMono = RealtimeMinusMonotonicNs();
    const uint32_t fcs = m_config.fcs ? NXETH_FCS_SIZE : 0;
    uint32_t position = 0;
    uint32_t frames = 0;
    uint32_t lastHeader = 0;
    bool leftBehind = false;
    ReceivedFrame frame;
    while (m_rx->Peek(&frame)) {
        const uint32_t tag = frame.vlan ? 4 : 0;
        const uint32_t bytes = frame.captured + tag;
        const uint32_t raw = bytes + fcs;
        if (static_cast<uint64_t>(position) + kHeader + raw > bufferSize) {
            leftBehind = true;
            break;
        }
        NXSEthRawFrameHeader header{};
        header.tFrameType = fcs != 0 ? NXETH_FRAME_TYPE_ETHERNET_FRAME : NXETH_FRAME_TYPE_ETHERNET_FRAME_WITHOUT_FCS;
        header.ui64Timestamp = m_clock.TicksAt(frame.realtimeNs - realMinusMono);
        header.ui64ControllerTimestamp = header.ui64Timestamp;
        header.ulRawDataLength = raw;
        if (m_pendingDrops != 0) {
            header.ulFlags |= NXETH_FLAG_RX_BUFFER_OVERFLOW;
            m_pendingDrops = 0;
        }
        if (frame.captured < frame.length)
            header.ulFlags |= NXETH_FLAG_INVALID_LENGTH;
        uint8_t* out = buffer + position + kHeader;
        if (tag != 0 && frame.captured >= 12) {
            // The tag goes back behind the two addresses, where it came from.
            const uint16_t tpid = htons(frame.vlanTpid);
            const uint16_t tci = htons(frame.vlanTci);
            std::memcpy(out, frame.data, 12);
            std::memcpy(out + 12, &tpid, 2);
            std::memcpy(out + 14, &tci, 2);
            std::memcpy(out + 16, frame.data + 12, frame.captured - 12);
        } else {
            std::memcpy(out, frame.data, frame.captured);
            header.ulRawDataLength = frame.captured + fcs;
        }
        if (fcs != 0) {
            const uint32_t sequence = FrameCheckSequence(out, header.ulRawDataLength - fcs);
            const uint8_t le[4] = {static_cast<uint8_t>(sequence), static_cast<uint8_t>(sequence >> 8),
                                   static_cast<uint8_t>(sequence >> 16), static_cast<uint8_t>(sequence >> 24)};
            std::memcpy(out + header.ulRawDataLength - fcs, le, 4);
        }
        std::memcpy(buffer + position, &header, sizeof header);
        lastHeader = position;
        position += kHeader + header.ulRawDataLength;
        ++frames;
        m_rx->Advance();
    }
    if (leftBehind) {
        if (frames == 0)
            return NXETH_ERR_BUFFER_TOO_SMALL;
        // Frames are still waiting: the reads come too seldom for this buffer.
        NXSEthRawFrameHeader last;
        std::memcpy(&last, buffer + lastHeader, sizeof last);
        last.ulFlags |= NXETH_FLAG_READ_PERIOD_TOO_LONG;
        std::memcpy(buffer + lastHeader, &last, sizeof last);
    }
    *count = frames;
    return NXETH_SUCCESS;
}

NXTEthError EthInterface::FlushReceive()
{
    if (m_state == State::Closed)
        return NXETH_ERR_INVALID_HANDLE;
    std::lock_guard<std::mutex> lock(m_rxMutex);
    if (m_rx) {
        m_rx->Discard();
        m_rx->TakeDrops();
    }
    m_pendingDrops = 0;
    return NXETH_SUCCESS;
}

size_t EthInterface::SendBatch(size_t first, size_t count, const std::function<bool()>& abandon, int* error)
{
    const int fd = m_txFd;
    const int64_t giveUp = MonotonicNs() + kTransmitPatienceNs;
    size_t done = 0;
    while (done < count) {
        const int n = sendmmsg(fd, &m_messages[first + done], static_cast<unsigned>(std::min(count - done, kBatch)),
                               MSG_DONTWAIT);
        if (n > 0) {
            done += static_cast<size_t>(n);
            continue;
        }
        const int why = n < 0 ? errno : EAGAIN;
        const int64_t left = giveUp - MonotonicNs();
        if ((why != EAGAIN && why != ENOBUFS && why != EINTR) || left <= 0 || abandon()) {
            *error = why;
            break;
        }
        WaitForRoom(fd, why, left);
    }
    return done;
}

NXTEthError EthInterface::Transmit(uint32_t size, const uint8_t* frames, uint32_t* sent, std::string* detail)
{
    *sent = 0;
    const State state = m_state;
    if (state == State::Closed)
        return NXETH_ERR_INVALID_HANDLE;
    if (state != State::Active)
        return NXETH_ERR_WRONG_STATE;
    std::lock_guard<std::mutex> lock(m_txMutex);
    // Every frame is checked before the first is sent.
    m_iov.clear();
    for (uint32_t at = 0; at < size;) {
        NXSEthRawFrameHeader header;
        if (size - at < kHeader)
            return NXETH_ERR_INVALID_ARGUMENT;
        std::memcpy(&header, frames + at, sizeof header);
        if (header.ulRawDataLength > size - at - kHeader) {
            *detail = "frame " + std::to_string(m_iov.size()) + " runs past the block";
            return NXETH_ERR_INVALID_ARGUMENT;
        }
        const int64_t bytes = WireBytes(header.tFrameType, header.ulRawDataLength);
        if (bytes < 0 || !Sendable(static_cast<uint32_t>(bytes), m_mtu)) {
            *detail = "frame " + std::to_string(m_iov.size()) + ": type " + std::to_string(header.tFrameType) +
                      ", " + std::to_string(header.ulRawDataLength) + " bytes";
            return NXETH_ERR_INVALID_FRAME;
        }
        m_iov.push_back(iovec{const_cast<uint8_t*>(frames + at + kHeader), static_cast<size_t>(bytes)});
        at += kHeader + header.ulRawDataLength;
    }
    m_messages.resize(m_iov.size());
    for (size_t i = 0; i < m_iov.size(); ++i) {
        m_messages[i] = mmsghdr{};
        m_messages[i].msg_hdr.msg_iov = &m_iov[i];
        m_messages[i].msg_hdr.msg_iovlen = 1;
    }
    int error = 0;
    const size_t done = SendBatch(0, m_messages.size(), [] { return false; }, &error);
    *sent = static_cast<uint32_t>(done);
    if (done == m_messages.size())
        return NXETH_SUCCESS;
    *detail = "device " + m_config.device + ": " + std::to_string(done) + " of " + std::to_string(m_messages.size()) +
              " frames sent: " + std::strerror(error);
    return error == EAGAIN || error == ENOBUFS ? NXETH_ERR_TX_QUEUE_FULL : NXETH_ERR_DEVICE;
}

NXTEthError EthInterface::FlushTransmit()
{
    if (m_state == State::Closed)
        return NXETH_ERR_INVALID_HANDLE;
    if (m_replay)
        m_replay->Flush();
    return NXETH_SUCCESS;
}

NXTEthError EthInterface::SetFilter(const char* expression, std::string* detail)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_state == State::Closed)
        return NXETH_ERR_INVALID_HANDLE;
    const std::string text = expression != nullptr ? expression : "";
    std::vector<uint8_t> compiled;
    if (!text.empty()) {
        // A filter that does not compile leaves the one in force.
        pcap_t* dead = pcap_open_dead(DLT_EN10MB, 65535);
        if (dead == nullptr)
            return NXETH_ERR_GENERIC;
        bpf_program program{};
        const bool ok = pcap_compile(dead, &program, text.c_str(), 1, PCAP_NETMASK_UNKNOWN) == 0;
        if (ok) {
            const auto* begin = reinterpret_cast<const uint8_t*>(program.bf_insns);
            compiled.assign(begin, begin + program.bf_len * sizeof(bpf_insn));
            pcap_freecode(&program);
        } else {
            *detail = "'" + text + "': " + pcap_geterr(dead);
        }
        pcap_close(dead);
        if (!ok)
            return NXETH_ERR_INVALID_FILTER;
    }
    m_filterProgram = std::move(compiled);
    if (m_state != State::Active)
        return NXETH_SUCCESS;  // applied when the interface becomes active
    return ApplyFilterLocked(detail);
}

NXTEthError EthInterface::ApplyFilterLocked(std::string* detail)
{
    std::lock_guard<std::mutex> rxLock(m_rxMutex);
    if (!m_rx)
        return NXETH_SUCCESS;
    int rc = 0;
    if (m_filterProgram.empty()) {
        int unused = 0;
        rc = setsockopt(m_rx->Fd(), SOL_SOCKET, SO_DETACH_FILTER, &unused, sizeof unused);
        if (rc != 0 && errno == ENOENT)
            rc = 0;  // there was none
    } else {
        static_assert(sizeof(sock_filter) == sizeof(bpf_insn), "a compiled filter is what the kernel runs");
        sock_fprog program{static_cast<unsigned short>(m_filterProgram.size() / sizeof(sock_filter)),
                           reinterpret_cast<sock_filter*>(m_filterProgram.data())};
        rc = setsockopt(m_rx->Fd(), SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program);
    }
    if (rc == 0)
        return NXETH_SUCCESS;
    *detail = "device " + m_config.device + ": filter: " + std::strerror(errno);
    return NXETH_ERR_DEVICE;
}

void EthInterface::MakeReplay(const ReplaySettings& settings)
{
    m_replay = std::make_unique<ReplayEngine>(static_cast<ReplayBus&>(*this), m_clock, settings);
}

StreamRecord EthInterface::ReadRecord(const uint8_t* data, uint32_t available)
{
    StreamRecord record;
    if (available < sizeof(NXSEthReplayData)) {
        record.kind = StreamRecord::Kind::Incomplete;
        return record;
    }
    NXSEthReplayData head;
    std::memcpy(&head, data, sizeof head);
    const uint32_t length = head.tMsgHeader.ulRawDataLength;
    const uint64_t expected = sizeof(NXSEthReplayData) + ((std::max<uint64_t>(length, 8) - 8 + 7) & ~uint64_t{7});
    if ((head.tHeader.reserved1 & ~NXETH_REPLAY_RECORD_END_OF_STREAM) != NXETH_REPLAY_RECORD_MARK ||
        head.tHeader.ulSize != expected)
        return record;  // corrupt
    record.size = head.tHeader.ulSize;
    if (available < record.size) {
        record.kind = StreamRecord::Kind::Incomplete;
        return record;
    }
    record.timestamp = head.tHeader.ui64Timestamp;
    if ((head.tHeader.reserved1 & NXETH_REPLAY_RECORD_END_OF_STREAM) != 0) {
        record.kind = StreamRecord::Kind::EndOfStream;
        return record;
    }
    const int64_t bytes = WireBytes(head.tMsgHeader.tFrameType, length);
    if (bytes < 0 || !Sendable(static_cast<uint32_t>(bytes), m_mtu)) {
        record.kind = StreamRecord::Kind::InvalidContents;
        return record;
    }
    record.kind = StreamRecord::Kind::Frame;
    record.payload = data + offsetof(NXSEthReplayData, ui64StartOfFrameData);
    record.payloadSize = static_cast<uint32_t>(bytes);
    return record;
}

bool EthInterface::EmitFrame(const uint8_t* payload, uint32_t size, const std::function<bool()>& abandon)
{
    if (m_state != State::Active)
        return false;
    const int fd = m_txFd;
    const int64_t giveUp = MonotonicNs() + kTransmitPatienceNs;
    for (;;) {
        if (send(fd, payload, size, MSG_DONTWAIT) == static_cast<ssize_t>(size))
            return true;
        const int why = errno;
        const int64_t left = giveUp - MonotonicNs();
        if ((why != EAGAIN && why != ENOBUFS && why != EINTR) || left <= 0 || abandon())
            return false;
        WaitForRoom(fd, why, left);
    }
}

}  // namespace nxsim
