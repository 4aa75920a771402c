#include "receive_ring.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace nxsim {

namespace {

constexpr uint32_t kFrameSize = 2048;        // the kernel's unit of account
constexpr uint32_t kMinBlock = 16384;        // holds a jumbo frame
constexpr uint32_t kMaxBlock = 1u << 20;
constexpr unsigned kRetireTimeoutMs = 1;     // a block that is not full is handed over after this
constexpr uint32_t kBlocksWanted = 128;

#ifndef PACKET_IGNORE_OUTGOING
#define PACKET_IGNORE_OUTGOING 23
#endif

tpacket_block_desc* Block(uint8_t* map, uint32_t blockSize, uint32_t index)
{
    return reinterpret_cast<tpacket_block_desc*>(map + static_cast<size_t>(index) * blockSize);
}

}  // namespace

bool ReceiveRing::Open(int ifindex, uint32_t bytes, std::unique_ptr<ReceiveRing>* out, std::string* error)
{
    // Many blocks: the kernel hands a block over when it is full or when it
    // has held a frame for the retire timeout, so that slow traffic takes a
    // block a millisecond and the ring lasts as many milliseconds as it has
    // blocks (128, from 8 MiB on). Each is a power of two from 16 KiB to 1 MiB.
    uint32_t blockSize = kMinBlock;
    while (blockSize < kMaxBlock && blockSize * 2 <= bytes / kBlocksWanted)
        blockSize *= 2;
    const uint32_t blockCount = std::max<uint32_t>(2, bytes / blockSize);

    auto fail = [&](const char* what) {
        *error = std::string(what) + ": " + std::strerror(errno);
        return false;
    };
    // Protocol 0 receives nothing until the socket is bound below, once the
    // ring is in place.
    const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return fail("packet socket");
    auto closeAndFail = [&](const char* what) {
        const int saved = errno;
        close(fd);
        errno = saved;
        return fail(what);
    };
    const int version = TPACKET_V3;
    if (setsockopt(fd, SOL_PACKET, PACKET_VERSION, &version, sizeof version) != 0)
        return closeAndFail("TPACKET_V3");
    const int one = 1;
    if (setsockopt(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, &one, sizeof one) != 0)
        return closeAndFail("PACKET_IGNORE_OUTGOING");
    // Asking for timestamps makes the kernel stamp every frame as the device
    // takes it in, rather than when the ring gets it, which may be a
    // scheduling delay later.
    if (setsockopt(fd, SOL_SOCKET, SO_TIMESTAMPNS, &one, sizeof one) != 0)
        return closeAndFail("SO_TIMESTAMPNS");
    tpacket_req3 req{};
    req.tp_block_size = blockSize;
    req.tp_block_nr = blockCount;
    req.tp_frame_size = kFrameSize;
    req.tp_frame_nr = blockSize / kFrameSize * blockCount;
    req.tp_retire_blk_tov = kRetireTimeoutMs;
    if (setsockopt(fd, SOL_PACKET, PACKET_RX_RING, &req, sizeof req) != 0)
        return closeAndFail("receive ring");
    void* map = mmap(nullptr, static_cast<size_t>(blockSize) * blockCount, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (map == MAP_FAILED)
        return closeAndFail("receive ring mmap");
    std::unique_ptr<ReceiveRing> ring(new ReceiveRing(fd, static_cast<uint8_t*>(map), blockSize, blockCount));
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = ifindex;
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        return fail("bind to the device");
    *out = std::move(ring);
    return true;
}

ReceiveRing::ReceiveRing(int fd, uint8_t* map, uint32_t blockSize, uint32_t blockCount)
    : m_fd(fd), m_map(map), m_blockSize(blockSize), m_blockCount(blockCount)
{
}

ReceiveRing::~ReceiveRing()
{
    munmap(m_map, static_cast<size_t>(m_blockSize) * m_blockCount);
    close(m_fd);
}

bool ReceiveRing::BlockReady() const
{
    const tpacket_block_desc* block = Block(m_map, m_blockSize, m_block);
    return (__atomic_load_n(&block->hdr.bh1.block_status, __ATOMIC_ACQUIRE) & TP_STATUS_USER) != 0;
}

void ReceiveRing::ReleaseBlock()
{
    tpacket_block_desc* block = Block(m_map, m_blockSize, m_block);
    __atomic_store_n(&block->hdr.bh1.block_status, TP_STATUS_KERNEL, __ATOMIC_RELEASE);
    m_block = (m_block + 1) % m_blockCount;
    m_packetIndex = 0;
    m_packetCount = 0;
    m_packet = nullptr;
}

bool ReceiveRing::Peek(ReceivedFrame* frame)
{
    while (m_packetCount == 0) {
        if (!BlockReady())
            return false;
        tpacket_block_desc* block = Block(m_map, m_blockSize, m_block);
        if (block->hdr.bh1.num_pkts == 0) {
            ReleaseBlock();
            continue;
        }
        m_packetCount = block->hdr.bh1.num_pkts;
        m_packetIndex = 0;
        m_packet = reinterpret_cast<uint8_t*>(block) + block->hdr.bh1.offset_to_first_pkt;
    }
    const auto* h = reinterpret_cast<const tpacket3_hdr*>(m_packet);
    frame->data = m_packet + h->tp_mac;
    frame->captured = h->tp_snaplen;
    frame->length = h->tp_len;
    frame->realtimeNs = static_cast<int64_t>(h->tp_sec) * 1000000000 + h->tp_nsec;
    frame->vlan = (h->tp_status & TP_STATUS_VLAN_VALID) != 0;
    frame->vlanTci = static_cast<uint16_t>(h->hv1.tp_vlan_tci);
    frame->vlanTpid = (h->tp_status & TP_STATUS_VLAN_TPID_VALID) != 0 ? static_cast<uint16_t>(h->hv1.tp_vlan_tpid)
                                                                      : static_cast<uint16_t>(ETH_P_8021Q);
    return true;
}

void ReceiveRing::Advance()
{
    if (m_packetCount == 0)
        return;
    if (++m_packetIndex == m_packetCount) {
        ReleaseBlock();
        return;
    }
    m_packet += reinterpret_cast<const tpacket3_hdr*>(m_packet)->tp_next_offset;
}

void ReceiveRing::Discard()
{
    ReceivedFrame frame;
    while (Peek(&frame))
        ReleaseBlock();
}

uint64_t ReceiveRing::TakeDrops()
{
    tpacket_stats_v3 stats{};
    socklen_t size = sizeof stats;
    if (getsockopt(m_fd, SOL_PACKET, PACKET_STATISTICS, &stats, &size) != 0)
        return 0;
    return stats.tp_drops;
}

}  // namespace nxsim
