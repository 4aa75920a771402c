#include "NxEthApiWrapper.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "NxWrapperHelpers.h"
#include "veld_os_helpers.h"

std::atomic<std::uint64_t> NxEthApiWrapper::m_timeConvCoefficient(0);

namespace {

const char* const kEthLibraryMissing = "Norvex Bus API is not installed!";
const char* const kDrPreLibraryMissing = "Norvex Bus API 2024-A (NxDRPreProcessing library) is not installed!";
const std::int64_t kMicrosecondsPerSecond = 1000000;
const std::size_t kFrameOffset = offsetof(NXSEthReplayData, ui64StartOfFrameData);
// How long a writer waits for a full pre-processing stage between two tries.
const VELDInt64 kFullStageWait = 100;

NXSEthInterfacesSearchAttribute SearchAttribute(const char* ip)
{
    return NxSearchAttribute<NXSEthInterfacesSearchAttribute>(ip, NXETH_SEARCH_ARRTIBUTE_TYPE_IP_V4_ADDRESS);
}

// The bytes of a packet that its record holds: what was captured, and never
// more than its length.
std::uint32_t StoredBytes(const VELDpcap_packet_header_t& header) { return std::min(header.caplen, header.len); }

}  // namespace

// ---------------------------------------------------------------------------
// Construction and destruction

NxEthApiWrapper::NxEthApiWrapper(const NxEthApiWrapperSettings& settings)
    : m_settings(settings),
      m_isInitialized(false),
      m_prepHandle(nullptr),
      m_interfaceCount(0),
      m_interfaceHandle(NXETH_INVALID_HANDLE),
      m_logStartTime(0),
      m_lastError(),
      m_txFramesAllowed(true),
      m_replayEofTime(0),
      m_txBufferSize(0)
{
    if (m_settings.GetIsReplayChannel()) m_txBuffer.reset(new std::uint8_t[kTxBufferSize]());
    m_logFilename = m_settings.GetLogFilename();
    // The trace file is opened and stays empty: Ethernet traffic is not traced.
    if (m_settings.GetLogEthernet()) m_ascFile.open(m_logFilename, std::ios::out | std::ios::trunc);
}

NxEthApiWrapper::~NxEthApiWrapper()
{
    if (m_interfaceHandle != NXETH_INVALID_HANDLE) {
        if (m_isInitialized) DeactivateInterface();
        UnregisterInterface();
    }
    {
        // Initialize counted the wrapper in; one that never ran it makes the
        // count wrap, and the table is then left bound for good.
        std::lock_guard<std::recursive_mutex> lock(EthLibrary().lock);
        if (uEthApiWrapperCount == 1) UnloadEthLibrary();
        --uEthApiWrapperCount;
    }
    if (m_settings.GetIsReplayChannel()) {
        // Only the last replay wrapper ends a stage and lets the library go.
        std::lock_guard<std::recursive_mutex> lock(DrPreLibrary().lock);
        if (uDrPreApiWrapperCount == 1) {
            if (pfnPreprocessingUninitialize) pfnPreprocessingUninitialize(&m_prepHandle);
            UnloadDrPreLibrary();
        }
        --uDrPreApiWrapperCount;
    }
}

// ---------------------------------------------------------------------------
// Discovery

std::uint32_t NxEthApiWrapper::RetrieveAvailableChannelCount(const char* ip)
{
    if (!pfnEthGetAvailableInterfacesCount) return 0;
    std::uint32_t count = 0;
    NXSEthInterfacesSearchAttribute attribute = SearchAttribute(ip);
    NXTEthError code = pfnEthGetAvailableInterfacesCount(&count, 1, &attribute);
    RetrieveErrMessage("NXETH_GetAvailableInterfacesCount", code, NXETH_INVALID_HANDLE);
    return count;
}

std::vector<NXSEthInterfaceInfo> NxEthApiWrapper::RetrieveAvailableChannelsVector(const char* ip,
                                                                                  bool norvexHardwareOnly)
{
    std::lock_guard<std::recursive_mutex> lock(EthLibrary().lock);
    if (LoadEthLibrary() != 0) return {};
    std::uint32_t count = RetrieveAvailableChannelCount(ip);
    std::vector<NXSEthInterfaceInfo> interfaces(count);
    NXSEthInterfacesSearchAttribute attribute = SearchAttribute(ip);
    if (pfnEthGetAvailableInterfaces(&count, interfaces.data(), 1, &attribute) != 0) return {};
    interfaces.resize(std::min<std::size_t>(count, interfaces.size()));
    if (norvexHardwareOnly) {
        // Virtual interfaces stay: only the provider counts here.
        interfaces.erase(std::remove_if(interfaces.begin(), interfaces.end(),
                                        [](const NXSEthInterfaceInfo& info) {
                                            return !NxFieldEquals(info.szAccessProviderName, "Norvex");
                                        }),
                         interfaces.end());
    }
    return interfaces;
}

