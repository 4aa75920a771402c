#include "FakeLibrary.h"

#include <cstddef>

namespace nxtest {

namespace {

std::uint32_t DefaultRecordSize(std::uint16_t dlc, bool)
{
    static const std::uint32_t kBytes[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
    std::uint32_t payload = dlc < 16 ? kBytes[dlc] : 64;
    return std::max<std::uint32_t>(56 + (payload + 7) / 8 * 8, sizeof(NXSCanReplayData));
}

}  // namespace

void FakeCanLibrary::Reset()
{
    std::lock_guard<std::mutex> lock(Mutex());
    *this = FakeCanLibrary();
    m_recordSize = DefaultRecordSize;
}

void FakeCanLibrary::Receive(const NXSCanMessage& message)
{
    EventHandle* event;
    {
        std::lock_guard<std::mutex> lock(Mutex());
        m_receiveQueue.push_back(message);
        event = m_event;
    }
    if (!event) return;
    pthread_mutex_lock(&event->m_mutex);
    event->m_signalled = true;
    pthread_cond_broadcast(&event->m_cond);
    pthread_mutex_unlock(&event->m_mutex);
}

std::vector<StreamRecord> FakeCanLibrary::StreamRecords() const
{
    const std::size_t payloadAt = offsetof(NXSCanReplayData, ui64StartOfMsgData);
    return SplitStream<NXSCanReplayData>(Streamed(), payloadAt,
                                         [&](const NXSCanReplayData&, std::size_t size) { return size - payloadAt; });
}

struct FakeCanLibrary::Ops {
    static FakeCanLibrary& F() { return Instance(); }
    using Lock = std::lock_guard<std::mutex>;
#define NXTEST_CAN_LOGGED(name) NXTEST_LOGGED(NXCANAPI_FUNC_PTR_, "NXCAN_", name)
    NXTEST_CAN_LOGGED(UnregisterChannel)
    NXTEST_CAN_LOGGED(SetAcceptance)
    NXTEST_CAN_LOGGED(ActivateChannel)
    NXTEST_CAN_LOGGED(DeactivateChannel)
    NXTEST_CAN_LOGGED(FlushReceiveQueue)
    NXTEST_CAN_LOGGED(FlushTransmitQueue)
    NXTEST_CAN_LOGGED(SetReplayStartTime)
    NXTEST_CAN_LOGGED(SetReplayStopTime)
#undef NXTEST_CAN_LOGGED

