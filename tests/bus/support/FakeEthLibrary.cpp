#include "FakeLibrary.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace nxtest {

namespace {

const std::uint32_t kRecordMark = 0x4E584500;

std::uint32_t RecordSize(std::uint32_t frameLength)
{
    std::uint32_t beyondHead = frameLength > 8 ? frameLength - 8 : 0;
    return 56 + (beyondHead + 7) / 8 * 8;
}

std::uint32_t SizeAt(const std::uint8_t* record)
{
    std::uint32_t size;
    std::memcpy(&size, record + offsetof(NXSEthReplayHeader, ulSize), sizeof size);
    return size;
}

}  // namespace

std::vector<EthRecord> SplitRecords(const std::vector<std::uint8_t>& stream)
{
    return SplitStream<NXSEthReplayData>(stream, offsetof(NXSEthReplayData, ui64StartOfFrameData),
                                         [](const NXSEthReplayData& head, std::size_t) {
                                             return head.tMsgHeader.ulRawDataLength;
                                         });
}

void FakeEthLibrary::Reset()
{
    std::lock_guard<std::mutex> lock(Mutex());
    *this = FakeEthLibrary();
}

struct FakeEthLibrary::Ops {
    static FakeEthLibrary& F() { return Instance(); }
    using Lock = std::lock_guard<std::mutex>;
#define NXTEST_ETH_LOGGED(name) NXTEST_LOGGED(NXETHAPI_FUNC_PTR_, "NXETH_", name)
    NXTEST_ETH_LOGGED(UnregisterInterface)
    NXTEST_ETH_LOGGED(InitInterface)
    NXTEST_ETH_LOGGED(ActivateInterface)
    NXTEST_ETH_LOGGED(DeactivateInterface)
    NXTEST_ETH_LOGGED(FlushReceiveQueue)
    NXTEST_ETH_LOGGED(TransmitFrames)
    NXTEST_ETH_LOGGED(FlushTransmitQueue)
    NXTEST_ETH_LOGGED(SetFilter)
    NXTEST_ETH_LOGGED(SetReplayStartTime)
    NXTEST_ETH_LOGGED(SetReplayStopTime)
#undef NXTEST_ETH_LOGGED

