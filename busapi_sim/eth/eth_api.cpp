// The 24 exported operations: argument checks, fault injection, and the
// hand-over to the library's objects.
#include <algorithm>
#include <cstring>

#include "NXBusApiEthernet.h"
#include "eth_simulator.h"

using nxsim::EthInterface;
using nxsim::EthSimulator;
using nxsim::FaultAction;

namespace {

template <typename Body>
NXTEthError Global(const char* operation, const std::string& faultKey, Body body)
{
    return nxsim::LibraryCall<EthSimulator>(operation, faultKey, body);
}

template <typename... Rest>
NXTEthError WithInterface(const char* operation, NXTEthHandle handle, Rest... rest)
{
    return nxsim::ObjectCall<EthSimulator>(operation, handle, rest...);
}

template <typename Body>
NXTEthError WithReplay(const char* operation, NXTEthHandle handle, Body body)
{
    return nxsim::ReplayCall<EthSimulator>(operation, handle, NXETH_ERR_NOT_REPLAY_INTERFACE, body);
}

// A call whose failure has a detail to tell.
NXTEthError Told(EthSimulator& sim, NXTEthError rc, const std::string& detail)
{
    if (rc != NXETH_SUCCESS && !detail.empty())
        sim.SetDetail(rc, detail);
    return rc;
}

void Fill(NXSEthInterfaceInfo& info, const nxsim::EthInterfaceConfig& config)
{
    std::memset(&info, 0, sizeof info);
    std::strncpy(info.szAccessProviderName, config.vendor.c_str(), sizeof info.szAccessProviderName - 1);
    std::strncpy(info.szInterfaceName, config.interfaceName.c_str(), sizeof info.szInterfaceName - 1);
    std::strncpy(info.szInterfaceSerialNumber, config.serial.c_str(), sizeof info.szInterfaceSerialNumber - 1);
    std::strncpy(info.szInterfaceIdentifier, config.id.c_str(), sizeof info.szInterfaceIdentifier - 1);
    info.ulInterfaceCapabilities = config.capabilities;
    nxsim::DeviceInfo device;
    std::string ignored;
    if (config.hasMac)
        std::memcpy(info.ucInterfaceMacAddress, config.mac, 6);
    else if (nxsim::QueryDevice(config.device, &device, &ignored))
        std::memcpy(info.ucInterfaceMacAddress, device.mac, 6);
}

}  // namespace

