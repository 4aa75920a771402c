// A recording double of the CAN bus access library, and the library object
// that hands its 28 operations to the package's loading code in place of the
// shared object.
//
//     nxtest::ScopedFakeCanLibrary bus;             // installs the double
//     bus.Fake().AddChannel({"Norvex", "PCIe", "SN1", "ch1", 0});
//     NxCanApiWrapper wrapper(settings);            // loads through the double
//     ... bus.Fake().CallNames() ...                // every call, in order
//
// The guard replaces hNxCanApiDll for its lifetime and puts the previous
// object back afterwards; the table is cleared on both ends, so every test
// starts from an unloaded binding. The double never exists as a file: it is
// reachable only through the guard, in the test's own process.
//
// The double is one process-wide object, because the library's operations
// are plain functions. All of its state is behind one mutex, so threads of a
// component under test may call it while the test configures or inspects it.
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

#include "NxCanApi.h"

namespace nxtest {

struct FakeChannel {
    std::string vendor;
    std::string interfaceName;
    std::string serial;
    std::string identifier;
    std::uint32_t capabilities = 0;
    std::string ip = "127.0.0.1";  // the address under which the channel is found
};

// One call of the library: its symbol name and its scalar arguments, in the
// order of the signature (pointers to records are left out; what they carry
// is kept in the fields of FakeCanLibrary).
struct FakeCall {
    std::string name;
    std::vector<std::uint64_t> args;
};

// A record of a pushed replay stream, split at the sizes the double gave.
struct StreamRecord {
    NXSCanReplayData head;
    std::vector<std::uint8_t> payload;  // the bytes after the head's first 56
};

class FakeCanLibrary {
public:
    static FakeCanLibrary& Instance();

    // Back to a library with no channels, no calls and default answers.
    void Reset();

    // --- configuration ----------------------------------------------------------------
    void AddChannel(const FakeChannel& channel);
    // Every call of the operation (full symbol name) returns `code`.
    void SetResult(const std::string& symbol, NXTCanError code);
    // The next calls return these codes in turn, then SetResult's again.
    void ScriptResults(const std::string& symbol, std::vector<NXTCanError> codes);
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
    std::vector<FakeCall> Calls() const;
    std::vector<std::string> CallNames() const;
    // Calls of one operation, in order.
    std::vector<FakeCall> CallsTo(const std::string& symbol) const;
    std::vector<NXSCanMessage> Transmitted() const;
    std::vector<std::uint8_t> Streamed() const;
    std::vector<StreamRecord> StreamRecords() const;
    std::string LastSearchAddress() const;
    // The channel identifier of the last registration.
    std::string RegisteredIdentifier() const;
    NXSCanBitTimingParameters LastArbitrationTiming() const;
    NXSCanBitTimingParameters LastDataTiming() const;
    std::vector<std::uint32_t> ConvertedBaudrates() const;

    // The function of the double that answers a symbol, null for an unknown
    // name.
    static void* Symbol(const std::string& symbol);

private:
    struct Ops;  // the 28 operations, called through the table

    // Logs a call and picks its result; m_mutex held.
    NXTCanError Record(const std::string& symbol, std::vector<std::uint64_t> args);

    mutable std::mutex m_mutex;
    std::vector<FakeChannel> m_channels;
    std::map<std::string, NXTCanError> m_results;
    std::map<std::string, std::deque<NXTCanError>> m_scripted;
    std::vector<FakeCall> m_calls;
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

// The library object behind the table: "loads" without touching the file
// system and answers each symbol with the double's function.
class FakeCanLibraryObject : public NxCanLibraryObject {
public:
    bool is_loaded() const override { return m_loaded; }
    void load(const std::string& path) override;
    void* get(const std::string& symbol) override;

    // Paths asked for, symbols asked for, in order.
    std::vector<std::string> loads;
    std::vector<std::string> requested;
    // Symbols answered with null, symbols that raise Boost's error.
    std::set<std::string> missing;
    std::set<std::string> throwing;
    // A load that raises Boost's error, as a missing file does.
    bool failLoad = false;

private:
    bool m_loaded = false;
};

// Installs a FakeCanLibraryObject, with the double reset, for its lifetime.
class ScopedFakeCanLibrary {
public:
    ScopedFakeCanLibrary();
    ~ScopedFakeCanLibrary();
    ScopedFakeCanLibrary(const ScopedFakeCanLibrary&) = delete;
    ScopedFakeCanLibrary& operator=(const ScopedFakeCanLibrary&) = delete;

    FakeCanLibrary& Fake() { return FakeCanLibrary::Instance(); }
    FakeCanLibraryObject& Object() { return *m_object; }

private:
    std::unique_ptr<NxCanLibraryObject> m_saved;
    FakeCanLibraryObject* m_object;
};

// A received message as the library delivers it.
NXSCanMessage MakeMessage(std::uint32_t id, bool extended, std::uint16_t dlc, std::uint64_t ticks,
                          std::uint32_t flags = 0);

}  // namespace nxtest

#endif
