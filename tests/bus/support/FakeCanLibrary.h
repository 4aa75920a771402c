// A recording double of the CAN bus access library: its 28 operations and
// the state of a bus behind them, on the doubles of FakeLibrary.h.
//
//     nxtest::ScopedFakeCanLibrary bus;             // installs the double
//     bus.Fake().AddChannel({"Norvex", "PCIe", "SN1", "ch1", 0});
//     NxCanApiWrapper wrapper(settings);            // loads through the double
#ifndef NXTEST_FAKE_CAN_LIBRARY_H
#define NXTEST_FAKE_CAN_LIBRARY_H

#include "FakeLibrary.h"
#include "NxCanApi.h"

namespace nxtest {

using StreamRecord = StreamedRecord<NXSCanReplayData>;  // payload: the bytes after the head's first 56

class FakeCanLibrary : public FakeBusLibrary {
public:
    static FakeCanLibrary& Instance();
    // Back to a bus with no channels and default answers.
    void Reset();

    void SetReplayStatus(const NXSCanReplayStatusInfo& status) { Locked(m_replayStatus, status); }
    // Size of a replay record for a DLC; by default the head plus the
    // payload rounded up to 8 bytes, at least 64.
    void SetRecordSize(std::function<std::uint32_t(std::uint16_t dlc, bool endOfFile)> size)
    {
        Locked(m_recordSize, std::move(size));
    }
    // Queues a received message and signals the event of event-based
    // reception, as the library does when messages arrive.
    void Receive(const NXSCanMessage& message);
    // The event that the wrapper handed over, null if none.
    EventHandle* Event() const { return Copy(m_event); }

    std::vector<NXSCanMessage> Transmitted() const { return Copy(m_transmitted); }
    std::vector<StreamRecord> StreamRecords() const;
    NXSCanBitTimingParameters LastArbitrationTiming() const { return Copy(m_arbitration); }
    NXSCanBitTimingParameters LastDataTiming() const { return Copy(m_data); }

private:
    FakeCanLibrary() : FakeBusLibrary(80000000) {}
    struct Ops;  // the 28 operations, called through the table

    NXSCanReplayStatusInfo m_replayStatus = {};
    std::function<std::uint32_t(std::uint16_t, bool)> m_recordSize;
    std::deque<NXSCanMessage> m_receiveQueue;
    std::vector<NXSCanMessage> m_transmitted;
    NXSCanBitTimingParameters m_arbitration = {};
    NXSCanBitTimingParameters m_data = {};
    EventHandle* m_event = nullptr;
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