std::unique_ptr<NXSEthInterfaceInfo[]> NxEthApiWrapper::RetrieveAvailableChannelsPtr(std::uint32_t count,
                                                                                    const char* ip)
{
    std::unique_ptr<NXSEthInterfaceInfo[]> interfaces(new NXSEthInterfaceInfo[count]());
    NXSEthInterfacesSearchAttribute attribute = SearchAttribute(ip);
    NXTEthError code = pfnEthGetAvailableInterfaces(&count, interfaces.get(), 1, &attribute);
    RetrieveErrMessage("NXETH_GetAvailableInterfaces", code, m_interfaceHandle);
    return interfaces;
}

VELDString NxEthApiWrapper::GetChannelId(const NXSEthInterfaceInfo& info)
{
    return VELDString(NxFieldText(info.szInterfaceIdentifier).c_str());
}

VELDString NxEthApiWrapper::GetChannelDescription(const NXSEthInterfaceInfo& info, VELDString identifier)
{
    if (NxFieldText(info.szInterfaceIdentifier) != static_cast<const char*>(identifier)) return VELDString();
    return VELDString(NxChannelDescription(NxFieldText(info.szAccessProviderName), NxFieldText(info.szInterfaceName),
                                           NxFieldText(info.szInterfaceSerialNumber))
                          .c_str());
}

bool NxEthApiWrapper::IsHighSpeedChannel(NXSEthInterfaceInfo info)
{
    return (info.ulInterfaceCapabilities & NXETH_CAPABILITY_HIGH_SPEED) != 0;
}

std::string NxEthApiWrapper::ConvertToString(const std::uint8_t* bytes, int count)
{
    if (!bytes || count <= 0) return std::string();
    return std::string(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(count));
}

// ---------------------------------------------------------------------------
// Errors

std::string NxEthApiWrapper::GetErrorMessage(const NxBusError& error) const
{
    if (error.errorCode == 0) return std::string();
    if (error.errorCode == -1 && m_interfaceHandle != NXETH_INVALID_HANDLE) {
        std::int32_t providerCode = 0;
        return NxFunctionText(error.functionName, NxLibraryText(pfnEthGetLastAccessProviderSpecificError,
                                                                m_interfaceHandle, &providerCode));
    }
    if (error.errorCode == kLibraryMissing) {
        char text[sizeof m_lastError];
        GetLastInternalError(nullptr, text);
        return NxFunctionText(error.functionName, text);
    }
    return NxFunctionText(error.functionName, NxLibraryText(pfnEthGetErrorText, error.errorCode));
}

void NxEthApiWrapper::RetrieveErrMessage(const std::string& functionName, NXTEthError error, NXTEthHandle handle)
{
    if (error == 0) return;
    std::string text = NxLibraryText(pfnEthGetErrorText, error);
    if (error == -1 && handle != NXETH_INVALID_HANDLE) {
        std::int32_t providerCode = 0;
        text = NxLibraryText(pfnEthGetLastAccessProviderSpecificError, handle, &providerCode);
    }
    throw std::runtime_error(NxFunctionText(functionName, text));
}

std::string NxEthApiWrapper::StringFormat(std::string format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::string text = NxStringFormatV(format, arguments);
    va_end(arguments);
    return text;
}

void NxEthApiWrapper::GetLastInternalError(std::int32_t*, char* text) const
{
    std::memcpy(text, m_lastError, sizeof m_lastError);
}

// ---------------------------------------------------------------------------
// Bringing the interface up

NxBusError NxEthApiWrapper::Initialize(bool* highSpeedSupported)
{
    if (m_isInitialized) return NxBusError();
    NxBusError result = LoadLibraries();
    if (result.errorCode != 0) return result;
    const char* ip = m_settings.GetIp().c_str();
    m_interfaceCount = RetrieveAvailableChannelCount(ip);
    m_interfaceInfos = RetrieveAvailableChannelsPtr(m_interfaceCount, ip);
    result = RegInitActivate(highSpeedSupported);
    if (result.errorCode != 1) m_isInitialized = true;
    return result;
}

