// The names of the 28 operations of the library, in the order in which a
// binding resolves them.
#pragma once

namespace nxsim {

constexpr const char* kOperationNames[] = {
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

static_assert(sizeof kOperationNames / sizeof kOperationNames[0] == 28, "the library has 28 operations");

}  // namespace nxsim
