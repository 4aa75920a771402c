// One CAN channel of the bus access library, from discovery to release.
//
// Construction finds the channels at an address; Initialize claims the one
// that the settings name and brings it onto the bus; destruction takes it off
// and releases it. In between the wrapper moves frames: batched reads into a
// fixed buffer, direct transmission, and the replay stream, which stages
// time-stamped records in a 64 KiB buffer and pushes them to the library as
// fast as it takes them.
//
// Lifecycle operations return NxBusError; discovery, reading and direct
// transmission throw std::runtime_error. The object holds a 3.5 MB receive
// buffer and is always made on the heap.
#ifndef NX_CAN_API_WRAPPER_H
#define NX_CAN_API_WRAPPER_H

#include <atomic>
#include <cstdint>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "NxBusError.h"
#include "NxBusReplayStateInfo.h"
#include "NxCanApi.h"
#include "NxCanApiWrapperSettings.h"
#include "veld_can_frames.h"
#include "veld_string.h"

class NxCanApiWrapper {
public:
    static const std::uint32_t kReceiveBatch = 32768;       // messages per read
    static const std::uint32_t kTxBufferSize = 0x10000;     // bytes of the staging buffer
    static const std::uint32_t kRecordHead = sizeof(NXSCanReplayData);

    explicit NxCanApiWrapper(const NxCanApiWrapperSettings& settings);
    NxCanApiWrapper(const NxCanApiWrapper&) = delete;
    NxCanApiWrapper& operator=(const NxCanApiWrapper&) = delete;
    ~NxCanApiWrapper();

    // --- discovery, no wrapper needed ------------------------------------------------
    // 0 while the table is not bound.
    static std::uint32_t RetrieveChannelCount(const char* ip);
    // Empty when the library is not usable or the listing fails. With
    // norvexHardwareOnly, channels of other vendors and virtual ones go.
    static std::vector<NXSCanChannelInfo> RetrieveAvailableChannelsVector(const char* ip, bool norvexHardwareOnly);
    static VELDString GetChannelId(const NXSCanChannelInfo& info);
    // For people only: empty unless `identifier` names this very channel.
    static VELDString GetChannelDescription(const NXSCanChannelInfo& info, VELDString identifier);
    static bool IsHighSpeedChannel(const NXSCanChannelInfo& info);

    // --- errors -------------------------------------------------------------------------
    // Display text of an error; empty for success and for the vendor code
    // that only means the receive queue had to be flushed. Never throws.
    std::string GetErrorMessage(const NxBusError& error) const;
    // The throwing form: returns for success and for the flush code, throws
    // std::runtime_error with the text otherwise. Pass handle -1 where there
    // is no channel yet.
    static void RetrieveErrMessage(const std::string& functionName, NXTCanError error, NXTCanHandle handle);
    static std::string StringFormat(std::string format, ...);

    // --- lifecycle -------------------------------------------------------------------------
    // Registers, initialises, configures and activates the channel. Only the
    // code 1 leaves the wrapper uninitialised; after any other result the
    // caller checks errorCode and the destructor cleans up.
    NxBusError Initialize(bool* highSpeedSupported);
    bool GetIsInitialized() const { return m_isInitialized; }
    std::uint32_t GetCanChannelCount() const { return m_canChannelCount; }
    const NXSCanChannelInfo* GetCanChannelInfo() const { return m_canChannelInfo.get(); }
    NXSCanMessage* GetCanChannelMsgBuffer() { return m_canMsgBuffer; }
    NXTCanHandle GetCanChannelHandle() const { return m_canChannelHandle; }
    // The bit rate found on the channel before this wrapper set its own.
    std::uint32_t GetInitialBaudRate() const { return m_initialBaudRate; }

    NxBusError GetBaudRate(std::uint32_t* baudRate);
    NxBusError SetBaudRate();
    NxBusError SetAcceptance(std::uint32_t stdCode, std::uint32_t stdMask, std::uint32_t xtdCode,
                             std::uint32_t xtdMask);

    // --- time ---------------------------------------------------------------------------------
    // Ticks per microsecond, shared by every CAN wrapper of the process and
    // set by the latest Initialize. Time towards the library is multiplied by
    // it, time from the library divided by it.
    static std::uint64_t GetTimeConvCoefficient() { return m_timeConvCoefficient.load(std::memory_order_relaxed); }
    NxBusError GetHardwareTime(std::uint64_t* microseconds);
    NxBusError GetHardwareTimeResolution(std::uint64_t* ticksPerSecond);
    NxBusError GetReplayStateInfo(NxBusReplayStateInfo* info);
    NxBusError SetLogStartTime(std::int64_t t);
    NxBusError SetReplayStartTime(std::uint64_t replayStart, std::uint64_t logStart);
    NxBusError SetReplayStopTime(std::uint64_t t);
    void SetReplayEofTime(std::uint64_t t) { m_replayEofTime = t; }
    std::uint64_t GetReplayEofTime() const { return m_replayEofTime; }
    std::uint64_t GetLogStartTime() const { return m_logStartTime; }

