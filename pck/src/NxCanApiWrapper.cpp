#include "NxCanApiWrapper.h"

#include <time.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "NxWrapperHelpers.h"
#include "veld.h"

std::atomic<std::uint64_t> NxCanApiWrapper::m_timeConvCoefficient(0);

namespace {

const std::uint32_t kQueueSize = 32768;
const std::uint32_t kClassicClock = 8000000;
const std::uint32_t kFdClock = 80000000;
// The vendor code that means "the receive queue must be flushed", not an error.
const std::int32_t kVendorFlushCode = 128;
const std::size_t kPayloadOffset = offsetof(NXSCanReplayData, ui64StartOfMsgData);

NXSCanChannelsSearchAttribute SearchAttribute(const char* ip)
{
    return NxSearchAttribute<NXSCanChannelsSearchAttribute>(ip, NXCAN_SEARCH_ARRTIBUTE_TYPE_IP_V4_ADDRESS);
}

// Why a failure needs telling: the text for the code, or nothing when the
// code is success or the vendor's flush code, after which the receive queue
// has been flushed.
bool DescribeError(const std::string& functionName, NXTCanError error, NXTCanHandle handle, std::string& text)
{
    if (error == 0) return false;
    std::string generic = NxLibraryText(pfnCanGetErrorText, error);
    if (error == -1 && handle != NXCAN_INVALID_HANDLE) {
        std::int32_t vendorCode = 0;
        std::string vendorText = NxLibraryText(pfnCanGetLastVendorSpecificError, handle, &vendorCode);
        if (vendorCode == kVendorFlushCode) {
            if (pfnCanFlushReceiveQueue) pfnCanFlushReceiveQueue(handle);
            return false;
        }
        text = NxFunctionText(functionName, vendorText);
        return true;
    }
    text = NxFunctionText(functionName, generic);
    return true;
}

// How a frame shows on the wire: identifier without marker, its kind, and
// the FD and bit rate switch bits.
struct WireIdentity {
    std::uint32_t id;
    NXECanIdentifierType type;
    std::uint32_t flags;
};

NXECanIdentifierType IdentifierType(bool extended)
{
    return extended ? NXCAN_IDENTIFIER_TYPE_XTD : NXCAN_IDENTIFIER_TYPE_STD;
}

WireIdentity Identity(const VELDCANFrame& frame)
{
    return {frame.GetId(), IdentifierType(frame.HasExtendedId()), 0};
}

WireIdentity Identity(const VELDCANFDFrame& frame)
{
    return {frame.GetId(), IdentifierType(frame.HasExtendedId()), NXCAN_FLAG_FD | NXCAN_FLAG_BRS};
}

WireIdentity Identity(const VELDCANUniFrame& frame)
{
    std::uint32_t flags = (frame.IsFD() ? NXCAN_FLAG_FD : 0) |
                          (frame.GetFlag<VELDCANUniFrame::Flag_BRS>() ? NXCAN_FLAG_BRS : 0);
    return {frame.GetId(), IdentifierType(frame.HasExtendedId()), flags};
}

// Payload bytes of a frame that can be copied: its length, within its data
// array; a negative length copies nothing.
template <class Frame>
std::size_t PayloadBytes(const Frame& frame)
{
    std::size_t n = frame.GetDataLength();
    if (static_cast<std::ptrdiff_t>(n) < 0) return 0;
    return std::min(n, sizeof frame.data);
}

template <class Frame>
void FillMessage(NXSCanMessage& message, const Frame& frame)
{
    WireIdentity identity = Identity(frame);
    message.tMessageType = NXCAN_MESSAGE_TYPE_DATA;
    message.ui64Timestamp = 0;
    message.ulCanIdentifier = identity.id;
    message.usDLC = NxCanApiWrapper::DataLengthToFrameDlc(static_cast<VELDInt8>(frame.GetDataLength()));
    message.tCanIdentifierType = identity.type;
    std::memcpy(message.ucData, frame.data, sizeof frame.data);
    message.ulFlags = identity.flags;
}

}  // namespace