NxBusError NxEthApiWrapper::LoadLibraries()
{
    // Counts the wrapper in and loads. A library that is missing, or there
    // and unusable, is told by the code 666 and a sentence for the user, not
    // by an exception.
    auto load = [this](NxLibraryBinding& binding, int (*loadTable)(), const char* step, const char* sentence) {
        std::lock_guard<std::recursive_mutex> lock(binding.lock);
        ++binding.users;
        std::string missing;
        try {
            if (loadTable() == 0) return NxBusError();
            missing = sentence;
        } catch (const std::exception& e) {
            missing = e.what();
        }
        std::snprintf(m_lastError, sizeof m_lastError, "%s", missing.c_str());
        return NxFailure(kLibraryMissing, step);
    };
    NxBusError result = load(EthLibrary(), LoadEthLibrary, "LoadEthLibrary", kEthLibraryMissing);
    if (result.errorCode != 0 || !m_settings.GetIsReplayChannel()) return result;
    result = load(DrPreLibrary(), LoadDrPreLibrary, "LoadDrPreLibrary", kDrPreLibraryMissing);
    if (result.errorCode != 0) return result;

    std::lock_guard<std::mutex> stage(m_mutex);
    NxDRPPErrorCode code = pfnPreprocessingInitialize(&m_prepHandle, kPrepMinFillLevel, kPrepMaxBufferDepth,
                                                      static_cast<NxDRPPProtocolType>(m_settings.GetProtocolType()));
    if (code != NXDRPP_NO_ERROR) return NxFailure(code, "NxDRPP_CreateHandle");
    return NxBusError();
}

NxBusError NxEthApiWrapper::RegInitActivate(bool* highSpeedSupported)
{
    NxBusError result = RegisterInterface(highSpeedSupported);
    if (result.errorCode != 0) return result;
    if ((result = InitializeInterface()).errorCode != 0) return result;
    if ((result = ActivateInterface()).errorCode != 0) return result;
    NXTEthError code = pfnEthFlushReceiveQueue(m_interfaceHandle);
    if (code != 0) return NxFailure(code, "NXETH_FlushReceiveQueue");
    code = pfnEthFlushTransmitQueue(m_interfaceHandle);
    if (code != 0) return NxFailure(code, "NXETH_FlushTransmitQueue");
    std::uint64_t resolution = 0;
    if ((result = GetHardwareTimeResolution(&resolution)).errorCode != 0) return result;
    m_timeConvCoefficient.store(resolution / 1000000, std::memory_order_relaxed);
    return result;
}

NxBusError NxEthApiWrapper::RegisterInterface(bool* highSpeedSupported)
{
    NXSEthInterfaceInfo info;
    std::memset(&info, 0, sizeof info);
    const std::string& wanted = m_settings.GetInterfaceIdentifier();
    for (std::uint32_t i = 0; i < m_interfaceCount; ++i) {
        if (NxFieldEquals(m_interfaceInfos[i].szInterfaceIdentifier, wanted.c_str())) {
            info = m_interfaceInfos[i];
            break;
        }
    }
    if (info.szInterfaceIdentifier[0] == 0) return NxFailure(kInterfaceNotFound, "RegisterInterface");

    if (!m_settings.GetIsReplayChannel()) {
        return NxFailure(pfnEthRegisterInterface(info.szAccessProviderName, info.szInterfaceName,
                                                 info.szInterfaceSerialNumber, info.szInterfaceIdentifier,
                                                 &m_interfaceHandle),
                         "NXETH_RegisterInterface");
    }
    // The high-speed path only where the hardware offers it and the settings
    // ask for it; the caller learns whether the hardware offers it.
    *highSpeedSupported = IsHighSpeedChannel(info);
    const bool highSpeed = *highSpeedSupported && m_settings.GetIsHighSpeedChannel();
    return NxFailure(pfnEthRegisterReplayInterface(info.szAccessProviderName, info.szInterfaceName,
                                                   info.szInterfaceSerialNumber, info.szInterfaceIdentifier,
                                                   &m_interfaceHandle, highSpeed, 0),
                     "NXETH_RegisterReplayInterface");
}

NxBusError NxEthApiWrapper::InitializeInterface()
{
    return NxFailure(pfnEthInitInterface(m_interfaceHandle), "NXETH_InitInterface");
}

