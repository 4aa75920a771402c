// The kernel's memory-mapped receive ring of one network device
// (TPACKET_V3): blocks of frames that the kernel fills and hands over, read
// in place, frame by frame, and given back block by block.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace nxsim {

struct ReceivedFrame {
    const uint8_t* data;
    uint32_t captured;   // bytes at data
    uint32_t length;     // bytes the frame had
    int64_t realtimeNs;  // the kernel's receive timestamp
    bool vlan;           // the kernel took a VLAN tag out of the frame
    uint16_t vlanTpid;
    uint16_t vlanTci;
};

class ReceiveRing {
public:
    // Opens a ring of about `bytes` on the device, receiving every frame
    // that arrives on it (not those that leave it). False with a text.
    static bool Open(int ifindex, uint32_t bytes, std::unique_ptr<ReceiveRing>* out, std::string* error);
    ~ReceiveRing();

    ReceiveRing(const ReceiveRing&) = delete;
    ReceiveRing& operator=(const ReceiveRing&) = delete;

    int Fd() const { return m_fd; }

    // The oldest frame waiting, or false; it stays until Advance.
    bool Peek(ReceivedFrame* frame);
    void Advance();
    // Gives back every block waiting.
    void Discard();
    // Frames the kernel dropped for want of room since the last call.
    uint64_t TakeDrops();

private:
    ReceiveRing(int fd, uint8_t* map, uint32_t blockSize, uint32_t blockCount);
    bool BlockReady() const;
    void ReleaseBlock();

    int m_fd;
    uint8_t* m_map;
    uint32_t m_blockSize;
    uint32_t m_blockCount;
    uint32_t m_block = 0;        // the block being read
    uint32_t m_packetIndex = 0;  // within it
    uint32_t m_packetCount = 0;  // 0: not yet taken over
    uint8_t* m_packet = nullptr;
};

}  // namespace nxsim