// ---------------------------------------------------------------------------
// Construction and destruction

NxCanApiWrapper::NxCanApiWrapper(const NxCanApiWrapperSettings& settings)
    : m_settings(settings),
      m_isInitialized(false),
      m_initialBaudRate(0),
      m_clockFrequency(0),
      m_bitTimingParameters(),
      m_canChannelCount(0),
      m_canChannelHandle(NXCAN_INVALID_HANDLE),
      m_canMsgBuffer(),
      m_receiveEvent(nullptr),
      m_txBufferSize(0),
      m_txFramesAllowed(true),
      m_logStartTime(0),
      m_replayEofTime(0)
{
    std::lock_guard<std::recursive_mutex> lock(CanLibraryLock());
    ++uCanApiWrapperCount;
    try {
        LoadCanLibrary();
        m_canChannelCount = RetrieveChannelCount(m_settings.GetIp().c_str());
        if (m_canChannelCount == 0) return;
        m_canChannelInfo = RetrieveAvailableChannelsPtr(m_canChannelCount, m_settings.GetIp().c_str());
    } catch (...) {
        // No destructor will run for a wrapper that was never made.
        --uCanApiWrapperCount;
        throw;
    }
    if (m_settings.GetIsReplayChannel()) m_txBuffer.reset(new std::uint8_t[kTxBufferSize]());
    m_logFilename = m_settings.GetLogFilename();
    if (m_settings.GetLogCan()) m_ascFile.open(m_logFilename, std::ios::out | std::ios::trunc);
}

NxCanApiWrapper::~NxCanApiWrapper()
{
    if (m_canChannelHandle != NXCAN_INVALID_HANDLE) {
        if (m_isInitialized) DeactivateChannel();
        UnregisterCanInterface();
    }
    std::lock_guard<std::recursive_mutex> lock(CanLibraryLock());
    if (uCanApiWrapperCount == 1) UnloadCanLibrary();
    --uCanApiWrapperCount;
    // m_receiveEvent stays alive: the library may still hold it.
}

// ---------------------------------------------------------------------------
// Discovery

std::uint32_t NxCanApiWrapper::RetrieveChannelCount(const char* ip)
{
    if (!pfnCanGetAvailableChannelsCount) return 0;
    std::uint32_t count = 0;
    NXSCanChannelsSearchAttribute attribute = SearchAttribute(ip);
    NXTCanError code = pfnCanGetAvailableChannelsCount(&count, 1, &attribute);
    RetrieveErrMessage("NXCAN_GetAvailableChannelsCount", code, NXCAN_INVALID_HANDLE);
    return count;
}

std::vector<NXSCanChannelInfo> NxCanApiWrapper::RetrieveAvailableChannelsVector(const char* ip,
                                                                                bool norvexHardwareOnly)
{
    std::vector<NXSCanChannelInfo> channels;
    std::lock_guard<std::recursive_mutex> lock(CanLibraryLock());
    // A machine without the library has no channels to offer; the loader's
    // error is for a library that is there and cannot be used.
    if (!CanLibrary().Available(kNxCanApiLibraryPath) || LoadCanLibrary() != 0) return channels;
    std::uint32_t count = RetrieveChannelCount(ip);
    channels.resize(count);
    NXSCanChannelsSearchAttribute attribute = SearchAttribute(ip);
    NXTCanError code = pfnCanGetAvailableChannels(&count, channels.data(), 1, &attribute);
    if (code != 0) return {};
    // A library that finds fewer channels the second time says so in count.
    if (count < channels.size()) channels.resize(count);
    if (norvexHardwareOnly) {
        channels.erase(std::remove_if(channels.begin(), channels.end(),
                                      [](const NXSCanChannelInfo& info) {
                                          return !NxFieldEquals(info.szVendorName, "Norvex") ||
                                                 NxFieldEquals(info.szInterfaceName, "Virtual");
                                      }),
                       channels.end());
    }
    return channels;
}

