// The 28 exported operations: argument checks, fault injection, and the
// hand-over to the simulator's objects.
#include <algorithm>
#include <cstring>
#include <new>

#include "NXBusApiCan.h"
#include "sim_frame.h"
#include "simulator.h"

using nxsim::Channel;
using nxsim::FaultAction;
using nxsim::Simulator;

namespace {

template <typename Body>
NXTCanError Global(const char* operation, const std::string& faultChannel, Body body)
{
    return nxsim::LibraryCall<Simulator>(operation, faultChannel, body);
}

template <typename... Rest>
NXTCanError WithChannel(const char* operation, NXTCanHandle handle, Rest... rest)
{
    return nxsim::ObjectCall<Simulator>(operation, handle, rest...);
}

template <typename Body>
NXTCanError WithReplay(const char* operation, NXTCanHandle handle, Body body)
{
    return nxsim::ReplayCall<Simulator>(operation, handle, NXCAN_ERR_NOT_REPLAY_CHANNEL, body);
}

}  // namespace

extern "C" {

NXCAN_API NXTCanError NXCAN_GetAvailableChannelsCount(uint32_t* count, uint32_t attributeCount,
                                                      NXSCanChannelsSearchAttribute* attributes)
{
    return Global("NXCAN_GetAvailableChannelsCount", {}, [&](Simulator& sim, const FaultAction&) {
        if (count == nullptr || (attributeCount > 0 && attributes == nullptr))
            return NXCAN_ERR_INVALID_ARGUMENT;
        NXTCanError rc = NXCAN_SUCCESS;
        const auto found = sim.Search(attributeCount, attributes, &rc);
        if (rc == NXCAN_SUCCESS)
            *count = static_cast<uint32_t>(found.size());
        return rc;
    });
}

NXCAN_API NXTCanError NXCAN_GetAvailableChannels(uint32_t* count, NXSCanChannelInfo* channels,
                                                 uint32_t attributeCount, NXSCanChannelsSearchAttribute* attributes)
{
    return Global("NXCAN_GetAvailableChannels", {}, [&](Simulator& sim, const FaultAction&) {
        if (count == nullptr || (*count > 0 && channels == nullptr) || (attributeCount > 0 && attributes == nullptr))
            return NXCAN_ERR_INVALID_ARGUMENT;
        NXTCanError rc = NXCAN_SUCCESS;
        const auto found = sim.Search(attributeCount, attributes, &rc);
        if (rc != NXCAN_SUCCESS)
            return rc;
        const uint32_t n = std::min(*count, static_cast<uint32_t>(found.size()));
        for (uint32_t i = 0; i < n; ++i) {
            NXSCanChannelInfo& info = channels[i];
            std::memset(&info, 0, sizeof info);
            std::strncpy(info.szVendorName, found[i]->vendor.c_str(), sizeof info.szVendorName - 1);
            std::strncpy(info.szInterfaceName, found[i]->interfaceName.c_str(), sizeof info.szInterfaceName - 1);
            std::strncpy(info.szInterfaceSerialNumber, found[i]->serial.c_str(),
                         sizeof info.szInterfaceSerialNumber - 1);
            std::strncpy(info.szChannelIdentifier, found[i]->id.c_str(), sizeof info.szChannelIdentifier - 1);
            info.ulChannelCapabilities = found[i]->capabilities;
        }
        *count = n;
        return NXCAN_SUCCESS;
    });
}

NXCAN_API NXTCanError NXCAN_RegisterChannel(char* vendor, char* interfaceName, char* serial,
                                            char* channelIdentifier, NXTCanHandle* handle)
{
    return Global("NXCAN_RegisterChannel", channelIdentifier ? channelIdentifier : "",
                  [&](Simulator& sim, const FaultAction&) {
                      return sim.Register(vendor, interfaceName, serial, channelIdentifier, handle, false, false);
                  });
}

NXCAN_API NXTCanError NXCAN_RegisterReplayChannel(char* vendor, char* interfaceName, char* serial,
                                                  char* channelIdentifier, NXTCanHandle* handle, bool highSpeed,
                                                  uint64_t)
{
    return Global("NXCAN_RegisterReplayChannel", channelIdentifier ? channelIdentifier : "",
                  [&](Simulator& sim, const FaultAction&) {
                      return sim.Register(vendor, interfaceName, serial, channelIdentifier, handle, true, highSpeed);
                  });
}

NXCAN_API NXTCanError NXCAN_UnregisterChannel(NXTCanHandle handle)
{
    return WithChannel("NXCAN_UnregisterChannel", handle,
                       [&](Simulator& sim, Channel&, const FaultAction&) { return sim.Unregister(handle); });
}

NXCAN_API NXTCanError NXCAN_IsChannelAccessible(NXTCanHandle handle, bool* accessible)
{
    return WithChannel("NXCAN_IsChannelAccessible", handle, [&](Simulator&, Channel&, const FaultAction&) {
        if (accessible == nullptr)
            return NXCAN_ERR_INVALID_ARGUMENT;
        *accessible = true;
        return NXCAN_SUCCESS;
    });
}

NXCAN_API NXTCanError NXCAN_InitChannel(NXTCanHandle handle, NXECanIdentifierType identifierType,
                                        uint32_t queueSize, bool canFd, bool* fdSupported)
{
    return WithChannel("NXCAN_InitChannel", handle, [&](Simulator&, Channel& ch, const FaultAction&) {
        return ch.Init(identifierType, queueSize, canFd, fdSupported);
    });
}

NXCAN_API NXTCanError NXCAN_SetBaudrate(NXTCanHandle handle, uint32_t clockFrequency,
                                        NXSCanBitTimingParameters* arbitration, NXSCanBitTimingParameters* data)
{
    return WithChannel("NXCAN_SetBaudrate", handle, [&](Simulator& sim, Channel& ch, const FaultAction&) {
        const NXTCanError rc = ch.SetBaudrate(clockFrequency, arbitration, data);
        if (rc == NXCAN_ERR_BITRATE_MISMATCH) {
            const nxsim::BusConfig& bus = ch.GetBus().Config();
            sim.SetDetail(rc, ch.Config().id + " on bus " + bus.name + " (" + std::to_string(bus.bitrate) + "/" +
                                  std::to_string(bus.dataBitrate) + " bit/s)");
        }
        return rc;
    });
}

NXCAN_API NXTCanError NXCAN_GetBaudrate(NXTCanHandle handle, uint32_t* clockFrequency,
                                        NXSCanBitTimingParameters* arbitration, bool* canFd,
                                        NXSCanBitTimingParameters* data)
{
    return WithChannel("NXCAN_GetBaudrate", handle, [&](Simulator&, Channel& ch, const FaultAction&) {
        return ch.GetBaudrate(clockFrequency, arbitration, canFd, data);
    });
}

NXCAN_API NXTCanError NXCAN_SetAcceptance(NXTCanHandle handle, uint32_t stdCode, uint32_t stdMask, uint32_t xtdCode,
                                          uint32_t xtdMask)
{
    return WithChannel("NXCAN_SetAcceptance", handle, [&](Simulator&, Channel& ch, const FaultAction&) {
        return ch.SetAcceptance(stdCode, stdMask, xtdCode, xtdMask);
    });
}

NXCAN_API NXTCanError NXCAN_SetEventNotification(NXTCanHandle handle, NXTEventHandle event, uint32_t count)
{
    return WithChannel("NXCAN_SetEventNotification", handle, [&](Simulator&, Channel& ch, const FaultAction&) {
        return ch.SetEventNotification(event, count);
    });
}

NXCAN_API NXTCanError NXCAN_ActivateChannel(NXTCanHandle handle)
{
    return WithChannel("NXCAN_ActivateChannel", handle,
                       [&](Simulator&, Channel& ch, const FaultAction&) { return ch.Activate(); });
}

NXCAN_API NXTCanError NXCAN_DeactivateChannel(NXTCanHandle handle)
{
    return WithChannel("NXCAN_DeactivateChannel", handle,
                       [&](Simulator&, Channel& ch, const FaultAction&) { return ch.Deactivate(); });
}

NXCAN_API NXTCanError NXCAN_GetHardwareTimeResolution(NXTCanHandle handle, uint64_t* ticksPerSecond)
{
    return WithChannel("NXCAN_GetHardwareTimeResolution", handle, [&](Simulator& sim, Channel&, const FaultAction&) {
        if (ticksPerSecond == nullptr)
            return NXCAN_ERR_INVALID_ARGUMENT;
        *ticksPerSecond = sim.Clock().Resolution();
        return NXCAN_SUCCESS;
    });
}

NXCAN_API NXTCanError NXCAN_GetHardwareTime(NXTCanHandle handle, uint64_t* ticks)
{
    return WithChannel("NXCAN_GetHardwareTime", handle, [&](Simulator& sim, Channel&, const FaultAction&) {
        if (ticks == nullptr)
            return NXCAN_ERR_INVALID_ARGUMENT;
        *ticks = sim.Clock().NowTicks();
        return NXCAN_SUCCESS;
    });
}

NXCAN_API NXTCanError NXCAN_ReadReceiveQueue(NXTCanHandle handle, uint32_t* count, NXSCanMessage* messages)
{
    return WithChannel(
        "NXCAN_ReadReceiveQueue", handle,
        [&](Simulator&, Channel& ch, const FaultAction&) {
            if (count == nullptr || (*count > 0 && messages == nullptr))
                return NXCAN_ERR_INVALID_ARGUMENT;
            return ch.Read(count, messages);
        },
        [&] {
            if (count != nullptr)
                *count = 0;
        });
}

NXCAN_API NXTCanError NXCAN_FlushReceiveQueue(NXTCanHandle handle)
{
    return WithChannel("NXCAN_FlushReceiveQueue", handle,
                       [&](Simulator&, Channel& ch, const FaultAction&) { return ch.FlushReceive(); });
}

NXCAN_API NXTCanError NXCAN_TransmitMessages(NXTCanHandle handle, uint32_t count, NXSCanMessage* messages)
{
    return WithChannel("NXCAN_TransmitMessages", handle, [&](Simulator&, Channel& ch, const FaultAction&) {
        if (count == 0)
            return NXCAN_SUCCESS;
        if (messages == nullptr)
            return NXCAN_ERR_INVALID_ARGUMENT;
        return ch.Transmit(count, messages);
    });
}

NXCAN_API NXTCanError NXCAN_FlushTransmitQueue(NXTCanHandle handle)
{
    return WithChannel("NXCAN_FlushTransmitQueue", handle,
                       [&](Simulator&, Channel& ch, const FaultAction&) { return ch.FlushTransmit(); });
}

NXCAN_API NXTCanError NXCAN_SetReplayStartTime(NXTCanHandle handle, uint64_t startTime, uint64_t offset,
                                               NXECanReplayStartOptions option, uint64_t)
{
    return WithReplay("NXCAN_SetReplayStartTime", handle, [&](nxsim::ReplayEngine& replay, const FaultAction&) {
        return Simulator::Instance().Code(replay.SetStartTime(startTime, offset, option));
    });
}

NXCAN_API NXTCanError NXCAN_SetReplayStopTime(NXTCanHandle handle, uint64_t stopTime)
{
    return WithReplay("NXCAN_SetReplayStopTime", handle, [&](nxsim::ReplayEngine& replay, const FaultAction&) {
        replay.SetStopTime(stopTime);
        return NXCAN_SUCCESS;
    });
}

NXCAN_API NXTCanError NXCAN_ReplayStreamData(NXTCanHandle handle, uint32_t* size, uint8_t* data)
{
    if (size == nullptr)
        return NXCAN_ERR_INVALID_ARGUMENT;
    const uint32_t offered = *size;
    *size = 0;
    return WithReplay("NXCAN_ReplayStreamData", handle, [&](nxsim::ReplayEngine& replay, const FaultAction& fault) {
        if (offered > 0 && data == nullptr)
            return NXCAN_ERR_INVALID_ARGUMENT;
        *size = offered;
        return Simulator::Instance().Code(replay.Stream(size, data, fault.consumeRecords));
    });
}

NXCAN_API NXTCanError NXCAN_ReplayInitHeader(NXSCanReplayData* record, bool endOfFile, uint16_t dlc, uint32_t* size)
{
    return Global("NXCAN_ReplayInitHeader", {}, [&](Simulator&, const FaultAction&) {
        const uint32_t bytes = nxsim::ReplayRecordSize(dlc);
        if (record == nullptr || size == nullptr || bytes == 0)
            return NXCAN_ERR_INVALID_ARGUMENT;
        // Only the head is written: the caller checks the size before it
        // makes room for the payload.
        std::memset(record, 0, sizeof *record);
        record->tHeader.reserved1 = NXCAN_REPLAY_RECORD_MARK | (endOfFile ? NXCAN_REPLAY_RECORD_END_OF_STREAM : 0u);
        record->tHeader.ulSize = bytes;
        record->tMsgHeader.tMessageType = NXCAN_MESSAGE_TYPE_DATA;
        record->tMsgHeader.tMsgFormat = NXCAN_IDENTIFIER_TYPE_STD;
        record->tMsgHeader.usDLC = dlc;
        *size = bytes;
        return NXCAN_SUCCESS;
    });
}

NXCAN_API NXTCanError NXCAN_GetReplayStateInfo(NXTCanHandle handle, NXSCanReplayStatusInfo* info)
{
    return WithReplay("NXCAN_GetReplayStateInfo", handle, [&](nxsim::ReplayEngine& replay, const FaultAction&) {
        if (info == nullptr)
            return NXCAN_ERR_INVALID_ARGUMENT;
        nxsim::FillReplayStatus(replay.Status(), NXCAN_REPLAY_INFO_VALID_ALL, info);
        return NXCAN_SUCCESS;
    });
}

NXCAN_API NXTCanError NXCAN_GetLastVendorSpecificError(NXTCanHandle handle, int32_t* code, char* text)
{
    Simulator& sim = Simulator::Instance();
    return nxsim::VendorErrorCall(sim, sim.Handles(), "NXCAN_GetLastVendorSpecificError", handle, code, text,
                                  NXCAN_TEXT_BUFFER_SIZE);
}

NXCAN_API NXTCanError NXCAN_ConvertBaudrateToBitTimingParameters(uint32_t clockFrequency, uint32_t baudrate,
                                                                 NXSCanBitTimingParameters* timing)
{
    return Global("NXCAN_ConvertBaudrateToBitTimingParameters", {}, [&](Simulator&, const FaultAction&) {
        return nxsim::BaudrateToTiming(clockFrequency, baudrate, timing);
    });
}

NXCAN_API NXTCanError NXCAN_ConvertBitTimingParametersToBaudrate(uint32_t clockFrequency,
                                                                 NXSCanBitTimingParameters* timing,
                                                                 uint32_t* baudrate)
{
    return Global("NXCAN_ConvertBitTimingParametersToBaudrate", {}, [&](Simulator&, const FaultAction&) {
        if (timing == nullptr)
            return NXCAN_ERR_INVALID_ARGUMENT;
        return nxsim::TimingToBaudrate(clockFrequency, *timing, baudrate);
    });
}

NXCAN_API NXTCanError NXCAN_GetErrorText(NXTCanError error, char* text)
{
    return nxsim::ErrorTextCall(Simulator::Instance(), "NXCAN_GetErrorText", error, text, NXCAN_TEXT_BUFFER_SIZE);
}

}  // extern "C"