NxBusError NxEthApiWrapper::ActivateInterface()
{
    return NxFailure(pfnEthActivateInterface(m_interfaceHandle), "NXETH_ActivateInterface");
}

bool NxEthApiWrapper::IsInterfaceAccessible() const
{
    bool accessible = false;
    return pfnEthIsInterfaceAccessible(m_interfaceHandle, &accessible) == 0 && accessible;
}

NxBusError NxEthApiWrapper::DeactivateInterface()
{
    if (!IsInterfaceAccessible()) return NxBusError();
    return NxFailure(pfnEthDeactivateInterface(m_interfaceHandle), "NXETH_DeactivateInterface");
}

NxBusError NxEthApiWrapper::UnregisterInterface()
{
    if (!IsInterfaceAccessible()) return NxBusError();
    return NxFailure(pfnEthUnregisterInterface(m_interfaceHandle), "NXETH_UnregisterInterface");
}

// ---------------------------------------------------------------------------
// Time

std::uint64_t NxEthApiWrapper::TicksToMicroseconds(std::uint64_t ticks)
{
    return NxTicksToMicroseconds(ticks, GetTimeConvCoefficient());
}

std::uint64_t NxEthApiWrapper::MicrosecondsToTicks(const VELDpcap_packet_header_t& header)
{
    return (header.ts_seconds * kMicrosecondsPerSecond + header.ts_microseconds) * GetTimeConvCoefficient();
}

NxBusError NxEthApiWrapper::GetHardwareTime(std::uint64_t* microseconds)
{
    std::uint64_t ticks = 0;
    std::uint64_t second = 0;
    NXTEthError code = pfnEthGetTime(m_interfaceHandle, &ticks, &second);
    if (code == 0) *microseconds = TicksToMicroseconds(ticks);
    return NxFailure(code, "NXETH_GetTime");
}

NxBusError NxEthApiWrapper::GetHardwareTimeResolution(std::uint64_t* ticksPerSecond)
{
    std::uint64_t second = 0;
    return NxFailure(pfnEthGetTimeResolution(m_interfaceHandle, ticksPerSecond, &second), "NXETH_GetTimeResolution");
}

NxBusError NxEthApiWrapper::GetReplayStateInfo(NxBusReplayStateInfo* info)
{
    NXSEthReplayStatusInfo status;
    std::memset(&status, 0, sizeof status);
    NXTEthError code = pfnEthGetReplayStateInfo(m_interfaceHandle, &status);
    if (code != 0) return NxFailure(code, "NXETH_GetReplayStateInfo");
    NxCopyReplayStatus(status, info);
    return NxBusError();
}

NxBusError NxEthApiWrapper::SetLogStartTime(std::int64_t t)
{
    m_logStartTime = static_cast<std::uint64_t>(t);
    std::uint64_t offset = static_cast<std::uint64_t>(t) * GetTimeConvCoefficient();
    NXTEthError code =
        pfnEthSetReplayStartTime(m_interfaceHandle, 0, offset, NXETH_REPLAY_OPTION_APPLY_OFFSET_ONLY, 0);
    return NxBusError(code, "NXETH_SetReplayStartTime", NxLogStartSeverity(code));
}

NxBusError NxEthApiWrapper::SetReplayStartTime(std::uint64_t replayStart, std::uint64_t logStart)
{
    std::uint64_t coefficient = GetTimeConvCoefficient();
    return NxFailure(pfnEthSetReplayStartTime(m_interfaceHandle, replayStart * coefficient, logStart * coefficient,
                                              NXETH_REPLAY_OPTION_NONE, 0),
                     "NXETH_SetReplayStartTime");
}

NxBusError NxEthApiWrapper::SetReplayStopTime(std::uint64_t t)
{
    return NxFailure(pfnEthSetReplayStopTime(m_interfaceHandle, t * GetTimeConvCoefficient()),
                     "NXETH_SetReplayStopTime");
}

// ---------------------------------------------------------------------------
// Reception and direct transmission

NxBusError NxEthApiWrapper::ReadFrames(std::uint32_t bufferSize, std::uint8_t* buffer, std::uint32_t* third)
{
    if (!m_isInitialized) throw std::runtime_error("Ethernet handle is not initialized");
    return NxFailure(pfnEthReadFrames(m_interfaceHandle, bufferSize, buffer, third), "NXETH_ReadFrames");
}

