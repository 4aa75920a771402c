// The Ethernet library as the package meets it: loaded from its fixed path
// by dlopen, its 24 operations resolved by name. Meant to run under
// tools/with-sim-bus, on the veth pair nvxeth1 <-> nvxeth2, with the
// configuration of eth.conf (main.cpp).
#pragma once

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <thread>
#include <vector>

#include "NXBusApiEthernet.h"
#include "eth_api_table.h"
#include "scratch.h"

namespace eth_test {

inline Api g_api;  // main.cpp loads it
inline const Api& Lib() { return g_api; }

using Bytes = std::vector<uint8_t>;

struct Frame {
    uint32_t type = 0;
    uint32_t flags = 0;
    uint64_t ticks = 0;
    Bytes data;  // as delivered: with the check sequence for type 1
};

inline std::string ErrorText(NXTEthError code)
{
    char text[NXETH_TEXT_BUFFER_SIZE] = {};
    Lib().GetErrorText(code, text);
    return text;
}

inline std::vector<NXSEthInterfaceInfo> Discover(const std::vector<std::string>& addresses)
{
    std::vector<NXSEthInterfacesSearchAttribute> attributes(addresses.size());
    for (size_t i = 0; i < addresses.size(); ++i) {
        attributes[i].tSearchAttributeType = NXETH_SEARCH_ARRTIBUTE_TYPE_IP_V4_ADDRESS;
        std::strncpy(attributes[i].szSearchAttribute, addresses[i].c_str(), 255);
    }
    const uint32_t n = static_cast<uint32_t>(attributes.size());
    uint32_t count = 0;
    EXPECT_EQ(Lib().GetAvailableInterfacesCount(&count, n, attributes.data()), NXETH_SUCCESS);
    std::vector<NXSEthInterfaceInfo> infos(count);
    EXPECT_EQ(Lib().GetAvailableInterfaces(&count, infos.data(), n, attributes.data()), NXETH_SUCCESS);
    infos.resize(count);
    return infos;
}

// Registers a discovered interface as the package does, from its record.
inline NXTEthError Register(const std::string& id, NXTEthHandle* handle, bool replay = false)
{
    for (NXSEthInterfaceInfo& i : Discover({})) {
        if (id != i.szInterfaceIdentifier) continue;
        return replay ? Lib().RegisterReplayInterface(i.szAccessProviderName, i.szInterfaceName,
                                                      i.szInterfaceSerialNumber, i.szInterfaceIdentifier, handle,
                                                      true, 0)
                      : Lib().RegisterInterface(i.szAccessProviderName, i.szInterfaceName, i.szInterfaceSerialNumber,
                                                i.szInterfaceIdentifier, handle);
    }
    return NXETH_ERR_INTERFACE_NOT_FOUND;
}

// Registered, initialised, activated, flushed.
inline NXTEthHandle Open(const std::string& id, bool replay = false)
{
    NXTEthHandle h = NXETH_INVALID_HANDLE;
    const NXTEthError rc = Register(id, &h, replay);
    EXPECT_EQ(rc, NXETH_SUCCESS) << id << ": " << ErrorText(rc);
    for (auto step :
         {Lib().InitInterface, Lib().ActivateInterface, Lib().FlushReceiveQueue, Lib().FlushTransmitQueue}) {
        const NXTEthError code = step(h);
        EXPECT_EQ(code, NXETH_SUCCESS) << id << ": " << ErrorText(code);
    }
    return h;
}

inline void Close(std::initializer_list<NXTEthHandle> handles)
{
    for (NXTEthHandle handle : handles) {
        EXPECT_EQ(Lib().DeactivateInterface(handle), NXETH_SUCCESS);
        EXPECT_EQ(Lib().UnregisterInterface(handle), NXETH_SUCCESS);
    }
}

inline uint64_t Now(NXTEthHandle handle)
{
    uint64_t ticks = 0;
    EXPECT_EQ(Lib().GetTime(handle, &ticks, nullptr), NXETH_SUCCESS);
    return ticks;
}

inline uint64_t TicksPerSecond(NXTEthHandle handle)
{
    uint64_t resolution = 0;
    EXPECT_EQ(Lib().GetTimeResolution(handle, &resolution, nullptr), NXETH_SUCCESS);
    return resolution;
}

// A frame of `length` bytes from nvxeth1 to nvxeth2 (the addresses that
// tools/with-sim-bus gives them), of the local experimental type 0x88B5,
// that carries `sequence` and a pattern; shorter than 18 bytes for the tests
// of refusal.
inline Bytes TestFrame(size_t length, uint32_t sequence)
{
    Bytes frame = {0x02, 0x4e, 0x58, 0x45, 0x00, 0x02, 0x02, 0x4e, 0x58, 0x45, 0x00, 0x01, 0x88, 0xB5};
    for (int i = 0; i < 4; ++i) frame.push_back(static_cast<uint8_t>(sequence >> (24 - 8 * i)));
    for (size_t i = 18; i < length; ++i) frame.push_back(static_cast<uint8_t>(i * 7 + sequence));
    frame.resize(length);
    return frame;
}

// Test frames of these lengths, counted from 0.
inline std::vector<Bytes> Frames(const std::vector<size_t>& lengths)
{
    std::vector<Bytes> frames;
    for (size_t length : lengths) frames.push_back(TestFrame(length, static_cast<uint32_t>(frames.size())));
    return frames;
}

inline uint32_t SequenceOf(const Bytes& f)
{
    return f.size() < 18 ? 0xFFFFFFFFu : uint32_t{f[14]} << 24 | uint32_t{f[15]} << 16 | uint32_t{f[16]} << 8 | f[17];
}

// The frame with the device's check sequence, as it stands on the wire.
inline Bytes WithCheckSequence(const Bytes& frame)
{
    Bytes out = frame;
    const uint32_t crc = crc32(0, frame.data(), static_cast<uInt>(frame.size()));
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(crc >> (8 * i)));
    return out;
}