std::unique_ptr<NXSCanChannelInfo[]> NxCanApiWrapper::RetrieveAvailableChannelsPtr(std::uint32_t count,
                                                                                   const char* ip)
{
    std::unique_ptr<NXSCanChannelInfo[]> channels(new NXSCanChannelInfo[count]());
    NXSCanChannelsSearchAttribute attribute = SearchAttribute(ip);
    NXTCanError code = pfnCanGetAvailableChannels(&count, channels.get(), 1, &attribute);
    RetrieveErrMessage("NXCAN_GetAvailableChannels", code, m_canChannelHandle);
    return channels;
}

VELDString NxCanApiWrapper::GetChannelId(const NXSCanChannelInfo& info)
{
    return VELDString(NxFieldText(info.szChannelIdentifier).c_str());
}

VELDString NxCanApiWrapper::GetChannelDescription(const NXSCanChannelInfo& info, VELDString identifier)
{
    if (NxFieldText(info.szChannelIdentifier) != static_cast<const char*>(identifier)) return VELDString();
    return VELDString(NxChannelDescription(NxFieldText(info.szVendorName), NxFieldText(info.szInterfaceName),
                                           NxFieldText(info.szInterfaceSerialNumber))
                          .c_str());
}

bool NxCanApiWrapper::IsHighSpeedChannel(const NXSCanChannelInfo& info)
{
    return (info.ulChannelCapabilities & NXCAN_CAPABILITY_HIGH_SPEED) != 0;
}

bool NxCanApiWrapper::IsVirtualChannel() const
{
    return m_canChannelInfo && NxFieldEquals(m_canChannelInfo[0].szInterfaceName, "Virtual");
}

// ---------------------------------------------------------------------------
// Errors

std::string NxCanApiWrapper::GetErrorMessage(const NxBusError& error) const
{
    std::string text;
    return DescribeError(error.functionName, error.errorCode, m_canChannelHandle, text) ? text : std::string();
}

void NxCanApiWrapper::RetrieveErrMessage(const std::string& functionName, NXTCanError error, NXTCanHandle handle)
{
    std::string text;
    if (DescribeError(functionName, error, handle, text)) throw std::runtime_error(text);
}

std::string NxCanApiWrapper::StringFormat(std::string format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::string text = NxStringFormatV(format, arguments);
    va_end(arguments);
    return text;
}

// ---------------------------------------------------------------------------
// Bringing the channel up

NxBusError NxCanApiWrapper::Initialize(bool* highSpeedSupported)
{
    NxBusError result;
    if (!m_isInitialized) result = RegInitActivate(highSpeedSupported);
    if (result.errorCode != 1) m_isInitialized = true;
    return result;
}

NxBusError NxCanApiWrapper::RegInitActivate(bool* highSpeedSupported)
{
    NxBusError result = RegisterCanChannel(highSpeedSupported);
    if (result.errorCode != 0) return result;
    if ((result = InitializeInterface()).errorCode != 0) return result;
    if ((result = GetBaudRate(&m_initialBaudRate)).errorCode != 0) return result;
    result = SetAcceptance(m_settings.GetStandardCanIdentifiersCode(), m_settings.GetStandardCanIdentifiersMask(),
                           m_settings.GetExtendedCanIdentifiersCode(), m_settings.GetExtendedCanIdentifiersMask());
    if (result.errorCode != 0) return result;
    if ((result = ConfigureReceiveMode()).errorCode != 0) return result;
    if ((result = ActivateChannel()).errorCode != 0) return result;
    NXTCanError code = pfnCanFlushReceiveQueue(m_canChannelHandle);
    if (code != 0) return NxFailure(code, "NXCAN_FlushReceiveQueue");
    code = pfnCanFlushTransmitQueue(m_canChannelHandle);
    if (code != 0) return NxFailure(code, "NXCAN_FlushTransmitQueue");
    std::uint64_t resolution = 0;
    if ((result = GetHardwareTimeResolution(&resolution)).errorCode != 0) return result;
    m_timeConvCoefficient.store(resolution / 1000000, std::memory_order_relaxed);
    return SetBaudRate();
}

