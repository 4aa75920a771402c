// A recording double of the CAN bus access library: its 28 operations and
// the state of a bus behind them, on the symbol-keyed double of FakeLibrary.h.
//
//     nxtest::ScopedFakeCanLibrary bus;             // installs the double
//     bus.Fake().AddChannel({"Norvex", "PCIe", "SN1", "ch1", 0});
//     NxCanApiWrapper wrapper(settings);            // loads through the double
//     ... bus.Fake().CallNames() ...                // every call, in order
//
// The guard replaces hNxCanApiDll for its lifetime and puts the previous
// object back afterwards. The double is one process-wide object, because the
// library's operations are plain functions.
#ifndef NXTEST_FAKE_CAN_LIBRARY_H
#define NXTEST_FAKE_CAN_LIBRARY_H

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "FakeLibrary.h"
#include "NxCanApi.h"

namespace nxtest {

// A record of a pushed replay stream, split at the sizes the double gave.
struct StreamRecord {
    NXSCanReplayData head;
    std::vector<std::uint8_t> payload;  // the bytes after the head's first 56
};

class FakeCanLibrary : public FakeLibrary {
public:
    static FakeCanLibrary& Instance();

    // Back to a bus with no channels and default answers.
    void Reset();

    // --- configuration ----------------------------------------------------------------
    void AddChannel(const FakeChannel& channel);
    void SetVendorError(std::int32_t code, const std::string& text);
    void SetAccessible(bool accessible);
    void SetResolution(std::uint64_t ticksPerSecond);
    void SetHardwareTicks(std::uint64_t ticks);
    // What the conversion from bit timing answers.
    void SetCurrentBaudrate(std::uint32_t baudrate);
    void SetReplayStatus(const NXSCanReplayStatusInfo& status);
    // Size of a replay record for a DLC; by default the head plus the
    // payload rounded up to 8 bytes, at least 64.
    void SetRecordSize(std::function<std::uint32_t(std::uint16_t dlc, bool endOfFile)> size);
    // Bytes taken of an offered block; by default all of them.
    void SetConsumption(std::function<std::uint32_t(std::uint32_t offered)> consume);

    // --- the bus side ------------------------------------------------------------------------
    // Queues a received message and signals the event of event-based
    // reception, as the library does when messages arrive.
    void Receive(const NXSCanMessage& message);
    // The event that the wrapper handed over, null if none.
    EventHandle* Event() const;

    // --- what happened -------------------------------------------------------------------------
    std::vector<NXSCanMessage> Transmitted() const;
    std::vector<std::uint8_t> Streamed() const;
    std::vector<StreamRecord> StreamRecords() const;
    std::string LastSearchAddress() const;
    // The channel identifier of the last registration.
    std::string RegisteredIdentifier() const;
    NXSCanBitTimingParameters LastArbitrationTiming() const;
    NXSCanBitTimingParameters LastDataTiming() const;
    std::vector<std::uint32_t> ConvertedBaudrates() const;

private:
    struct Ops;  // the 28 operations, called through the table

    std::vector<FakeChannel> m_channels;
    std::int32_t m_vendorCode = 0;
    std::string m_vendorText;
    bool m_accessible = true;
    std::uint64_t m_resolution = 80000000;
    std::uint64_t m_hardwareTicks = 0;
    std::uint32_t m_currentBaudrate = 500000;
    NXSCanReplayStatusInfo m_replayStatus = {};
    std::function<std::uint32_t(std::uint16_t, bool)> m_recordSize;
    std::function<std::uint32_t(std::uint32_t)> m_consume;
    std::deque<NXSCanMessage> m_receiveQueue;
    std::vector<NXSCanMessage> m_transmitted;
    std::vector<std::uint8_t> m_streamed;
    std::string m_searchAddress;
    std::string m_registered;
    NXSCanBitTimingParameters m_arbitration = {};
    NXSCanBitTimingParameters m_data = {};
    std::vector<std::uint32_t> m_convertedBaudrates;
    EventHandle* m_event = nullptr;
    NXTCanHandle m_nextHandle = 7;
};

// Installs the double, reset and with a log of its own, for its lifetime.
class ScopedFakeCanLibrary : public ScopedFakeLibrary {
public:
    ScopedFakeCanLibrary();

    FakeCanLibrary& Fake() { return FakeCanLibrary::Instance(); }
};

// A received message as the library delivers it.
NXSCanMessage MakeMessage(std::uint32_t id, bool extended, std::uint16_t dlc, std::uint64_t ticks,
                          std::uint32_t flags = 0);

}  // namespace nxtest

#endif