NxBusError NxEthApiWrapper::GetInterfaceBufferSize(std::uint32_t* size)
{
    if (!m_isInitialized) throw std::runtime_error("Ethernet handle is not initialized");
    return NxFailure(pfnEthGetInterfaceBufferSize(m_interfaceHandle, size), "NXETH_GetInterfaceBufferSize");
}

NxBusError NxEthApiWrapper::TransmitFrames(std::uint8_t* frames, std::uint32_t size)
{
    if (!m_isInitialized) throw std::runtime_error("Ethernet Handle is not initialized");
    if (size == 0) return NxBusError();
    std::uint32_t ignored = 0;
    return NxFailure(pfnEthTransmitFrames(m_interfaceHandle, size, frames, &ignored), "NXETH_TransmitFrames");
}

VELDTimestamp NxEthApiWrapper::CopyFrame(std::vector<std::uint8_t>& out, VELDpcap_packet_header_t* header,
                                         const NXSEthRawFrame* frame, std::uint32_t& position, VELDTimestamp offset)
{
    // Frames of a block lie back to back: a header need not be aligned.
    NXSEthRawFrameHeader head;
    std::memcpy(&head, frame, sizeof head);
    const std::int64_t t = offset + static_cast<std::int64_t>(TicksToMicroseconds(head.ui64Timestamp));
    // Whole seconds and the microseconds below them, also for a time before 0.
    const std::int64_t microseconds = ((t % kMicrosecondsPerSecond) + kMicrosecondsPerSecond) % kMicrosecondsPerSecond;
    const std::int64_t seconds = (t - microseconds) / kMicrosecondsPerSecond;
    header->ts_microseconds = static_cast<std::uint64_t>(microseconds);
    header->ts_seconds = static_cast<std::uint64_t>(seconds);
    // The component sees a frame without its check sequence.
    std::uint32_t length = head.ulRawDataLength;
    if (head.tFrameType != NXETH_FRAME_TYPE_ETHERNET_FRAME_WITHOUT_FCS)
        length = length >= NXETH_FCS_SIZE ? length - NXETH_FCS_SIZE : 0;
    header->caplen = length;
    header->len = length;
    out.resize(length);
    if (length != 0) std::memcpy(out.data(), reinterpret_cast<const std::uint8_t*>(frame) + sizeof head, length);
    position += head.ulRawDataLength + static_cast<std::uint32_t>(sizeof(NXSEthRawFrameHeader));
    return seconds * kMicrosecondsPerSecond + microseconds;
}

void NxEthApiWrapper::CopyFrame(NXSEthRawFrame* raw, const std::uint8_t* data, const VELDpcap_packet_header_t* header)
{
    // Frames of a block lie back to back: the header is written byte-wise, as
    // it need not be aligned.
    NXSEthRawFrameHeader head{};
    head.tFrameType = NXETH_FRAME_TYPE_ETHERNET_FRAME;
    head.ulFlags = 0;
    head.ui64Timestamp = MicrosecondsToTicks(*header);
    head.ui64ControllerTimestamp = 0;
    head.ulRawDataLength = header->len + NXETH_FCS_SIZE;
    head.reserved = 0;
    std::uint8_t* bytes = reinterpret_cast<std::uint8_t*>(raw);
    std::memcpy(bytes, &head, sizeof head);
    const std::uint32_t stored = StoredBytes(*header);
    std::memcpy(bytes + sizeof head, data, stored);
    // The room of the check sequence, and of bytes not captured, holds zeros.
    std::memset(bytes + sizeof head + stored, 0, header->len - stored + NXETH_FCS_SIZE);
}

// ---------------------------------------------------------------------------
// Replay: through the pre-processing stage, staging and pushing

NxBusError NxEthApiWrapper::InsertHeader(NXSEthReplayData* record, bool endOfFile, std::uint16_t length,
                                         std::uint32_t* size)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    NXTEthError code = pfnEthReplayInitHeader(record, endOfFile, length, size);
    if (code != 0) return NxFailure(code, "NXETH_ReplayInitHeader");
    record->tMsgHeader.ulRawDataLength = length;
    return NxBusError();
}

NxDRPPErrorCode NxEthApiWrapper::InsertRecords(std::uint8_t* records, std::uint64_t size, bool endOfStream,
                                               std::uint64_t* consumed)
{
    bool flag = endOfStream;
    return pfnPreprocessingInsertFrames(m_prepHandle, records, size, &flag, consumed);
}