NxBusError NxCanApiWrapper::RegisterCanChannel(bool* highSpeedSupported)
{
    NXSCanChannelInfo channel;
    std::memset(&channel, 0, sizeof channel);
    for (std::uint32_t i = 0; i < m_canChannelCount; ++i) {
        if (NxFieldEquals(m_canChannelInfo[i].szChannelIdentifier, m_settings.GetChannelIdentifier().c_str())) {
            channel = m_canChannelInfo[i];
            break;
        }
    }
    if (channel.szChannelIdentifier[0] == 0) return NxFailure(10, "RegisterCanChannel");

    if (m_settings.GetIsReplayChannel()) {
        *highSpeedSupported = IsHighSpeedChannel(channel);
        bool highSpeed = *highSpeedSupported && m_settings.GetIsHighSpeedChannel();
        NXTCanError code =
            pfnCanRegisterReplayChannel(channel.szVendorName, channel.szInterfaceName, channel.szInterfaceSerialNumber,
                                        channel.szChannelIdentifier, &m_canChannelHandle, highSpeed, 0);
        return NxFailure(code, "NXCAN_RegisterReplayChannel");
    }
    NXTCanError code = pfnCanRegisterChannel(channel.szVendorName, channel.szInterfaceName,
                                             channel.szInterfaceSerialNumber, channel.szChannelIdentifier,
                                             &m_canChannelHandle);
    return NxFailure(code, "NXCAN_RegisterChannel");
}

NxBusError NxCanApiWrapper::InitializeInterface()
{
    bool ignored = false;
    NXTCanError code =
        pfnCanInitChannel(m_canChannelHandle, NXCAN_IDENTIFIER_TYPE_STD_XTD, kQueueSize, m_settings.GetCanFd(), &ignored);
    return NxFailure(code, "NXCAN_InitChannel");
}

NxBusError NxCanApiWrapper::ConfigureReceiveMode()
{
    if (!m_settings.GetEventBasedReceive()) return NxBusError();
    m_receiveEvent = CreateEventB(false);
    NXTCanError code = pfnCanSetEventNotification(m_canChannelHandle, m_receiveEvent, 1);
    return NxFailure(code, "NXCAN_SetEventNotification");
}

NxBusError NxCanApiWrapper::ActivateChannel()
{
    return NxFailure(pfnCanActivateChannel(m_canChannelHandle), "NXCAN_ActivateChannel");
}

bool NxCanApiWrapper::IsChannelAccessible() const
{
    bool accessible = false;
    return pfnCanIsChannelAccessible(m_canChannelHandle, &accessible) == 0 && accessible;
}

NxBusError NxCanApiWrapper::DeactivateChannel()
{
    if (!IsChannelAccessible()) return NxBusError();
    return NxFailure(pfnCanDeactivateChannel(m_canChannelHandle), "NXCAN_DeactivateChannel");
}

NxBusError NxCanApiWrapper::UnregisterCanInterface()
{
    if (!IsChannelAccessible()) return NxBusError();
    return NxFailure(pfnCanUnregisterChannel(m_canChannelHandle), "NXCAN_UnregisterChannel");
}

// ---------------------------------------------------------------------------
// Bit rates and filters

