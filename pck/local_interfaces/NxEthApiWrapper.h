// One Ethernet interface of the bus access library, from discovery to
// release: the twin of NxCanApiWrapper, with what Ethernet does otherwise.
//
// Construction only takes the settings; Initialize loads the library (a
// missing library is a reportable state, code 666, not an exception), finds
// the interfaces at the address, claims the one the settings name and brings
// it up; destruction takes it down and releases it. In between the wrapper
// moves blocks of raw frames: reading into a buffer the caller offers,
// direct transmission, and the synchronised replay, in which each frame goes
// first through the pre-processing library and what that stage gives back
// is staged in a 2 MiB buffer and streamed to the interface.
//
// Lifecycle operations return NxBusError; discovery, reading and direct
// transmission throw std::runtime_error, also when called uninitialised.
#ifndef NX_ETH_API_WRAPPER_H
#define NX_ETH_API_WRAPPER_H

#include <atomic>
#include <cstdint>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "NxBusError.h"
#include "NxBusReplayStateInfo.h"
#include "NxDrPreApi.h"
#include "NxEthApi.h"
#include "NxEthApiWrapperSettings.h"
#include "pcap_packet_header.h"
#include "veld_string.h"
#include "veld_types.h"

class NxEthApiWrapper {
public:
    static const std::uint32_t kTxBufferSize = 0x200000;  // bytes of the replay staging buffer
    static const std::uint32_t kRecordHead = sizeof(NXSEthReplayData);
    // What a replay stage is made with: minimum fill level, maximum depth.
    static const std::uint64_t kPrepMinFillLevel = 10;
    static const std::uint64_t kPrepMaxBufferDepth = 1000;
    // The wrapper's own codes.
    static const std::int32_t kInterfaceNotFound = 9;
    static const std::int32_t kLibraryMissing = 666;

    explicit NxEthApiWrapper(const NxEthApiWrapperSettings& settings);
    NxEthApiWrapper(const NxEthApiWrapper&) = delete;
    NxEthApiWrapper& operator=(const NxEthApiWrapper&) = delete;
    ~NxEthApiWrapper();

    // --- discovery, no wrapper needed ------------------------------------------------
    // 0 while the table is not bound.
    static std::uint32_t RetrieveAvailableChannelCount(const char* ip);
    // Empty when there is no library or the listing fails. With
    // norvexHardwareOnly, interfaces of other providers go.
    static std::vector<NXSEthInterfaceInfo> RetrieveAvailableChannelsVector(const char* ip, bool norvexHardwareOnly);
    static VELDString GetChannelId(const NXSEthInterfaceInfo& info);
    // For people only: empty unless `identifier` names this very interface.
    static VELDString GetChannelDescription(const NXSEthInterfaceInfo& info, VELDString identifier);
    static bool IsHighSpeedChannel(NXSEthInterfaceInfo info);
    static std::string ConvertToString(const std::uint8_t* bytes, int count);

    // --- errors -------------------------------------------------------------------------
    // Display text of an error; empty for success. Never throws.
    std::string GetErrorMessage(const NxBusError& error) const;
    // The throwing form: returns for success, throws std::runtime_error with
    // the text otherwise. Pass handle -1 where there is no interface yet.
    static void RetrieveErrMessage(const std::string& functionName, NXTEthError error, NXTEthHandle handle);
    static std::string StringFormat(std::string format, ...);
    // The sentence behind the code 666; the integer is not written.
    void GetLastInternalError(std::int32_t* code, char* text) const;

    // --- lifecycle -------------------------------------------------------------------------
    // Loads the libraries, finds the interfaces and brings the chosen one up.
    // Only the code 1 of the bring-up leaves the wrapper uninitialised; after
    // any other result of it the caller checks errorCode and the destructor
    // cleans up.
    NxBusError Initialize(bool* highSpeedSupported);
    bool GetIsInitialized() const { return m_isInitialized; }
    std::uint32_t GetInterfaceCount() const { return m_interfaceCount; }
    const NXSEthInterfaceInfo* GetInterfaceInfo() const { return m_interfaceInfos.get(); }
    const NXTEthHandle* GetInterfaceHandle() const { return &m_interfaceHandle; }

    // --- time ---------------------------------------------------------------------------------
    // Ticks per microsecond, shared by every Ethernet wrapper of the process
    // and set by the latest Initialize.
    static std::uint64_t GetTimeConvCoefficient() { return m_timeConvCoefficient.load(std::memory_order_relaxed); }
    NxBusError GetHardwareTime(std::uint64_t* microseconds);
    NxBusError GetHardwareTimeResolution(std::uint64_t* ticksPerSecond);
    NxBusError GetReplayStateInfo(NxBusReplayStateInfo* info);
    NxBusError SetLogStartTime(std::int64_t t);
    NxBusError SetReplayStartTime(std::uint64_t replayStart, std::uint64_t logStart);
    NxBusError SetReplayStopTime(std::uint64_t t);
    void SetReplayEofTime(std::int64_t t) { m_replayEofTime = static_cast<std::uint64_t>(t); }
    std::uint64_t GetReplayEofTime() const { return m_replayEofTime; }
    std::uint64_t GetLogStartTime() const { return m_logStartTime; }

