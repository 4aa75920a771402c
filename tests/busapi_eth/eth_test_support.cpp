#include "eth_test_support.h"

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <thread>

#include <zlib.h>

namespace eth_test {

namespace {

Api g_api;

// The test frames go from nvxeth1 to nvxeth2 (the MAC addresses that
// tools/with-sim-bus gives them).
const uint8_t kTo[6] = {0x02, 0x4e, 0x58, 0x45, 0x00, 0x02};
const uint8_t kFrom[6] = {0x02, 0x4e, 0x58, 0x45, 0x00, 0x01};

}  // namespace

std::string Load(const char* path)
{
    return LoadApi(path, &g_api);
}

const Api& Lib()
{
    return g_api;
}

std::string ErrorText(NXTEthError code)
{
    char text[NXETH_TEXT_BUFFER_SIZE] = {};
    Lib().GetErrorText(code, text);
    return text;
}

std::vector<NXSEthInterfaceInfo> Discover(const std::vector<std::string>& addresses)
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

NXTEthError Register(const std::string& id, NXTEthHandle* handle, bool replay)
{
    for (NXSEthInterfaceInfo& info : Discover({})) {
        if (id != info.szInterfaceIdentifier)
            continue;
        return replay ? Lib().RegisterReplayInterface(info.szAccessProviderName, info.szInterfaceName,
                                                      info.szInterfaceSerialNumber, info.szInterfaceIdentifier,
                                                      handle, true, 0)
                      : Lib().RegisterInterface(info.szAccessProviderName, info.szInterfaceName,
                                                info.szInterfaceSerialNumber, info.szInterfaceIdentifier, handle);
    }
    return NXETH_ERR_INTERFACE_NOT_FOUND;
}

NXTEthHandle Open(const std::string& id, bool replay)
{
    NXTEthHandle h = NXETH_INVALID_HANDLE;
    const NXTEthError rc = Register(id, &h, replay);
    EXPECT_EQ(rc, NXETH_SUCCESS) << id << ": " << ErrorText(rc);
    for (auto step : {Lib().InitInterface, Lib().ActivateInterface, Lib().FlushReceiveQueue,
                      Lib().FlushTransmitQueue}) {
        const NXTEthError code = step(h);
        EXPECT_EQ(code, NXETH_SUCCESS) << id << ": " << ErrorText(code);
    }
    return h;
}

void Close(std::initializer_list<NXTEthHandle> handles)
{
    for (NXTEthHandle handle : handles) {
        EXPECT_EQ(Lib().DeactivateInterface(handle), NXETH_SUCCESS);
        EXPECT_EQ(Lib().UnregisterInterface(handle), NXETH_SUCCESS);
    }
}

uint64_t Now(NXTEthHandle handle)
{
    uint64_t ticks = 0;
    EXPECT_EQ(Lib().GetTime(handle, &ticks, nullptr), NXETH_SUCCESS);
    return ticks;
}

uint64_t TicksPerSecond(NXTEthHandle handle)
{
    uint64_t resolution = 0;
    EXPECT_EQ(Lib().GetTimeResolution(handle, &resolution, nullptr), NXETH_SUCCESS);
    return resolution;
}

Bytes TestFrame(size_t length, uint32_t sequence)
{
    Bytes frame(std::max<size_t>(length, 18));
    std::memcpy(&frame[0], kTo, 6);
    std::memcpy(&frame[6], kFrom, 6);
    frame[12] = 0x88;
    frame[13] = 0xB5;
    for (int i = 0; i < 4; ++i)
        frame[14 + i] = static_cast<uint8_t>(sequence >> (24 - 8 * i));
    for (size_t i = 18; i < length; ++i)
        frame[i] = static_cast<uint8_t>(i * 7 + sequence);
    frame.resize(length);  // a frame too short to be sent, for the tests of refusal
    return frame;
}

uint32_t SequenceOf(const Bytes& frame)
{
    return frame.size() < 18 ? 0xFFFFFFFFu
                             : (uint32_t{frame[14]} << 24) | (uint32_t{frame[15]} << 16) | (uint32_t{frame[16]} << 8) |
                                   frame[17];
}

Bytes WithCheckSequence(const Bytes& frame)
{
    Bytes out = frame;
    const uint32_t crc = crc32(0, frame.data(), static_cast<uInt>(frame.size()));
    for (int i = 0; i < 4; ++i)
        out.push_back(static_cast<uint8_t>(crc >> (8 * i)));
    return out;
}

Bytes RawBlock(const std::vector<Bytes>& frames, uint32_t type)
{
    Bytes block;
    for (const Bytes& f : frames) {
        NXSEthRawFrameHeader header{};
        header.tFrameType = static_cast<NXEEthFrameType>(type);
        // Type 1 carries room for the check sequence behind the frame.
        const Bytes data = type == NXETH_FRAME_TYPE_ETHERNET_FRAME ? WithCheckSequence(f) : f;
        header.ulRawDataLength = static_cast<uint32_t>(data.size());
        const size_t at = block.size();
        block.resize(at + sizeof header + data.size());
        std::memcpy(&block[at], &header, sizeof header);
        std::memcpy(&block[at + sizeof header], data.data(), data.size());
    }
    return block;
}

std::vector<Frame> ParseBlock(const uint8_t* buffer, uint32_t count)
{
    std::vector<Frame> frames;
    size_t at = 0;
    for (uint32_t i = 0; i < count; ++i) {
        NXSEthRawFrameHeader header;
        std::memcpy(&header, buffer + at, sizeof header);
        Frame f;
        f.type = header.tFrameType;
        f.flags = header.ulFlags;
        f.ticks = header.ui64Timestamp;
        f.data.assign(buffer + at + sizeof header, buffer + at + sizeof header + header.ulRawDataLength);
        frames.push_back(std::move(f));
        at += sizeof header + header.ulRawDataLength;
    }
    return frames;
}

Bytes Payload(const Frame& frame)
{
    Bytes data = frame.data;
    if (frame.type == NXETH_FRAME_TYPE_ETHERNET_FRAME && data.size() >= 4)
        data.resize(data.size() - 4);
    return data;
}

std::vector<Frame> Receive(NXTEthHandle handle, size_t count, std::chrono::milliseconds timeout, uint32_t bufferSize)
{
    if (bufferSize == 0) {
        EXPECT_EQ(Lib().GetInterfaceBufferSize(handle, &bufferSize), NXETH_SUCCESS);
    }
    Bytes buffer(bufferSize);
    std::vector<Frame> frames;
    const auto until = std::chrono::steady_clock::now() + timeout;
    while (frames.size() < count && std::chrono::steady_clock::now() < until) {
        uint32_t n = 0;
        const NXTEthError rc = Lib().ReadFrames(handle, bufferSize, buffer.data(), &n);
        EXPECT_EQ(rc, NXETH_SUCCESS) << ErrorText(rc);
        if (rc != NXETH_SUCCESS)
            break;
        for (Frame& f : ParseBlock(buffer.data(), n))
            frames.push_back(std::move(f));
        if (n == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return frames;
}

std::vector<Bytes> ReadPcap(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::vector<Bytes> frames;
    uint32_t header[6];
    if (!in.read(reinterpret_cast<char*>(header), sizeof header))
        return frames;
    uint32_t record[4];
    while (in.read(reinterpret_cast<char*>(record), sizeof record)) {
        Bytes f(record[2]);
        in.read(reinterpret_cast<char*>(f.data()), static_cast<std::streamsize>(f.size()));
        frames.push_back(std::move(f));
    }
    return frames;
}

}  // namespace eth_test
