#include "FakeCanLibrary.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace nxtest {

namespace {

std::uint32_t DefaultRecordSize(std::uint16_t dlc, bool)
{
    static const std::uint32_t kBytes[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
    std::uint32_t payload = dlc < 16 ? kBytes[dlc] : 64;
    std::uint32_t size = 56 + (payload + 7) / 8 * 8;
    return std::max<std::uint32_t>(size, sizeof(NXSCanReplayData));
}

}  // namespace

void FakeCanLibrary::Reset()
{
    std::lock_guard<std::mutex> lock(Mutex());
    m_channels.clear();
    m_vendorCode = 0;
    m_vendorText.clear();
    m_accessible = true;
    m_resolution = 80000000;
    m_hardwareTicks = 0;
    m_currentBaudrate = 500000;
    m_replayStatus = NXSCanReplayStatusInfo();
    m_recordSize = DefaultRecordSize;
    m_consume = [](std::uint32_t offered) { return offered; };
    m_receiveQueue.clear();
    m_transmitted.clear();
    m_streamed.clear();
    m_searchAddress.clear();
    m_registered.clear();
    m_arbitration = NXSCanBitTimingParameters();
    m_data = NXSCanBitTimingParameters();
    m_convertedBaudrates.clear();
    m_event = nullptr;
}

void FakeCanLibrary::AddChannel(const FakeChannel& channel)
{
    std::lock_guard<std::mutex> lock(Mutex());
    m_channels.push_back(channel);
}

void FakeCanLibrary::SetVendorError(std::int32_t code, const std::string& text)
{
    std::lock_guard<std::mutex> lock(Mutex());
    m_vendorCode = code;
    m_vendorText = text;
}

void FakeCanLibrary::SetAccessible(bool accessible)
{
    std::lock_guard<std::mutex> lock(Mutex());
    m_accessible = accessible;
}

void FakeCanLibrary::SetResolution(std::uint64_t ticksPerSecond)
{
    std::lock_guard<std::mutex> lock(Mutex());
    m_resolution = ticksPerSecond;
}

void FakeCanLibrary::SetHardwareTicks(std::uint64_t ticks)
{
    std::lock_guard<std::mutex> lock(Mutex());
    m_hardwareTicks = ticks;
}

void FakeCanLibrary::SetCurrentBaudrate(std::uint32_t baudrate)
{
    std::lock_guard<std::mutex> lock(Mutex());
    m_currentBaudrate = baudrate;
}

void FakeCanLibrary::SetReplayStatus(const NXSCanReplayStatusInfo& status)
{
    std::lock_guard<std::mutex> lock(Mutex());
    m_replayStatus = status;
}

void FakeCanLibrary::SetRecordSize(std::function<std::uint32_t(std::uint16_t, bool)> size)
{
    std::lock_guard<std::mutex> lock(Mutex());
    m_recordSize = std::move(size);
}

void FakeCanLibrary::SetConsumption(std::function<std::uint32_t(std::uint32_t)> consume)
{
    std::lock_guard<std::mutex> lock(Mutex());
    m_consume = std::move(consume);
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

EventHandle* FakeCanLibrary::Event() const
{
    std::lock_guard<std::mutex> lock(Mutex());
    return m_event;
}

std::vector<NXSCanMessage> FakeCanLibrary::Transmitted() const
{
    std::lock_guard<std::mutex> lock(Mutex());
    return m_transmitted;
}

std::vector<std::uint8_t> FakeCanLibrary::Streamed() const
{
    std::lock_guard<std::mutex> lock(Mutex());
    return m_streamed;
}

std::vector<StreamRecord> FakeCanLibrary::StreamRecords() const
{
    std::vector<std::uint8_t> bytes = Streamed();
    std::vector<StreamRecord> records;
    std::size_t at = 0;
    while (at + sizeof(NXSCanReplayData) <= bytes.size()) {
        StreamRecord record;
        std::memcpy(&record.head, bytes.data() + at, sizeof record.head);
        std::size_t size = record.head.tHeader.ulSize;
        if (size < sizeof record.head || at + size > bytes.size()) break;
        const std::size_t payloadAt = offsetof(NXSCanReplayData, ui64StartOfMsgData);
        record.payload.assign(bytes.begin() + at + payloadAt, bytes.begin() + at + size);
        records.push_back(record);
        at += size;
    }
    return records;
}

std::string FakeCanLibrary::RegisteredIdentifier() const
{
    std::lock_guard<std::mutex> lock(Mutex());
    return m_registered;
}

std::string FakeCanLibrary::LastSearchAddress() const
{
    std::lock_guard<std::mutex> lock(Mutex());
    return m_searchAddress;
}

NXSCanBitTimingParameters FakeCanLibrary::LastArbitrationTiming() const
{
    std::lock_guard<std::mutex> lock(Mutex());
    return m_arbitration;
}

NXSCanBitTimingParameters FakeCanLibrary::LastDataTiming() const
{
    std::lock_guard<std::mutex> lock(Mutex());
    return m_data;
}

std::vector<std::uint32_t> FakeCanLibrary::ConvertedBaudrates() const
{
    std::lock_guard<std::mutex> lock(Mutex());
    return m_convertedBaudrates;
}

// ---------------------------------------------------------------------------
// The operations

struct FakeCanLibrary::Ops {
    static FakeCanLibrary& F() { return Instance(); }

    static std::string Address(const NXSCanChannelsSearchAttribute* attribute)
    {
        F().m_searchAddress = attribute ? attribute->szSearchAttribute : "";
        return F().m_searchAddress;
    }

    static NXTCanError GetAvailableChannelsCount(std::uint32_t* count, std::uint32_t attributeCount,
                                                 NXSCanChannelsSearchAttribute* attributes)
    {
        std::lock_guard<std::mutex> lock(Mutex());
        NXTCanError code = Record("NXCAN_GetAvailableChannelsCount",
                                  {attributeCount, attributes ? U(attributes->tSearchAttributeType) : 0});
        *count = CountAt(F().m_channels, Address(attributes));
        return code;
    }
    static NXTCanError GetAvailableChannels(std::uint32_t* count, NXSCanChannelInfo* channels,
                                            std::uint32_t attributeCount, NXSCanChannelsSearchAttribute* attributes)
    {
        std::lock_guard<std::mutex> lock(Mutex());
        NXTCanError code = Record("NXCAN_GetAvailableChannels", {*count, attributeCount});
        if (code != 0) return code;
        *count = ListAt(F().m_channels, Address(attributes), *count, channels,
                        [](NXSCanChannelInfo& info, const FakeChannel& channel) {
                            CopyText(info.szVendorName, channel.vendor);
                            CopyText(info.szInterfaceName, channel.interfaceName);
                            CopyText(info.szInterfaceSerialNumber, channel.serial);
                            CopyText(info.szChannelIdentifier, channel.identifier);
                            info.ulChannelCapabilities = channel.capabilities;
                        });
        return 0;
    }
    static NXTCanError Register(const char* symbol, const char* identifier, NXTCanHandle* handle,
                                std::vector<std::uint64_t> extra)
    {
        std::lock_guard<std::mutex> lock(Mutex());
        NXTCanError code = Record(symbol, std::move(extra));
        F().m_registered = identifier;
        if (code == 0) *handle = F().m_nextHandle;
        return code;
    }
    static NXTCanError RegisterChannel(char*, char*, char*, char* identifier, NXTCanHandle* handle)
    {
        return Register("NXCAN_RegisterChannel", identifier, handle, {});
    }
    static NXTCanError RegisterReplayChannel(char*, char*, char*, char* identifier, NXTCanHandle* handle,
                                             bool highSpeed, std::uint64_t reserved)
    {
        return Register("NXCAN_RegisterReplayChannel", identifier, handle, {highSpeed, reserved});
    }
    static NXTCanError UnregisterChannel(NXTCanHandle h) { return Simple("NXCAN_UnregisterChannel", {U(h)}); }
    static NXTCanError IsChannelAccessible(NXTCanHandle h, bool* accessible)
    {
        std::lock_guard<std::mutex> lock(Mutex());
        *accessible = F().m_accessible;
        return Record("NXCAN_IsChannelAccessible", {U(h)});
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
        std::lock_guard<std::mutex> lock(Mutex());
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
    static NXTCanError SetAcceptance(NXTCanHandle h, std::uint32_t a, std::uint32_t b, std::uint32_t c,
                                     std::uint32_t d)
    {
        return Simple("NXCAN_SetAcceptance", {U(h), a, b, c, d});
    }
    static NXTCanError SetEventNotification(NXTCanHandle h, NXTEventHandle event, std::uint32_t count)
    {
        std::lock_guard<std::mutex> lock(Mutex());
        F().m_event = static_cast<EventHandle*>(event);
        return Record("NXCAN_SetEventNotification", {U(h), count});
    }
    static NXTCanError ActivateChannel(NXTCanHandle h) { return Simple("NXCAN_ActivateChannel", {U(h)}); }
    static NXTCanError DeactivateChannel(NXTCanHandle h) { return Simple("NXCAN_DeactivateChannel", {U(h)}); }
    static NXTCanError GetHardwareTimeResolution(NXTCanHandle h, std::uint64_t* ticksPerSecond)
    {
        std::lock_guard<std::mutex> lock(Mutex());
        *ticksPerSecond = F().m_resolution;
        return Record("NXCAN_GetHardwareTimeResolution", {U(h)});
    }
    static NXTCanError GetHardwareTime(NXTCanHandle h, std::uint64_t* ticks)
    {
        std::lock_guard<std::mutex> lock(Mutex());
        *ticks = F().m_hardwareTicks;
        return Record("NXCAN_GetHardwareTime", {U(h)});
    }
    static NXTCanError ReadReceiveQueue(NXTCanHandle h, std::uint32_t* count, NXSCanMessage* messages)
    {
        std::lock_guard<std::mutex> lock(Mutex());
        NXTCanError code = Record("NXCAN_ReadReceiveQueue", {U(h), *count});
        std::uint32_t n = 0;
        while (n < *count && !F().m_receiveQueue.empty()) {
            messages[n++] = F().m_receiveQueue.front();
            F().m_receiveQueue.pop_front();
        }
        *count = n;
        return code;
    }
    static NXTCanError FlushReceiveQueue(NXTCanHandle h) { return Simple("NXCAN_FlushReceiveQueue", {U(h)}); }
    static NXTCanError TransmitMessages(NXTCanHandle h, std::uint32_t count, NXSCanMessage* messages)
    {
        std::lock_guard<std::mutex> lock(Mutex());
        NXTCanError code = Record("NXCAN_TransmitMessages", {U(h), count});
        if (code == 0) F().m_transmitted.insert(F().m_transmitted.end(), messages, messages + count);
        return code;
    }
    static NXTCanError FlushTransmitQueue(NXTCanHandle h) { return Simple("NXCAN_FlushTransmitQueue", {U(h)}); }
    static NXTCanError SetReplayStartTime(NXTCanHandle h, std::uint64_t start, std::uint64_t offset,
                                          NXECanReplayStartOptions options, std::uint64_t reserved)
    {
        return Simple("NXCAN_SetReplayStartTime", {U(h), start, offset, U(options), reserved});
    }
    static NXTCanError SetReplayStopTime(NXTCanHandle h, std::uint64_t t)
    {
        return Simple("NXCAN_SetReplayStopTime", {U(h), t});
    }
    static NXTCanError ReplayStreamData(NXTCanHandle h, std::uint32_t* size, std::uint8_t* data)
    {
        std::lock_guard<std::mutex> lock(Mutex());
        NXTCanError code = Record("NXCAN_ReplayStreamData", {U(h), *size});
        if (code != 0) {
            *size = 0;
            return code;
        }
        std::uint32_t taken = std::min(*size, F().m_consume(*size));
        F().m_streamed.insert(F().m_streamed.end(), data, data + taken);
        *size = taken;
        return 0;
    }
    static NXTCanError ReplayInitHeader(NXSCanReplayData* record, bool endOfFile, std::uint16_t dlc,
                                        std::uint32_t* size)
    {
        std::lock_guard<std::mutex> lock(Mutex());
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
        std::lock_guard<std::mutex> lock(Mutex());
        *info = F().m_replayStatus;
        return Record("NXCAN_GetReplayStateInfo", {U(h)});
    }
    static NXTCanError GetLastVendorSpecificError(NXTCanHandle h, std::int32_t* code, char* text)
    {
        std::lock_guard<std::mutex> lock(Mutex());
        *code = F().m_vendorCode;
        std::snprintf(text, 2048, "%s", F().m_vendorText.c_str());
        return Record("NXCAN_GetLastVendorSpecificError", {U(h)});
    }
    static NXTCanError ConvertBaudrateToBitTimingParameters(std::uint32_t clock, std::uint32_t baudrate,
                                                            NXSCanBitTimingParameters* timing)
    {
        std::lock_guard<std::mutex> lock(Mutex());
        // A timing that names the rate, so that tests can tell which went where.
        *timing = {1, baudrate ? clock / baudrate : 0, 0, baudrate / 1000, 1};
        F().m_convertedBaudrates.push_back(baudrate);
        return Record("NXCAN_ConvertBaudrateToBitTimingParameters", {clock, baudrate});
    }
    static NXTCanError ConvertBitTimingParametersToBaudrate(std::uint32_t clock, NXSCanBitTimingParameters*,
                                                            std::uint32_t* baudrate)
    {
        std::lock_guard<std::mutex> lock(Mutex());
        *baudrate = F().m_currentBaudrate;
        return Record("NXCAN_ConvertBitTimingParametersToBaudrate", {clock});
    }
    static NXTCanError GetErrorText(NXTCanError error, char* text)
    {
        std::snprintf(text, 2048, "library text of %d", error);
        return Simple("NXCAN_GetErrorText", {U(error)});
    }
};

FakeCanLibrary& FakeCanLibrary::Instance()
{
    static FakeCanLibrary* fake = [] {
        // Each operation checked against the table's signature on the way.
#define NXTEST_DEFINE(name)                                 \
    {                                                       \
        NXCANAPI_FUNC_PTR_##name function = &Ops::name;     \
        Define("NXCAN_" #name, reinterpret_cast<void*>(function)); \
    }
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