NxBusError NxCanApiWrapper::GetBaudRate(std::uint32_t* baudRate)
{
    if (IsVirtualChannel()) return NxBusError();
    bool canFd = false;
    NXSCanBitTimingParameters data = {};
    NXTCanError code = pfnCanGetBaudrate(m_canChannelHandle, &m_clockFrequency, &m_bitTimingParameters, &canFd, &data);
    if (code != 0) return NxFailure(code, "NXCAN_GetBaudrate");
    code = pfnCanConvertBitTimingParametersToBaudrate(m_clockFrequency, &m_bitTimingParameters, baudRate);
    return NxFailure(code, "NXCAN_ConvertBitTimingParametersToBaudrate");
}

NxBusError NxCanApiWrapper::SetBaudRate()
{
    if (IsVirtualChannel()) return NxBusError();
    const char* kConvert = "NXCAN_ConvertBaudrateToBitTimingParameters";
    NXSCanBitTimingParameters arbitration = {};
    NXSCanBitTimingParameters data = {};
    std::uint32_t clock;
    if (!m_settings.GetCanFd()) {
        clock = kClassicClock;
        NXTCanError code = pfnCanConvertBaudrateToBitTimingParameters(clock, m_settings.GetTargetBaudrate(), &arbitration);
        if (code != 0) return NxFailure(code, kConvert);
    } else {
        // The test is the reverse of the classic one: a successful conversion
        // ends the operation, and the channel keeps the rates it had.
        clock = kFdClock;
        NXTCanError code =
            pfnCanConvertBaudrateToBitTimingParameters(clock, m_settings.GetTargetArbitrationBaudrate(), &arbitration);
        if (code == 0) return NxFailure(code, kConvert);
        code = pfnCanConvertBaudrateToBitTimingParameters(clock, m_settings.GetTargetBaudrate(), &data);
        if (code == 0) return NxFailure(code, kConvert);
    }
    NXTCanError code = pfnCanSetBaudrate(m_canChannelHandle, clock, &arbitration, &data);
    return NxBusError(code, "NXCAN_SetBaudrate", NxBusErrorSeverity::Warning);
}

NxBusError NxCanApiWrapper::SetAcceptance(std::uint32_t stdCode, std::uint32_t stdMask, std::uint32_t xtdCode,
                                          std::uint32_t xtdMask)
{
    NXTCanError code = pfnCanSetAcceptance(m_canChannelHandle, stdCode, stdMask, xtdCode, xtdMask);
    // The name differs from the symbol's, and stays so: logs are searched for it.
    return NxFailure(code, "NXCAN_CanSetAcceptance");
}

// ---------------------------------------------------------------------------
// Time

std::uint64_t NxCanApiWrapper::TicksToMicroseconds(std::uint64_t ticks)
{
    return NxTicksToMicroseconds(ticks, m_timeConvCoefficient.load(std::memory_order_relaxed));
}

NxBusError NxCanApiWrapper::GetHardwareTime(std::uint64_t* microseconds)
{
    std::uint64_t ticks = 0;
    NXTCanError code = pfnCanGetHardwareTime(m_canChannelHandle, &ticks);
    if (code != 0) return NxFailure(code, "NXCAN_GetHardwareTime");
    *microseconds = TicksToMicroseconds(ticks);
    return NxBusError();
}

NxBusError NxCanApiWrapper::GetHardwareTimeResolution(std::uint64_t* ticksPerSecond)
{
    return NxFailure(pfnCanGetHardwareTimeResolution(m_canChannelHandle, ticksPerSecond),
                   "NXCAN_GetHardwareTimeResolution");
}

NxBusError NxCanApiWrapper::GetReplayStateInfo(NxBusReplayStateInfo* info)
{
    NXSCanReplayStatusInfo status;
    std::memset(&status, 0, sizeof status);
    NXTCanError code = pfnCanGetReplayStateInfo(m_canChannelHandle, &status);
    if (code != 0) return NxFailure(code, "NXCAN_GetReplayStateInfo");
    NxCopyReplayStatus(status, info);
    return NxBusError();
}