    // --- reception ------------------------------------------------------------------------------
    // Reads up to 32768 messages into the message buffer; returns how many.
    std::uint32_t ReadReceiveQueue();
    // Waits on the reception event; true when woken before the timeout. The
    // pointer is not used.
    bool WaitForReceiveEvent(std::uint32_t timeoutMicroseconds, void* unused);

    // --- transmission ---------------------------------------------------------------------------
    // Direct path: queues the messages at once, with timestamp 0.
    NxBusError TransmitMessages(NXSCanMessage* messages, std::uint32_t count);
    // Replay path: stage one frame, then push what is staged.
    NxBusError CopyFrame2(const VELDCANFrame& frame);
    NxBusError CopyFrame2(const VELDCANFDFrame& frame);
    NxBusError CopyFrame2(const VELDCANUniFrame& frame);
    // With endOfFile, the closing record of the stream is appended first.
    NxBusError TransmitMessagesPushing(bool endOfFile);
    // False while a push left data in the staging buffer.
    bool IsTransmitFramesAllowed() const { return m_txFramesAllowed; }
    // Bytes staged and not yet taken by the library.
    std::uint32_t GetTxBufferSize();

    // --- conversions ------------------------------------------------------------------------------
    // Message to frame; returns the frame's time, offset + hardware time.
    static VELDTimestamp CopyFrameMon(VELDCANFrame& frame, const NXSCanMessage& message, VELDTimestamp offset);
    static VELDTimestamp CopyFrameMon(VELDCANFDFrame& frame, const NXSCanMessage& message, VELDTimestamp offset);
    static VELDTimestamp CopyFrameMon(VELDCANUniFrame& frame, const NXSCanMessage& message, VELDTimestamp offset);
    // Frame to message, for the direct path.
    static void CopyFrame(NXSCanMessage& message, const VELDCANFrame& frame);
    static void CopyFrame(NXSCanMessage& message, const VELDCANFDFrame& frame);
    static void CopyFrame(NXSCanMessage& message, const VELDCANUniFrame& frame);
    // The CAN FD DLC table. Outside it: a report, and -1 or 0xFFFF.
    static VELDInt8 FrameDlcToDataLength(std::uint16_t dlc);
    static std::uint16_t DataLengthToFrameDlc(VELDInt8 length);

private:
    NxBusError RegInitActivate(bool* highSpeedSupported);
    NxBusError RegisterCanChannel(bool* highSpeedSupported);
    NxBusError InitializeInterface();
    NxBusError ConfigureReceiveMode();
    NxBusError ActivateChannel();
    NxBusError DeactivateChannel();
    NxBusError UnregisterCanInterface();
    std::unique_ptr<NXSCanChannelInfo[]> RetrieveAvailableChannelsPtr(std::uint32_t count, const char* ip);
    bool IsVirtualChannel() const;
    // Asks the library whether the channel can still be reached; false also
    // when the question itself fails.
    bool IsChannelAccessible() const;

    template <class Frame>
    NxBusError StageFrame(const Frame& frame);
    // Both with m_mutex held by the caller.
    NXSCanReplayData* InsertMessageHeader(bool endOfFile, std::uint16_t dlc, std::uint32_t* recordSize = nullptr);
    NxBusError Transmit();

    template <class Frame>
    static VELDTimestamp FillFromMessage(Frame& frame, const NXSCanMessage& message, VELDTimestamp offset);
    void WriteTraceLines(std::uint32_t count);
    static std::uint64_t TicksToMicroseconds(std::uint64_t ticks);

    std::mutex m_mutex;
    NxCanApiWrapperSettings m_settings;
    bool m_isInitialized;
    std::uint32_t m_initialBaudRate;
    std::uint32_t m_clockFrequency;
    NXSCanBitTimingParameters m_bitTimingParameters;
    std::unique_ptr<NXSCanChannelInfo[]> m_canChannelInfo;
    std::uint32_t m_canChannelCount;
    NXTCanHandle m_canChannelHandle;
    NXSCanMessage m_canMsgBuffer[kReceiveBatch];
    std::ofstream m_ascFile;
    std::string m_logFilename;
    HANDLE m_receiveEvent;
    std::unique_ptr<std::uint8_t[]> m_txBuffer;
    std::uint32_t m_txBufferSize;
    std::atomic<bool> m_txFramesAllowed;
    std::uint64_t m_logStartTime;
    std::atomic<std::uint64_t> m_replayEofTime;

    static std::atomic<std::uint64_t> m_timeConvCoefficient;
};

#endif