extern "C" {

NXETH_API NXTEthError NXETH_GetAvailableInterfacesCount(uint32_t* count, uint32_t attributeCount,
                                                        NXSEthInterfacesSearchAttribute* attributes)
{
    return Global("NXETH_GetAvailableInterfacesCount", {}, [&](EthSimulator& sim, const FaultAction&) {
        if (count == nullptr || (attributeCount > 0 && attributes == nullptr))
            return NXETH_ERR_INVALID_ARGUMENT;
        NXTEthError rc = NXETH_SUCCESS;
        const auto found = sim.Search(attributeCount, attributes, &rc);
        if (rc == NXETH_SUCCESS)
            *count = static_cast<uint32_t>(found.size());
        return rc;
    });
}

NXETH_API NXTEthError NXETH_GetAvailableInterfaces(uint32_t* count, NXSEthInterfaceInfo* interfaces,
                                                   uint32_t attributeCount, NXSEthInterfacesSearchAttribute* attributes)
{
    return Global("NXETH_GetAvailableInterfaces", {}, [&](EthSimulator& sim, const FaultAction&) {
        if (count == nullptr || (*count > 0 && interfaces == nullptr) || (attributeCount > 0 && attributes == nullptr))
            return NXETH_ERR_INVALID_ARGUMENT;
        NXTEthError rc = NXETH_SUCCESS;
        const auto found = sim.Search(attributeCount, attributes, &rc);
        if (rc != NXETH_SUCCESS)
            return rc;
        const uint32_t n = std::min(*count, static_cast<uint32_t>(found.size()));
        for (uint32_t i = 0; i < n; ++i)
            Fill(interfaces[i], *found[i]);
        *count = n;
        return NXETH_SUCCESS;
    });
}

NXETH_API NXTEthError NXETH_RegisterInterface(char* accessProvider, char* interfaceName, char* serial,
                                              char* interfaceIdentifier, NXTEthHandle* handle)
{
    return Global("NXETH_RegisterInterface", interfaceIdentifier ? interfaceIdentifier : "",
                  [&](EthSimulator& sim, const FaultAction&) {
                      return sim.Register(accessProvider, interfaceName, serial, interfaceIdentifier, handle, false,
                                          false);
                  });
}

NXETH_API NXTEthError NXETH_RegisterReplayInterface(char* accessProvider, char* interfaceName, char* serial,
                                                    char* interfaceIdentifier, NXTEthHandle* handle, bool highSpeed,
                                                    uint64_t)
{
    return Global("NXETH_RegisterReplayInterface", interfaceIdentifier ? interfaceIdentifier : "",
                  [&](EthSimulator& sim, const FaultAction&) {
                      return sim.Register(accessProvider, interfaceName, serial, interfaceIdentifier, handle, true,
                                          highSpeed);
                  });
}

NXETH_API NXTEthError NXETH_UnregisterInterface(NXTEthHandle handle)
{
    return WithInterface("NXETH_UnregisterInterface", handle,
                         [&](EthSimulator& sim, EthInterface&, const FaultAction&) { return sim.Unregister(handle); });
}

NXETH_API NXTEthError NXETH_GetInterfaceBufferSize(NXTEthHandle handle, uint32_t* size)
{
    return WithInterface("NXETH_GetInterfaceBufferSize", handle,
                         [&](EthSimulator& sim, EthInterface& in, const FaultAction&) {
                             if (size == nullptr)
                                 return NXETH_ERR_INVALID_ARGUMENT;
                             std::string detail;
                             return Told(sim, in.BufferSize(size, &detail), detail);
                         });
}

NXETH_API NXTEthError NXETH_IsInterfaceAccessible(NXTEthHandle handle, bool* accessible)
{
    return WithInterface("NXETH_IsInterfaceAccessible", handle,
                         [&](EthSimulator&, EthInterface& in, const FaultAction&) {
                             if (accessible == nullptr)
                                 return NXETH_ERR_INVALID_ARGUMENT;
                             *accessible = in.Accessible();
                             return NXETH_SUCCESS;
                         });
}

NXETH_API NXTEthError NXETH_InitInterface(NXTEthHandle handle)
{
    return WithInterface("NXETH_InitInterface", handle, [&](EthSimulator& sim, EthInterface& in, const FaultAction&) {
        std::string detail;
        return Told(sim, in.Init(&detail), detail);
    });
}

NXETH_API NXTEthError NXETH_ActivateInterface(NXTEthHandle handle)
{
    return WithInterface("NXETH_ActivateInterface", handle,
                         [&](EthSimulator& sim, EthInterface& in, const FaultAction&) {
                             std::string detail;
                             return Told(sim, in.Activate(&detail), detail);
                         });
}

NXETH_API NXTEthError NXETH_DeactivateInterface(NXTEthHandle handle)
{
    return WithInterface("NXETH_DeactivateInterface", handle,
                         [&](EthSimulator&, EthInterface& in, const FaultAction&) { return in.Deactivate(); });
}

NXETH_API NXTEthError NXETH_GetTimeResolution(NXTEthHandle handle, uint64_t* ticksPerSecond,
                                              uint64_t* controllerTicksPerSecond)
{
    return WithInterface("NXETH_GetTimeResolution", handle, [&](EthSimulator& sim, EthInterface&, const FaultAction&) {
        if (ticksPerSecond == nullptr)
            return NXETH_ERR_INVALID_ARGUMENT;
        *ticksPerSecond = sim.Clock().Resolution();
        if (controllerTicksPerSecond != nullptr)
            *controllerTicksPerSecond = *ticksPerSecond;
        return NXETH_SUCCESS;
    });
}

NXETH_API NXTEthError NXETH_GetTime(NXTEthHandle handle, uint64_t* ticks, uint64_t* controllerTicks)
{
    return WithInterface("NXETH_GetTime", handle, [&](EthSimulator& sim, EthInterface&, const FaultAction&) {
        if (ticks == nullptr)
            return NXETH_ERR_INVALID_ARGUMENT;
        *ticks = sim.Clock().NowTicks();
        if (controllerTicks != nullptr)
            *controllerTicks = *ticks;
        return NXETH_SUCCESS;
    });
}

NXETH_API NXTEthError NXETH_ReadFrames(NXTEthHandle handle, uint32_t bufferSize, uint8_t* buffer,
                                       uint32_t* frameCount)
{
    return WithInterface(
        "NXETH_ReadFrames", handle,
        [&](EthSimulator&, EthInterface& in, const FaultAction&) {
            if (frameCount == nullptr || (bufferSize > 0 && buffer == nullptr))
                return NXETH_ERR_INVALID_ARGUMENT;
            return in.Read(bufferSize, buffer, frameCount);
        },
        [&] {
            if (frameCount != nullptr)
                *frameCount = 0;
        });
}

NXETH_API NXTEthError NXETH_FlushReceiveQueue(NXTEthHandle handle)
{
    return WithInterface("NXETH_FlushReceiveQueue", handle,
                         [&](EthSimulator&, EthInterface& in, const FaultAction&) { return in.FlushReceive(); });
}

NXETH_API NXTEthError NXETH_TransmitFrames(NXTEthHandle handle, uint32_t size, uint8_t* frames, uint32_t* framesSent)
{
    uint32_t ignored = 0;
    uint32_t* sent = framesSent != nullptr ? framesSent : &ignored;
    *sent = 0;
    return WithInterface("NXETH_TransmitFrames", handle,
                         [&](EthSimulator& sim, EthInterface& in, const FaultAction&) {
                             if (size == 0)
                                 return NXETH_SUCCESS;
                             if (frames == nullptr)
                                 return NXETH_ERR_INVALID_ARGUMENT;
                             std::string detail;
                             return Told(sim, in.Transmit(size, frames, sent, &detail), detail);
                         });
}

NXETH_API NXTEthError NXETH_FlushTransmitQueue(NXTEthHandle handle)
{
    return WithInterface("NXETH_FlushTransmitQueue", handle,
                         [&](EthSimulator&, EthInterface& in, const FaultAction&) { return in.FlushTransmit(); });
}

NXETH_API NXTEthError NXETH_SetFilter(NXTEthHandle handle, char* filter)
{
    return WithInterface("NXETH_SetFilter", handle, [&](EthSimulator& sim, EthInterface& in, const FaultAction&) {
        std::string detail;
        return Told(sim, in.SetFilter(filter, &detail), detail);
    });
}

NXETH_API NXTEthError NXETH_SetReplayStartTime(NXTEthHandle handle, uint64_t startTime, uint64_t offset,
                                               NXEEthReplayStartOptions option, uint64_t)
{
    return WithReplay("NXETH_SetReplayStartTime", handle, [&](nxsim::ReplayEngine& replay, const FaultAction&) {
        return EthSimulator::Instance().Code(replay.SetStartTime(startTime, offset, option));
    });
}

NXETH_API NXTEthError NXETH_SetReplayStopTime(NXTEthHandle handle, uint64_t stopTime)
{
    return WithReplay("NXETH_SetReplayStopTime", handle, [&](nxsim::ReplayEngine& replay, const FaultAction&) {
        replay.SetStopTime(stopTime);
        return NXETH_SUCCESS;
    });
}

NXETH_API NXTEthError NXETH_ReplayStreamData(NXTEthHandle handle, uint32_t* size, uint8_t* data)
{
    if (size == nullptr)
        return NXETH_ERR_INVALID_ARGUMENT;
    const uint32_t offered = *size;
    *size = 0;
    return WithReplay("NXETH_ReplayStreamData", handle, [&](nxsim::ReplayEngine& replay, const FaultAction& fault) {
        if (offered > 0 && data == nullptr)
            return NXETH_ERR_INVALID_ARGUMENT;
        *size = offered;
        return EthSimulator::Instance().Code(replay.Stream(size, data, fault.consumeRecords));
    });
}

NXETH_API NXTEthError NXETH_ReplayInitHeader(NXSEthReplayData* record, bool endOfFile, uint16_t frameLength,
                                             uint32_t* size)
{
    return Global("NXETH_ReplayInitHeader", {}, [&](EthSimulator&, const FaultAction&) {
        if (record == nullptr || size == nullptr)
            return NXETH_ERR_INVALID_ARGUMENT;
        // Only the head is written: the caller makes room for the frame.
        std::memset(record, 0, sizeof *record);
        record->tHeader.reserved1 = NXETH_REPLAY_RECORD_MARK | (endOfFile ? NXETH_REPLAY_RECORD_END_OF_STREAM : 0u);
        record->tHeader.ulSize =
            static_cast<uint32_t>(sizeof(NXSEthReplayData) + ((std::max<uint32_t>(frameLength, 8) - 8 + 7) & ~7u));
        record->tMsgHeader.tFrameType = NXETH_FRAME_TYPE_ETHERNET_FRAME_WITHOUT_FCS;
        record->tMsgHeader.ulRawDataLength = frameLength;
        *size = record->tHeader.ulSize;
        return NXETH_SUCCESS;
    });
}

NXETH_API NXTEthError NXETH_GetReplayStateInfo(NXTEthHandle handle, NXSEthReplayStatusInfo* info)
{
    return WithReplay("NXETH_GetReplayStateInfo", handle, [&](nxsim::ReplayEngine& replay, const FaultAction&) {
        if (info == nullptr)
            return NXETH_ERR_INVALID_ARGUMENT;
        nxsim::FillReplayStatus(replay.Status(), NXETH_REPLAY_INFO_VALID_ALL, info);
        return NXETH_SUCCESS;
    });
}

NXETH_API NXTEthError NXETH_GetLastAccessProviderSpecificError(NXTEthHandle handle, int32_t* code, char* text)
{
    EthSimulator& sim = EthSimulator::Instance();
    return nxsim::VendorErrorCall(sim, sim.Handles(), "NXETH_GetLastAccessProviderSpecificError", handle, code, text,
                                  NXETH_TEXT_BUFFER_SIZE);
}

NXETH_API NXTEthError NXETH_GetErrorText(NXTEthError error, char* text)
{
    return nxsim::ErrorTextCall(EthSimulator::Instance(), "NXETH_GetErrorText", error, text, NXETH_TEXT_BUFFER_SIZE);
}

}  // extern "C"