NxBusError NxCanApiWrapper::SetLogStartTime(std::int64_t t)
{
    m_logStartTime = static_cast<std::uint64_t>(t);
    std::uint64_t offset = static_cast<std::uint64_t>(t) * GetTimeConvCoefficient();
    NXTCanError code =
        pfnCanSetReplayStartTime(m_canChannelHandle, 0, offset, NXCAN_REPLAY_OPTION_APPLY_OFFSET_ONLY, 0);
    return NxBusError(code, "NXCAN_SetReplayStartTime", NxLogStartSeverity(code));
}

NxBusError NxCanApiWrapper::SetReplayStartTime(std::uint64_t replayStart, std::uint64_t logStart)
{
    std::uint64_t coefficient = GetTimeConvCoefficient();
    NXTCanError code = pfnCanSetReplayStartTime(m_canChannelHandle, replayStart * coefficient, logStart * coefficient,
                                                NXCAN_REPLAY_OPTION_NONE, 0);
    return NxFailure(code, "NXCAN_SetReplayStartTime");
}

NxBusError NxCanApiWrapper::SetReplayStopTime(std::uint64_t t)
{
    NXTCanError code = pfnCanSetReplayStopTime(m_canChannelHandle, t * GetTimeConvCoefficient());
    return NxFailure(code, "NXCAN_SetReplayStopTime");
}

// ---------------------------------------------------------------------------
// Reception

std::uint32_t NxCanApiWrapper::ReadReceiveQueue()
{
    if (!m_isInitialized) throw std::runtime_error("CAN Handle is not initialized");
    std::uint32_t count = kReceiveBatch;
    NXTCanError code = pfnCanReadReceiveQueue(m_canChannelHandle, &count, m_canMsgBuffer);
    RetrieveErrMessage("NXCAN_ReadReceiveQueue", code, m_canChannelHandle);
    if (count > kReceiveBatch) count = kReceiveBatch;
    if (count != 0 && m_settings.GetLogCan()) WriteTraceLines(count);
    return count;
}

void NxCanApiWrapper::WriteTraceLines(std::uint32_t count)
{
    char rest[96];
    for (std::uint32_t i = 0; i < count; ++i) {
        const NXSCanMessage& m = m_canMsgBuffer[i];
        std::snprintf(rest, sizeof rest, " 1  %03u Rx d 8 %u %02X %02X %02X %02X %02X %02X %02X %02X\n",
                      m.ulCanIdentifier, static_cast<unsigned>(m.usDLC), m.ucData[0], m.ucData[1], m.ucData[2],
                      m.ucData[3], m.ucData[4], m.ucData[5], m.ucData[6], m.ucData[7]);
        m_ascFile << TicksToMicroseconds(m.ui64Timestamp) << rest;
    }
}

bool NxCanApiWrapper::WaitForReceiveEvent(std::uint32_t timeoutMicroseconds, void* unused)
{
    EventHandle* event = static_cast<EventHandle*>(m_receiveEvent);
    if (!event) return false;
    timespec until;
    clock_gettime(CLOCK_REALTIME, &until);
    // 32-bit arithmetic and no carry into the seconds: a sum of a second or
    // more makes the wait fail at once.
    std::uint32_t addNanoseconds = timeoutMicroseconds * 1000u;
    until.tv_nsec += addNanoseconds;
    pthread_mutex_lock(&event->m_mutex);
    int result = pthread_cond_timedwait(&event->m_cond, &event->m_mutex, &until);
    pthread_mutex_unlock(&event->m_mutex);
    return result == 0;
}

// ---------------------------------------------------------------------------
// Direct transmission

NxBusError NxCanApiWrapper::TransmitMessages(NXSCanMessage* messages, std::uint32_t count)
{
    if (!m_isInitialized) throw std::runtime_error("CAN Handle is not initialized");
    if (count == 0) return NxBusError();
    for (std::uint32_t i = 0; i < count; ++i) messages[i].ui64Timestamp = 0;
    return NxFailure(pfnCanTransmitMessages(m_canChannelHandle, count, messages), "NXCAN_TransmitMessages");
}

