// A network device of the machine as the Ethernet library needs it: its
// index, address, MTU and speed, its line rate as a token bucket of the
// kernel, and the check sequence of its frames.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace nxsim {

struct DeviceInfo {
    int ifindex = 0;
    uint8_t mac[6] = {};
    uint32_t mtu = 1500;
    uint64_t speed = 0;  // bit/s as the device reports it; 0: unknown
};

// False, with the system's reason, for a device that this network
// namespace does not have.
bool QueryDevice(const std::string& name, DeviceInfo* info, std::string* error);
bool DevicePresent(const std::string& name);

// Replaces the device's root qdisc by a token bucket (tbf) at `bitRate`,
// which counts each frame with its preamble, check sequence and gap.
bool SetLineRate(int ifindex, uint64_t bitRate, uint32_t mtu, std::string* error);

// The Ethernet frame check sequence (CRC-32) of `size` bytes.
uint32_t FrameCheckSequence(const uint8_t* data, size_t size);

// The difference CLOCK_REALTIME - CLOCK_MONOTONIC now, in nanoseconds: what
// turns the kernel's receive timestamps into monotonic time.
int64_t RealtimeMinusMonotonicNs();

}  // namespace nxsim