    static NXTEthError GetAvailableInterfacesCount(std::uint32_t* count, std::uint32_t attributeCount,
                                                   NXSEthInterfacesSearchAttribute* attributes)
    {
        return F().Count("NXETH_GetAvailableInterfacesCount", count, attributeCount,
                         U(attributes->tSearchAttributeType), attributes->szSearchAttribute);
    }
    static NXTEthError GetAvailableInterfaces(std::uint32_t* count, NXSEthInterfaceInfo* interfaces,
                                              std::uint32_t attributeCount, NXSEthInterfacesSearchAttribute* attributes)
    {
        return F().List("NXETH_GetAvailableInterfaces", count, interfaces, attributeCount, attributes->szSearchAttribute,
                        [](NXSEthInterfaceInfo& info, const FakeChannel& interface) {
                            CopyText(info.szAccessProviderName, interface.vendor);
                            CopyText(info.szInterfaceName, interface.interfaceName);
                            CopyText(info.szInterfaceSerialNumber, interface.serial);
                            CopyText(info.szInterfaceIdentifier, interface.identifier);
                            info.ulInterfaceCapabilities = interface.capabilities;
                        });
    }
    static NXTEthError RegisterInterface(char*, char*, char*, char* identifier, NXTEthHandle* handle)
    {
        return F().Register("NXETH_RegisterInterface", identifier, handle, NXTEthHandle(5), {});
    }
    static NXTEthError RegisterReplayInterface(char*, char*, char*, char* identifier, NXTEthHandle* handle,
                                               bool highSpeed, std::uint64_t reserved)
    {
        return F().Register("NXETH_RegisterReplayInterface", identifier, handle, NXTEthHandle(5), {highSpeed, reserved});
    }
    static NXTEthError GetInterfaceBufferSize(NXTEthHandle h, std::uint32_t* size)
    {
        *size = 65536;
        return Simple("NXETH_GetInterfaceBufferSize", {U(h)});
    }
    static NXTEthError IsInterfaceAccessible(NXTEthHandle h, bool* accessible)
    {
        return Answer("NXETH_IsInterfaceAccessible", {U(h)}, accessible, F().m_accessible);
    }
    static NXTEthError GetTimeResolution(NXTEthHandle h, std::uint64_t* ticksPerSecond, std::uint64_t*)
    {
        return Answer("NXETH_GetTimeResolution", {U(h)}, ticksPerSecond, F().m_resolution);
    }
    static NXTEthError GetTime(NXTEthHandle h, std::uint64_t* ticks, std::uint64_t*)
    {
        return Answer("NXETH_GetTime", {U(h)}, ticks, F().m_ticks);
    }
    static NXTEthError ReadFrames(NXTEthHandle h, std::uint32_t bufferSize, std::uint8_t*, std::uint32_t* read)
    {
        *read = 0;
        return Simple("NXETH_ReadFrames", {U(h), bufferSize});
    }
    static NXTEthError GetErrorText(NXTEthError error, char* text) { return ErrorText("NXETH_GetErrorText", error, text); }
    static NXTEthError GetLastAccessProviderSpecificError(NXTEthHandle h, std::int32_t* code, char* text)
    {
        return F().LastError("NXETH_GetLastAccessProviderSpecificError", h, code, text);
    }
    static NXTEthError ReplayStreamData(NXTEthHandle h, std::uint32_t* size, std::uint8_t* data)
    {
        return F().Stream("NXETH_ReplayStreamData", h, size, data);
    }
    static NXTEthError ReplayInitHeader(NXSEthReplayData* record, bool endOfFile, std::uint16_t length,
                                        std::uint32_t* size)
    {
        NXTEthError code = Simple("NXETH_ReplayInitHeader", {endOfFile, length});
        if (code != 0) return code;
        std::memset(record, 0, sizeof *record);
        record->tHeader.reserved1 = kRecordMark | (endOfFile ? 1 : 0);
        record->tHeader.ulSize = *size = RecordSize(length);
        record->tMsgHeader.tFrameType = NXETH_FRAME_TYPE_ETHERNET_FRAME_WITHOUT_FCS;
        record->tMsgHeader.ulRawDataLength = length;
        return 0;
    }
    static NXTEthError GetReplayStateInfo(NXTEthHandle h, NXSEthReplayStatusInfo* info)
    {
        *info = NXSEthReplayStatusInfo();
        return Simple("NXETH_GetReplayStateInfo", {U(h)});
    }
};

FakeEthLibrary& FakeEthLibrary::Instance()
{
    static FakeEthLibrary* fake = [] {
#define NXTEST_DEFINE(name) Define("NXETH_" #name, reinterpret_cast<void*>(static_cast<NXETHAPI_FUNC_PTR_##name>(Ops::name)));
        NXETH_API_OPERATIONS(NXTEST_DEFINE)
#undef NXTEST_DEFINE
        return new FakeEthLibrary;
    }();
    return *fake;
}

// ---------------------------------------------------------------------------
// The pre-processing library

void FakeDrPreLibrary::Reset()
{
    std::lock_guard<std::mutex> lock(Mutex());
    *this = FakeDrPreLibrary();
}

struct FakeDrPreLibrary::Ops {
    static FakeDrPreLibrary& F() { return Instance(); }
    using Lock = std::lock_guard<std::mutex>;