// A block of raw frames as NXETH_TransmitFrames takes it; type 1 carries
// room for the check sequence behind the frame.
inline Bytes RawBlock(const std::vector<Bytes>& frames, uint32_t type)
{
    Bytes block;
    for (const Bytes& f : frames) {
        const Bytes data = type == NXETH_FRAME_TYPE_ETHERNET_FRAME ? WithCheckSequence(f) : f;
        NXSEthRawFrameHeader header{};
        header.tFrameType = static_cast<NXEEthFrameType>(type);
        header.ulRawDataLength = static_cast<uint32_t>(data.size());
        block.insert(block.end(), reinterpret_cast<uint8_t*>(&header), reinterpret_cast<uint8_t*>(&header + 1));
        block.insert(block.end(), data.begin(), data.end());
    }
    return block;
}

inline std::vector<Frame> ParseBlock(const uint8_t* buffer, uint32_t count)
{
    std::vector<Frame> frames;
    for (uint32_t i = 0; i < count; ++i) {
        NXSEthRawFrameHeader header;
        std::memcpy(&header, buffer, sizeof header);
        buffer += sizeof header;
        frames.push_back({static_cast<uint32_t>(header.tFrameType), header.ulFlags, header.ui64Timestamp,
                          Bytes(buffer, buffer + header.ulRawDataLength)});
        buffer += header.ulRawDataLength;
    }
    return frames;
}

// The frame bytes of a received frame, without its check sequence.
inline Bytes Payload(const Frame& frame)
{
    Bytes data = frame.data;
    if (frame.type == NXETH_FRAME_TYPE_ETHERNET_FRAME && data.size() >= 4) data.resize(data.size() - 4);
    return data;
}

// Reads until `count` frames came or the time is up, with reads of the
// interface's buffer size.
inline std::vector<Frame> Receive(NXTEthHandle handle, size_t count,
                                  std::chrono::milliseconds timeout = std::chrono::seconds(5))
{
    uint32_t bufferSize = 0;
    EXPECT_EQ(Lib().GetInterfaceBufferSize(handle, &bufferSize), NXETH_SUCCESS);
    Bytes buffer(bufferSize);
    std::vector<Frame> frames;
    const auto until = std::chrono::steady_clock::now() + timeout;
    while (frames.size() < count && std::chrono::steady_clock::now() < until) {
        uint32_t n = 0;
        const NXTEthError rc = Lib().ReadFrames(handle, bufferSize, buffer.data(), &n);
        EXPECT_EQ(rc, NXETH_SUCCESS) << ErrorText(rc);
        if (rc != NXETH_SUCCESS) break;
        for (Frame& f : ParseBlock(buffer.data(), n)) frames.push_back(std::move(f));
        if (n == 0) std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return frames;
}

// The frames of a classic pcap file (microseconds, Ethernet).
inline std::vector<Bytes> ReadPcap(const std::string& path)
{
    const std::string file = veldtest::ReadText(path);
    std::vector<Bytes> frames;
    for (size_t at = 24; at + 16 <= file.size();) {
        uint32_t length;
        std::memcpy(&length, &file[at + 8], 4);
        frames.emplace_back(file.begin() + at + 16, file.begin() + std::min(file.size(), at + 16 + length));
        at += 16 + length;
    }
    return frames;
}

}  // namespace eth_test