    // --- reception and direct transmission -----------------------------------------------------
    // Fills `buffer` with a block of raw frames.
    NxBusError ReadFrames(std::uint32_t bufferSize, std::uint8_t* buffer, std::uint32_t* third);
    // The size of the read buffer that the library wants offered.
    NxBusError GetInterfaceBufferSize(std::uint32_t* size);
    // Sends a block of raw frames; `size` is the number of frames in it.
    NxBusError TransmitFrames(std::uint8_t* frames, std::uint32_t size);

    // A raw frame of a read block into PCAP form: `out` gets the frame without
    // its check sequence, `header` its length and time (offset + hardware
    // time), and `position` steps past the frame in the block. Returns the
    // frame's time in microseconds.
    static VELDTimestamp CopyFrame(std::vector<std::uint8_t>& out, VELDpcap_packet_header_t* header,
                                   const NXSEthRawFrame* frame, std::uint32_t& position, VELDTimestamp offset);
    // A packet in PCAP form into a raw frame for TransmitFrames, with 4 bytes
    // counted for the check sequence, which the caller's block must hold.
    static void CopyFrame(NXSEthRawFrame* raw, const std::uint8_t* data, const VELDpcap_packet_header_t* header);

    // --- replay -----------------------------------------------------------------------------------
    // Puts one frame into the pre-processing stage, with its own time. A full
    // stage is waited out until it takes the frame or `stop` says to give up,
    // in which case the frame is dropped and the result is a success.
    NxBusError CopyFrame2(const std::uint8_t* data, const VELDpcap_packet_header_t* header,
                          const std::function<bool()>& stop);
    // Streams what the stage gives out; with endOfFile the closing record
    // goes into the stage first.
    NxBusError TransmitFramesPushing(bool endOfFile);
    // False while a push left data in the staging buffer.
    bool GetTransmitFramesAllowed() const { return m_txFramesAllowed; }
    // Bytes staged and not yet taken by the library.
    std::uint32_t GetTxBufferSize();

private:
    NxBusError RegInitActivate(bool* highSpeedSupported);
    NxBusError RegisterInterface(bool* highSpeedSupported);
    NxBusError InitializeInterface();
    NxBusError ActivateInterface();
    NxBusError DeactivateInterface();
    NxBusError UnregisterInterface();
    std::unique_ptr<NXSEthInterfaceInfo[]> RetrieveAvailableChannelsPtr(std::uint32_t count, const char* ip);
    // Asks the library whether the interface can still be reached; false
    // also when the question itself fails.
    bool IsInterfaceAccessible() const;
    // The steps of Initialize before the bring-up: the libraries and the
    // replay stage. Success leaves the code 0.
    NxBusError LoadLibraries();

    NxBusError InsertHeader(NXSEthReplayData* record, bool endOfFile, std::uint16_t length, std::uint32_t* size);
    // Offers a block of records to the stage; with m_mutex held.
    NxDRPPErrorCode InsertRecords(std::uint8_t* records, std::uint64_t size, bool endOfStream,
                                  std::uint64_t* consumed);
    NxBusError Transmit();

    static std::uint64_t TicksToMicroseconds(std::uint64_t ticks);
    static std::uint64_t MicrosecondsToTicks(const VELDpcap_packet_header_t& header);

    std::mutex m_mutex;
    NxEthApiWrapperSettings m_settings;
    bool m_isInitialized;
    NxDRPPHandle m_prepHandle;
    std::unique_ptr<NXSEthInterfaceInfo[]> m_interfaceInfos;
    std::uint32_t m_interfaceCount;
    NXTEthHandle m_interfaceHandle;
    std::ofstream m_ascFile;
    std::string m_logFilename;
    std::uint64_t m_logStartTime;
    char m_lastError[2048];
    std::atomic<bool> m_txFramesAllowed;
    std::atomic<std::uint64_t> m_replayEofTime;
    std::uint32_t m_txBufferSize;
    std::unique_ptr<std::uint8_t[]> m_txBuffer;
    // The record of the frame being staged, kept between frames so that
    // staging allocates nothing; only the thread that stages touches it.
    std::vector<std::uint8_t> m_scratch;

    static std::atomic<std::uint64_t> m_timeConvCoefficient;
};

#endif
