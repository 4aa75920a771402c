// The names of the operations of both libraries, in the order in which a
// binding resolves them: what fault sections of the configuration name.
#pragma once

namespace nxsim {

constexpr const char* kCanOperationNames[] = {
    "NXCAN_GetAvailableChannelsCount", "NXCAN_GetAvailableChannels", "NXCAN_RegisterChannel",
    "NXCAN_UnregisterChannel", "NXCAN_IsChannelAccessible", "NXCAN_InitChannel", "NXCAN_SetBaudrate",
    "NXCAN_GetBaudrate", "NXCAN_SetAcceptance", "NXCAN_SetEventNotification", "NXCAN_ActivateChannel",
    "NXCAN_DeactivateChannel", "NXCAN_GetHardwareTimeResolution", "NXCAN_GetHardwareTime",
    "NXCAN_ReadReceiveQueue", "NXCAN_FlushReceiveQueue", "NXCAN_TransmitMessages",
    "NXCAN_FlushTransmitQueue", "NXCAN_RegisterReplayChannel", "NXCAN_SetReplayStartTime",
    "NXCAN_SetReplayStopTime", "NXCAN_ReplayStreamData", "NXCAN_ReplayInitHeader",
    "NXCAN_GetReplayStateInfo", "NXCAN_GetLastVendorSpecificError",
    "NXCAN_ConvertBaudrateToBitTimingParameters", "NXCAN_ConvertBitTimingParametersToBaudrate",
    "NXCAN_GetErrorText"};

constexpr const char* kEthOperationNames[] = {
    "NXETH_GetAvailableInterfacesCount", "NXETH_GetAvailableInterfaces", "NXETH_RegisterInterface",
    "NXETH_UnregisterInterface", "NXETH_GetInterfaceBufferSize", "NXETH_IsInterfaceAccessible",
    "NXETH_InitInterface", "NXETH_ActivateInterface", "NXETH_DeactivateInterface", "NXETH_GetTimeResolution",
    "NXETH_GetTime", "NXETH_ReadFrames", "NXETH_FlushReceiveQueue", "NXETH_TransmitFrames",
    "NXETH_FlushTransmitQueue", "NXETH_GetErrorText", "NXETH_GetLastAccessProviderSpecificError",
    "NXETH_SetFilter", "NXETH_SetReplayStartTime", "NXETH_SetReplayStopTime", "NXETH_ReplayStreamData",
    "NXETH_ReplayInitHeader", "NXETH_GetReplayStateInfo", "NXETH_RegisterReplayInterface"};

static_assert(sizeof kCanOperationNames / sizeof kCanOperationNames[0] == 28, "the CAN library has 28 operations");
static_assert(sizeof kEthOperationNames / sizeof kEthOperationNames[0] == 24,
              "the Ethernet library has 24 operations");

}  // namespace nxsim