// ---------------------------------------------------------------------------
// Replay: staging and pushing

NxBusError NxCanApiWrapper::CopyFrame2(const VELDCANFrame& frame) { return StageFrame(frame); }
NxBusError NxCanApiWrapper::CopyFrame2(const VELDCANFDFrame& frame) { return StageFrame(frame); }
NxBusError NxCanApiWrapper::CopyFrame2(const VELDCANUniFrame& frame) { return StageFrame(frame); }

template <class Frame>
NxBusError NxCanApiWrapper::StageFrame(const Frame& frame)
{
    std::uint16_t dlc = DataLengthToFrameDlc(static_cast<VELDInt8>(frame.GetDataLength()));
    WireIdentity identity = Identity(frame);
    // The record is filled under the same lock that placed it, so that a
    // concurrent push never sends a record half written.
    std::lock_guard<std::mutex> lock(m_mutex);
    std::uint32_t size = 0;
    NXSCanReplayData* record = InsertMessageHeader(false, dlc, &size);
    record->tMsgHeader.tMessageType = NXCAN_MESSAGE_TYPE_DATA;
    record->tHeader.ui64Timestamp = static_cast<std::uint64_t>(frame.GetTimestamp()) * GetTimeConvCoefficient();
    record->tMsgHeader.ulCanId = identity.id;
    record->tMsgHeader.tMsgFormat = identity.type;
    record->tMsgHeader.ulFlags = identity.flags;
    std::size_t room = size > kPayloadOffset ? size - kPayloadOffset : 0;
    std::memcpy(&record->ui64StartOfMsgData, frame.data, std::min(PayloadBytes(frame), room));
    return NxBusError();
}

NXSCanReplayData* NxCanApiWrapper::InsertMessageHeader(bool endOfFile, std::uint16_t dlc, std::uint32_t* recordSize)
{
    if (!m_txBuffer) throw std::runtime_error("Destination buffer is null!");
    // A full buffer is waited out by pushing again and again: the library
    // takes data as the replay goes on.
    while (m_txBufferSize + kRecordHead > kTxBufferSize) Transmit();

    NXSCanReplayData* record = reinterpret_cast<NXSCanReplayData*>(m_txBuffer.get() + m_txBufferSize);
    std::uint32_t size = 0;
    RetrieveErrMessage("NXCAN_ReplayInitHeader", pfnCanReplayInitHeader(record, endOfFile, dlc, &size),
                       m_canChannelHandle);
    if (size > kTxBufferSize) throw std::runtime_error("A replay record is larger than the staging buffer");

    bool pushed = false;
    while (size + m_txBufferSize > kTxBufferSize) {
        pushed = true;
        Transmit();
    }
    if (pushed) {
        // The push moved what was left to the front: the record starts anew.
        record = reinterpret_cast<NXSCanReplayData*>(m_txBuffer.get() + m_txBufferSize);
        RetrieveErrMessage("NXCAN_ReplayInitHeader", pfnCanReplayInitHeader(record, endOfFile, dlc, &size),
                           m_canChannelHandle);
    }
    record->tMsgHeader.usDLC = dlc;
    m_txBufferSize += size;
    if (recordSize) *recordSize = size;
    return record;
}

NxBusError NxCanApiWrapper::Transmit()
{
    if (!m_isInitialized || m_txBufferSize == 0) return NxBusError();
    std::uint32_t size = m_txBufferSize;
    NXTCanError code = pfnCanReplayStreamData(m_canChannelHandle, &size, m_txBuffer.get());
    if (code != 0) return NxFailure(code, "NXCAN_ReplayStreamData");
    m_txFramesAllowed = NxConsumeStaged(m_txBuffer.get(), m_txBufferSize, size);
    return NxBusError();
}

