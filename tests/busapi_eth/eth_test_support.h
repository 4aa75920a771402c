// The Ethernet library as the package meets it: loaded from its fixed path
// by dlopen, its 24 operations resolved by name. Meant to run under
// tools/with-sim-bus, on the veth pair nvxeth1 <-> nvxeth2, with the
// configuration of eth.conf (main.cpp).
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "NXBusApiEthernet.h"
#include "eth_api_table.h"
#include "scratch.h"

namespace eth_test {

// Loads the library from `path` and resolves all 24 operations; an empty
// text, or what went wrong.
std::string Load(const char* path);
const Api& Lib();

using Bytes = std::vector<uint8_t>;

struct Frame {
    uint32_t type = 0;
    uint32_t flags = 0;
    uint64_t ticks = 0;
    Bytes data;  // as delivered: with the check sequence for type 1
};

std::string ErrorText(NXTEthError code);
std::vector<NXSEthInterfaceInfo> Discover(const std::vector<std::string>& addresses);
NXTEthError Register(const std::string& id, NXTEthHandle* handle, bool replay = false);
// Registered from its discovered record, initialised, activated, flushed.
NXTEthHandle Open(const std::string& id, bool replay = false);
void Close(std::initializer_list<NXTEthHandle> handles);
uint64_t Now(NXTEthHandle handle);
uint64_t TicksPerSecond(NXTEthHandle handle);

// A frame of `length` bytes to nvxeth2's address, of the local experimental
// type 0x88B5, that carries `sequence` and a pattern.
Bytes TestFrame(size_t length, uint32_t sequence);
uint32_t SequenceOf(const Bytes& frame);
// A block of raw frames as NXETH_TransmitFrames takes it.
Bytes RawBlock(const std::vector<Bytes>& frames, uint32_t type);
std::vector<Frame> ParseBlock(const uint8_t* buffer, uint32_t count);
// The frame bytes of a received frame, without its check sequence.
Bytes Payload(const Frame& frame);
// What the device's check sequence of the bytes is, as it stands on the wire.
Bytes WithCheckSequence(const Bytes& frame);

// Reads until `count` frames came or the time is up, with reads of
// `bufferSize` bytes (0: the interface's buffer size).
std::vector<Frame> Receive(NXTEthHandle handle, size_t count,
                           std::chrono::milliseconds timeout = std::chrono::seconds(5), uint32_t bufferSize = 0);

// The frames of a classic pcap file (microseconds, Ethernet).
std::vector<Bytes> ReadPcap(const std::string& path);

// A temporary folder for the test's files, removed at the end.
using TempFolder = veldtest::ScratchDir;

}  // namespace eth_test