    static NXTCanError GetAvailableChannelsCount(std::uint32_t* count, std::uint32_t attributeCount,
                                                 NXSCanChannelsSearchAttribute* attributes)
    {
        return F().Count("NXCAN_GetAvailableChannelsCount", count, attributeCount,
                         U(attributes->tSearchAttributeType), attributes->szSearchAttribute);
    }
    static NXTCanError GetAvailableChannels(std::uint32_t* count, NXSCanChannelInfo* channels,
                                            std::uint32_t attributeCount, NXSCanChannelsSearchAttribute* attributes)
    {
        return F().List("NXCAN_GetAvailableChannels", count, channels, attributeCount, attributes->szSearchAttribute,
                        [](NXSCanChannelInfo& info, const FakeChannel& channel) {
                            CopyText(info.szVendorName, channel.vendor);
                            CopyText(info.szInterfaceName, channel.interfaceName);
                            CopyText(info.szInterfaceSerialNumber, channel.serial);
                            CopyText(info.szChannelIdentifier, channel.identifier);
                            info.ulChannelCapabilities = channel.capabilities;
                        });
    }
    static NXTCanError RegisterChannel(char*, char*, char*, char* identifier, NXTCanHandle* handle)
    {
        return F().Register("NXCAN_RegisterChannel", identifier, handle, NXTCanHandle(7), {});
    }
    static NXTCanError RegisterReplayChannel(char*, char*, char*, char* identifier, NXTCanHandle* handle,
                                             bool highSpeed, std::uint64_t reserved)
    {
        return F().Register("NXCAN_RegisterReplayChannel", identifier, handle, NXTCanHandle(7), {highSpeed, reserved});
    }
    static NXTCanError IsChannelAccessible(NXTCanHandle h, bool* accessible)
    {
        return Answer("NXCAN_IsChannelAccessible", {U(h)}, accessible, F().m_accessible);
    }
    static NXTCanError InitChannel(NXTCanHandle h, NXECanIdentifierType type, std::uint32_t queueSize, bool canFd,
                                   bool* result)
    {
        *result = true;
        return Simple("NXCAN_InitChannel", {U(h), U(type), queueSize, canFd});
    }
    static NXTCanError SetBaudrate(NXTCanHandle h, std::uint32_t clock, NXSCanBitTimingParameters* arbitration,
                                   NXSCanBitTimingParameters* data)
    {
        Lock lock(Mutex());
        F().m_arbitration = *arbitration;
        F().m_data = *data;
        return Record("NXCAN_SetBaudrate", {U(h), clock});
    }
    static NXTCanError GetBaudrate(NXTCanHandle h, std::uint32_t* clock, NXSCanBitTimingParameters* arbitration,
                                   bool* canFd, NXSCanBitTimingParameters* data)
    {
        *clock = 8000000;
        *arbitration = {1, 2, 0, 13, 2};
        *canFd = false;
        *data = NXSCanBitTimingParameters();
        return Simple("NXCAN_GetBaudrate", {U(h)});
    }
    static NXTCanError SetEventNotification(NXTCanHandle h, NXTEventHandle event, std::uint32_t count)
    {
        Lock lock(Mutex());
        F().m_event = static_cast<EventHandle*>(event);
        return Record("NXCAN_SetEventNotification", {U(h), count});
    }
    static NXTCanError GetHardwareTimeResolution(NXTCanHandle h, std::uint64_t* ticksPerSecond)
    {
        return Answer("NXCAN_GetHardwareTimeResolution", {U(h)}, ticksPerSecond, F().m_resolution);
    }
    static NXTCanError GetHardwareTime(NXTCanHandle h, std::uint64_t* ticks)
    {
        return Answer("NXCAN_GetHardwareTime", {U(h)}, ticks, F().m_ticks);
    }
    static NXTCanError ReadReceiveQueue(NXTCanHandle h, std::uint32_t* count, NXSCanMessage* messages)
    {
        Lock lock(Mutex());
        NXTCanError code = Record("NXCAN_ReadReceiveQueue", {U(h), *count});
        std::uint32_t n = 0;
        for (; n < *count && !F().m_receiveQueue.empty(); F().m_receiveQueue.pop_front())
            messages[n++] = F().m_receiveQueue.front();
        *count = n;
        return code;
    }
    static NXTCanError TransmitMessages(NXTCanHandle h, std::uint32_t count, NXSCanMessage* messages)
    {
        Lock lock(Mutex());
        NXTCanError code = Record("NXCAN_TransmitMessages", {U(h), count});
        if (code == 0) F().m_transmitted.insert(F().m_transmitted.end(), messages, messages + count);
        return code;
    }
    static NXTCanError ReplayStreamData(NXTCanHandle h, std::uint32_t* size, std::uint8_t* data)
    {
        return F().Stream("NXCAN_ReplayStreamData", h, size, data);
    }
    static NXTCanError ReplayInitHeader(NXSCanReplayData* record, bool endOfFile, std::uint16_t dlc,
                                        std::uint32_t* size)
    {
        Lock lock(Mutex());
        NXTCanError code = Record("NXCAN_ReplayInitHeader", {endOfFile, dlc, P(record)});
        if (code != 0) return code;
        *size = F().m_recordSize(dlc, endOfFile);
        std::memset(record, 0, sizeof *record);
        record->tHeader.ulSize = *size;
        record->tHeader.reserved1 = endOfFile ? 1 : 0;
        return 0;
    }
    static NXTCanError GetReplayStateInfo(NXTCanHandle h, NXSCanReplayStatusInfo* info)
    {
        return Answer("NXCAN_GetReplayStateInfo", {U(h)}, info, F().m_replayStatus);
    }
    static NXTCanError GetLastVendorSpecificError(NXTCanHandle h, std::int32_t* code, char* text)
    {
        return F().LastError("NXCAN_GetLastVendorSpecificError", h, code, text);
    }
    static NXTCanError ConvertBaudrateToBitTimingParameters(std::uint32_t clock, std::uint32_t baudrate,
                                                            NXSCanBitTimingParameters* timing)
    {
        // A timing that names the rate, so that tests can tell which went where.
        *timing = {1, baudrate ? clock / baudrate : 0, 0, baudrate / 1000, 1};
        return Simple("NXCAN_ConvertBaudrateToBitTimingParameters", {clock, baudrate});
    }
    static NXTCanError ConvertBitTimingParametersToBaudrate(std::uint32_t clock, NXSCanBitTimingParameters*,
                                                            std::uint32_t* baudrate)
    {
        *baudrate = 500000;
        return Simple("NXCAN_ConvertBitTimingParametersToBaudrate", {clock});
    }
    static NXTCanError GetErrorText(NXTCanError error, char* text) { return ErrorText("NXCAN_GetErrorText", error, text); }
};

FakeCanLibrary& FakeCanLibrary::Instance()
{
    static FakeCanLibrary* fake = [] {
        // Each operation checked against the table's signature on the way.
#define NXTEST_DEFINE(name) Define("NXCAN_" #name, reinterpret_cast<void*>(static_cast<NXCANAPI_FUNC_PTR_##name>(Ops::name)));
        NXCAN_API_OPERATIONS(NXTEST_DEFINE)
#undef NXTEST_DEFINE
        return new FakeCanLibrary;
    }();
    return *fake;
}

ScopedFakeCanLibrary::ScopedFakeCanLibrary() : ScopedFakeLibrary(CanLibrary(), InitCanFunctionPointers)
{
    FakeLibrary::ResetLog();
    Fake().Reset();
}

NXSCanMessage MakeMessage(std::uint32_t id, bool extended, std::uint16_t dlc, std::uint64_t ticks, std::uint32_t flags)
{
    NXSCanMessage message;
    std::memset(&message, 0, sizeof message);
    message.tMessageType = NXCAN_MESSAGE_TYPE_DATA;
    message.ulCanIdentifier = id;
    message.tCanIdentifierType = extended ? NXCAN_IDENTIFIER_TYPE_XTD : NXCAN_IDENTIFIER_TYPE_STD;
    message.usDLC = dlc;
    message.ui64Timestamp = ticks;
    message.ulFlags = flags;
    for (int i = 0; i < 64; ++i) message.ucData[i] = static_cast<std::uint8_t>(0xA0 + i);
    return message;
}

}  // namespace nxtest