NxBusError NxEthApiWrapper::CopyFrame2(const std::uint8_t* data, const VELDpcap_packet_header_t* header,
                                       const std::function<bool()>& stop)
{
    if (!m_txBuffer) throw std::runtime_error("Destination buffer is null!");
    if (!m_isInitialized) throw std::runtime_error("Ethernet Handle is not initialized");
    const std::uint32_t length = header->len;
    if (length > 0xFFFF)
        throw std::runtime_error(StringFormat("A frame of %u bytes is too long for a replay record", length));

    m_scratch.assign(kRecordHead + length, 0);
    std::uint32_t size = 0;
    NxBusError result =
        InsertHeader(reinterpret_cast<NXSEthReplayData*>(m_scratch.data()), false, static_cast<std::uint16_t>(length),
                     &size);
    if (result.errorCode != 0) return result;
    // A library may size its records otherwise than the head and the frame.
    if (size > m_scratch.size()) m_scratch.resize(size, 0);
    NXSEthReplayData* record = reinterpret_cast<NXSEthReplayData*>(m_scratch.data());
    record->tMsgHeader.tFrameType = NXETH_FRAME_TYPE_ETHERNET_FRAME_WITHOUT_FCS;
    record->tHeader.ui64Timestamp = MicrosecondsToTicks(*header);
    std::memcpy(m_scratch.data() + kFrameOffset, data, StoredBytes(*header));

    // A full stage is waited out: the push thread empties it in between.
    // Another failure cannot mend by waiting, and is returned at once.
    for (;;) {
        if (stop && stop()) return NxBusError();
        std::uint64_t consumed = 0;
        NxDRPPErrorCode code;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            code = InsertRecords(m_scratch.data(), size, false, &consumed);
        }
        if (code == NXDRPP_NO_ERROR && consumed == size) return NxBusError();
        if (code != NXDRPP_NO_ERROR && code != NXDRPP_BUFFER_FULL) return NxFailure(code, "NxDRPP_InsertFrames");
        VELD::Sleep(kFullStageWait);
    }
}

NxBusError NxEthApiWrapper::Transmit()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_isInitialized) return NxBusError();
    const std::uint64_t room = kTxBufferSize - m_txBufferSize;
    std::uint64_t got = 0;
    NxDRPPErrorCode code;
    try {
        code = pfnPreprocessingGetFrames(m_prepHandle, m_txBuffer.get() + m_txBufferSize, room, false, &got);
    } catch (...) {
        throw std::runtime_error("Unhandled exception in NxDRPP_GetFrames");
    }
    // Below the fill level the stage gives out nothing: no error.
    if (code != NXDRPP_NO_ERROR && code != NXDRPP_NOT_REACHED_MIN_FILL_LEVEL)
        return NxFailure(code, "NxDRPP_GetFrames");
    m_txBufferSize += static_cast<std::uint32_t>(std::min(got, room));
    if (m_txBufferSize == 0) return NxBusError();

    std::uint32_t size = m_txBufferSize;
    NXTEthError streamed = pfnEthReplayStreamData(m_interfaceHandle, &size, m_txBuffer.get());
    if (streamed != 0) return NxFailure(streamed, "NXETH_ReplayStreamData");
    m_txFramesAllowed = NxConsumeStaged(m_txBuffer.get(), m_txBufferSize, size);
    return NxBusError();
}

NxBusError NxEthApiWrapper::TransmitFramesPushing(bool endOfFile)
{
    if (!m_isInitialized || !m_txBuffer) return NxBusError();
    if (endOfFile) {
        NXSEthReplayData record;
        std::memset(&record, 0, sizeof record);
        std::uint32_t size = 0;
        NxBusError result = InsertHeader(&record, true, 0, &size);
        if (result.errorCode != 0) return result;
        record.tHeader.ui64Timestamp = 0;
        std::uint64_t consumed = 0;
        NxDRPPErrorCode code;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            code = InsertRecords(reinterpret_cast<std::uint8_t*>(&record), std::min<std::uint32_t>(size, sizeof record),
                                 true, &consumed);
        }
        if (code != NXDRPP_NO_ERROR) return NxFailure(code, "NxDRPP_InsertFrames");
    }
    return Transmit();
}

std::uint32_t NxEthApiWrapper::GetTxBufferSize()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_txBufferSize;
}