    static NxDRPPErrorCode Initialize(NxDRPPHandle* handle, std::uint64_t minFillLevel, std::uint64_t maxBufferDepth,
                                      NxDRPPProtocolType protocol)
    {
        Lock lock(Mutex());
        *handle = reinterpret_cast<NxDRPPHandle>(F().m_nextHandle++);
        F().m_minFillLevel = minFillLevel;
        return static_cast<NxDRPPErrorCode>(Record("NxDRPP_CreateHandle", {minFillLevel, maxBufferDepth, U(protocol)}));
    }
    static NxDRPPErrorCode Uninitialize(NxDRPPHandle* handle)
    {
        return static_cast<NxDRPPErrorCode>(Simple("NxDRPP_DestroyHandle", {P(*handle)}));
    }
    // Takes whole records, all of the block, unless the test chose a code.
    static NxDRPPErrorCode InsertFrames(NxDRPPHandle handle, std::uint8_t* data, std::uint64_t size,
                                        bool* endOfStream, std::uint64_t* consumed)
    {
        Lock lock(Mutex());
        auto code = static_cast<NxDRPPErrorCode>(Record("NxDRPP_InsertFrames", {P(handle), size, *endOfStream}));
        *consumed = 0;
        if (code != NXDRPP_NO_ERROR) return code;
        for (std::uint64_t at = 0; at + sizeof(NXSEthReplayData) <= size;) {
            const std::uint32_t recordSize = SizeAt(data + at);
            if (recordSize < sizeof(NXSEthReplayData) || at + recordSize > size) break;
            F().m_held.emplace_back(data + at, data + at + recordSize);
            at += recordSize;
            *consumed = at;
        }
        if (*endOfStream) F().m_closed = true;
        return NXDRPP_NO_ERROR;
    }
    static NxDRPPErrorCode GetFrames(NxDRPPHandle handle, std::uint8_t* destination, std::uint64_t room, bool flag,
                                     std::uint64_t* written)
    {
        Lock lock(Mutex());
        if (F().m_throws) throw std::runtime_error("stage broke");
        auto code = static_cast<NxDRPPErrorCode>(Record("NxDRPP_GetFrames", {P(handle), room, flag}));
        *written = 0;
        if (code != NXDRPP_NO_ERROR) return code;
        if (!F().m_closed && F().m_held.size() < F().m_minFillLevel) return NXDRPP_NOT_REACHED_MIN_FILL_LEVEL;
        while (!F().m_held.empty() && *written + F().m_held.front().size() <= room) {
            std::memcpy(destination + *written, F().m_held.front().data(), F().m_held.front().size());
            *written += F().m_held.front().size();
            F().m_held.pop_front();
        }
        return NXDRPP_NO_ERROR;
    }
    static NxDRPPErrorCode Flush(NxDRPPHandle handle)
    {
        return static_cast<NxDRPPErrorCode>(Simple("NxDRPP_FlushBuffers", {P(handle)}));
    }
    static NxDRPPErrorCode GetStatistics(NxDRPPHandle handle, NxDRPPStatistics* statistics)
    {
        std::memset(statistics, 0, sizeof *statistics);
        return static_cast<NxDRPPErrorCode>(Simple("NxDRPP_GetStatistics", {P(handle)}));
    }
};

FakeDrPreLibrary& FakeDrPreLibrary::Instance()
{
    static FakeDrPreLibrary* fake = [] {
#define NXTEST_DEFINE(name, type, symbol) \
    Define(#symbol, reinterpret_cast<void*>(static_cast<NXDRPP_FUN_PTR_PREPROCESSING_##type>(Ops::name)));
        NXDRPP_OPERATIONS(NXTEST_DEFINE)
#undef NXTEST_DEFINE
        return new FakeDrPreLibrary;
    }();
    return *fake;
}

ScopedFakeEthLibrary::ScopedFakeEthLibrary()
    : m_eth(EthLibrary(), InitEthFunctionPointers), m_stage(DrPreLibrary(), InitDrPreFunctionPointers)
{
    FakeLibrary::ResetLog();
    Eth().Reset();
    Stage().Reset();
}

}  // namespace nxtest