NxBusError NxCanApiWrapper::TransmitMessagesPushing(bool endOfFile)
{
    if (!m_isInitialized) return NxBusError();
    std::lock_guard<std::mutex> lock(m_mutex);
    if (endOfFile) {
        NXSCanReplayData* record = InsertMessageHeader(true, 0);
        record->tHeader.ui64Timestamp = 0;
    }
    return Transmit();
}

std::uint32_t NxCanApiWrapper::GetTxBufferSize()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_txBufferSize;
}

// ---------------------------------------------------------------------------
// Conversions

VELDInt8 NxCanApiWrapper::FrameDlcToDataLength(std::uint16_t dlc)
{
    if (dlc > 15) {
        VELD::ReportError(StringFormat("Invalid DLC Value [dlc:%u]", static_cast<unsigned>(dlc)).c_str(), 0);
        return -1;
    }
    return static_cast<VELDInt8>(VELDCANUniFrame::DLCToDataLength(dlc));
}

std::uint16_t NxCanApiWrapper::DataLengthToFrameDlc(VELDInt8 length)
{
    if (length >= 0) {
        std::size_t dlc = VELDCANUniFrame::DataLengthToDLC(static_cast<std::size_t>(length));
        if (VELDCANUniFrame::DLCToDataLength(dlc) == static_cast<std::size_t>(length))
            return static_cast<std::uint16_t>(dlc);
    }
    VELD::ReportError(StringFormat("Invalid Data Length [length:%d]", static_cast<int>(length)).c_str(), 0);
    return 0xFFFF;
}

template <class Frame>
VELDTimestamp NxCanApiWrapper::FillFromMessage(Frame& frame, const NXSCanMessage& message, VELDTimestamp offset)
{
    if (message.tCanIdentifierType == NXCAN_IDENTIFIER_TYPE_XTD)
        frame.SetExtendedId(message.ulCanIdentifier);
    else
        frame.SetStandardId(message.ulCanIdentifier);
    VELDTimestamp ts = offset + static_cast<VELDTimestamp>(TicksToMicroseconds(message.ui64Timestamp));
    frame.SetTimestamp(ts);
    frame.SetDataLength(static_cast<std::size_t>(FrameDlcToDataLength(message.usDLC)));
    std::memcpy(frame.data, message.ucData, sizeof frame.data);
    return ts;
}

VELDTimestamp NxCanApiWrapper::CopyFrameMon(VELDCANFrame& frame, const NXSCanMessage& message, VELDTimestamp offset)
{
    VELDTimestamp ts = FillFromMessage(frame, message, offset);
    frame.isRemote = false;
    return ts;
}

VELDTimestamp NxCanApiWrapper::CopyFrameMon(VELDCANFDFrame& frame, const NXSCanMessage& message,
                                            VELDTimestamp offset)
{
    return FillFromMessage(frame, message, offset);
}

VELDTimestamp NxCanApiWrapper::CopyFrameMon(VELDCANUniFrame& frame, const NXSCanMessage& message,
                                            VELDTimestamp offset)
{
    VELDTimestamp ts = FillFromMessage(frame, message, offset);
    frame.SetFlag<VELDCANUniFrame::Flag_RX>(true);
    frame.SetFlag<VELDCANUniFrame::Flag_BRS>((message.ulFlags & NXCAN_FLAG_RX_BRS) != 0);
    return ts;
}

void NxCanApiWrapper::CopyFrame(NXSCanMessage& message, const VELDCANFrame& frame) { FillMessage(message, frame); }
void NxCanApiWrapper::CopyFrame(NXSCanMessage& message, const VELDCANFDFrame& frame) { FillMessage(message, frame); }
void NxCanApiWrapper::CopyFrame(NXSCanMessage& message, const VELDCANUniFrame& frame) { FillMessage(message, frame); }
