// The recording doubles of the three closed libraries, keyed by symbol name.
// They share one log of the calls of all doubled libraries, in order (a test
// sees how the Ethernet and the pre-processing calls interleave), the results
// the test chose per symbol, and the library object that hands the functions
// to the package's real loading code in place of a shared object:
//
//     nxtest::ScopedFakeEthLibrary bus;        // both doubles, both bindings
//     bus.Eth().AddChannel({"Norvex", "veth", "SN1", "eth1"});
//     bus.EthObject().absent = true;           // no file at the fixed path
//
// A double never exists as a file, so no test writes anything at a fixed
// path. All state is behind one mutex: threads of a component under test may
// call the doubles while the test configures or inspects them.
#ifndef NXTEST_FAKE_LIBRARY_H
#define NXTEST_FAKE_LIBRARY_H

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "NxCanApi.h"
#include "NxDrPreApi.h"
#include "NxEthApi.h"
#include "NxLibraryBinding.h"

namespace nxtest {

// A channel or interface of a doubled bus library, found at `ip`.
struct FakeChannel {
    std::string vendor;  // the access provider of an Ethernet interface
    std::string interfaceName;
    std::string serial;
    std::string identifier;
    std::uint32_t capabilities = 0;
    std::string ip = "127.0.0.1";
};

// One call of a library: its symbol name and its scalar arguments, in the
// order of the signature.
struct FakeCall {
    std::string name;
    std::vector<std::uint64_t> args;
};

inline std::uint64_t U(std::int64_t v) { return static_cast<std::uint64_t>(v); }
inline std::uint64_t P(const void* pointer) { return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(pointer)); }

class FakeLibrary {
public:
    // No calls, every symbol answering 0.
    static void ResetLog();
    // Every call of the operation (full symbol name) returns `code`.
    void SetResult(const std::string& symbol, std::int32_t code);
    // The next calls return these codes in turn, then SetResult's again.
    void ScriptResults(const std::string& symbol, std::vector<std::int32_t> codes);

    std::vector<FakeCall> Calls() const;
    std::vector<std::string> CallNames() const;
    std::vector<FakeCall> CallsTo(const std::string& symbol) const;
    // The function that answers a symbol, null for a name no double defines.
    static void* Symbol(const std::string& symbol);

protected:
    static void Define(const std::string& symbol, void* function);
    static std::mutex& Mutex();
    // Logs a call and picks its result; Mutex() held.
    static std::int32_t Record(const std::string& symbol, std::vector<std::uint64_t> args);
    // Locks, logs and picks the result.
    static std::int32_t Simple(const std::string& symbol, std::vector<std::uint64_t> args);

    // An operation that only logs its scalar arguments and answers.
    template <class Function, const char* Name>
    struct Logged;
    template <class R, class... A, const char* Name>
    struct Logged<R (*)(A...), Name> {
        static R Call(A... a)
        {
            std::vector<std::uint64_t> args;
            (
                [&] {
                    if constexpr (!std::is_pointer<A>::value) args.push_back(static_cast<std::uint64_t>(a));
                }(),
                ...);
            return static_cast<R>(Simple(Name, std::move(args)));
        }
    };

    template <class T, class V>
    static void Locked(T& field, V&& value)
    {
        std::lock_guard<std::mutex> lock(Mutex());
        field = std::forward<V>(value);
    }
    template <class T>
    static T Copy(const T& field)
    {
        std::lock_guard<std::mutex> lock(Mutex());
        return field;
    }
    template <std::size_t N>
    static void CopyText(char (&field)[N], const std::string& text)
    {
        std::snprintf(field, N, "%s", text.c_str());
    }
};

// Inside a double's Ops: `name` only logs, under the symbol prefix + name.
#define NXTEST_LOGGED(pointerType, prefix, name)           \
    static constexpr char name##Symbol[] = prefix #name;   \
    static constexpr pointerType##name name = &Logged<pointerType##name, name##Symbol>::Call;

// What the CAN and Ethernet doubles share: the channels (interfaces) found
// at an address, the provider's last error, the answers about a registered
// channel, and the replay stream taken.
class FakeBusLibrary : public FakeLibrary {
public:
    void AddChannel(const FakeChannel& channel)
    {
        std::lock_guard<std::mutex> lock(Mutex());
        m_channels.push_back(channel);
    }
    // What the provider-specific error operation answers.
    void SetVendorError(std::int32_t code, const std::string& text)
    {
        std::lock_guard<std::mutex> lock(Mutex());
        m_vendorCode = code;
        m_vendorText = text;
    }
    void SetAccessible(bool accessible) { Locked(m_accessible, accessible); }
    void SetResolution(std::uint64_t ticksPerSecond) { Locked(m_resolution, ticksPerSecond); }
    void SetTicks(std::uint64_t ticks) { Locked(m_ticks, ticks); }
    // Bytes taken of an offered replay block; by default all of them.
    void SetConsumption(std::function<std::uint32_t(std::uint32_t offered)> consume)
    {
        Locked(m_consume, std::move(consume));
    }

    std::vector<std::uint8_t> Streamed() const { return Copy(m_streamed); }
    // The channel identifier of the last registration, the last address searched.
    std::string RegisteredIdentifier() const { return Copy(m_registered); }
    std::string LastSearchAddress() const { return Copy(m_searchAddress); }

protected:
    explicit FakeBusLibrary(std::uint64_t resolution) : m_resolution(resolution) {}

    std::int32_t Count(const char* symbol, std::uint32_t* count, std::uint32_t attributeCount, std::uint64_t type,
                       const char* address)
    {
        std::lock_guard<std::mutex> lock(Mutex());
        m_searchAddress = address;
        *count = static_cast<std::uint32_t>(std::count_if(m_channels.begin(), m_channels.end(),
                                                          [&](const FakeChannel& c) { return c.ip == address; }));
        return Record(symbol, {attributeCount, type});
    }
    // Up to *count records of the channels at the address, zeroed and filled by `fill`.
    template <class Info, class Fill>
    std::int32_t List(const char* symbol, std::uint32_t* count, Info* records, std::uint32_t attributeCount,
                      const char* address, Fill fill)
    {
        std::lock_guard<std::mutex> lock(Mutex());
        std::int32_t code = Record(symbol, {*count, attributeCount});
        if (code != 0) return code;
        std::uint32_t n = 0;
        for (const FakeChannel& channel : m_channels) {
            if (channel.ip != address || n == *count) continue;
            std::memset(&records[n], 0, sizeof records[n]);
            fill(records[n++], channel);
        }
        *count = n;
        return 0;
    }
    template <class Handle>
    std::int32_t Register(const char* symbol, const char* identifier, Handle* handle, Handle value,
                          std::vector<std::uint64_t> args)
    {
        std::lock_guard<std::mutex> lock(Mutex());
        m_registered = identifier;
        std::int32_t code = Record(symbol, std::move(args));
        if (code == 0) *handle = value;
        return code;
    }
    // Hands out a field of the double's state.
    template <class T, class F>
    static std::int32_t Answer(const char* symbol, std::vector<std::uint64_t> args, T* out, const F& field)
    {
        std::lock_guard<std::mutex> lock(Mutex());
        *out = field;
        return Record(symbol, std::move(args));
    }
    std::int32_t Stream(const char* symbol, std::int64_t handle, std::uint32_t* size, const std::uint8_t* data)
    {
        std::lock_guard<std::mutex> lock(Mutex());
        std::int32_t code = Record(symbol, {U(handle), *size});
        const std::uint32_t taken = code == 0 ? std::min(*size, m_consume(*size)) : 0;
        m_streamed.insert(m_streamed.end(), data, data + taken);
        *size = taken;
        return code;
    }
    std::int32_t LastError(const char* symbol, std::int64_t handle, std::int32_t* code, char* text)
    {
        std::lock_guard<std::mutex> lock(Mutex());
        *code = m_vendorCode;
        std::snprintf(text, 2048, "%s", m_vendorText.c_str());
        return Record(symbol, {U(handle)});
    }
    static std::int32_t ErrorText(const char* symbol, std::int32_t error, char* text)
    {
        std::snprintf(text, 2048, "library text of %d", error);
        return Simple(symbol, {U(error)});
    }

    std::vector<FakeChannel> m_channels;
    std::int32_t m_vendorCode = 0;
    std::string m_vendorText;
    bool m_accessible = true;
    std::uint64_t m_resolution;
    std::uint64_t m_ticks = 0;
    std::function<std::uint32_t(std::uint32_t)> m_consume = [](std::uint32_t offered) { return offered; };
    std::vector<std::uint8_t> m_streamed;
    std::string m_registered;
    std::string m_searchAddress;
};

// A record of a replay stream: its head, and its payload from `payloadAt`,
// `length(head, size)` bytes.
template <class Head>
struct StreamedRecord {
    Head head;
    std::vector<std::uint8_t> payload;
};

// Splits a stream at the sizes its heads give.
template <class Head, class Length>
std::vector<StreamedRecord<Head>> SplitStream(const std::vector<std::uint8_t>& stream, std::size_t payloadAt,
                                              Length length)
{
    std::vector<StreamedRecord<Head>> records;
    for (std::size_t at = 0; at + sizeof(Head) <= stream.size();) {
        StreamedRecord<Head> record;
        std::memcpy(&record.head, stream.data() + at, sizeof record.head);
        const std::size_t size = record.head.tHeader.ulSize;
        const std::size_t end = payloadAt + length(record.head, size);
        if (size < sizeof record.head || at + size > stream.size() || end > size) break;
        record.payload.assign(stream.begin() + at + payloadAt, stream.begin() + at + end);
        records.push_back(std::move(record));
        at += size;
    }
    return records;
}

// The library object behind a binding: "loads" without touching the file
// system and answers each symbol with the doubles' function.
class FakeLibraryObject : public NxLibraryObject {
public:
    bool exists(const std::string& path) const override;
    bool is_loaded() const override { return m_loaded; }
    void load(const std::string& path) override;
    void unload() override;
    void* get(const std::string& symbol) override;

    // Paths asked about, paths loaded, symbols asked for, in order; unloads.
    mutable std::vector<std::string> probed;
    std::vector<std::string> loads;
    std::vector<std::string> requested;
    int unloads = 0;
    bool absent = false;    // no file at any path: a machine without the library
    bool failLoad = false;  // a load raises Boost's error, as for a file that is no library
    // Symbols answered with null, symbols that raise Boost's error.
    std::set<std::string> missing;
    std::set<std::string> throwing;

private:
    bool m_loaded = false;
};

// Puts a FakeLibraryObject in a binding's place for its lifetime, with the
// table cleared and the count of wrappers at 0, and puts back what was there
// before: every test starts from an unloaded binding.
class ScopedFakeLibrary {
public:
    ScopedFakeLibrary(NxLibraryBinding& binding, void (*clearTable)());
    ~ScopedFakeLibrary();
    ScopedFakeLibrary(const ScopedFakeLibrary&) = delete;
    ScopedFakeLibrary& operator=(const ScopedFakeLibrary&) = delete;

    FakeLibraryObject& Object() { return *m_object; }

private:
    NxLibraryBinding& m_binding;
    void (*m_clearTable)();
    std::unique_ptr<NxLibraryObject> m_saved;
    std::uint32_t m_savedUsers;
    FakeLibraryObject* m_object;
};

// ---------------------------------------------------------------------------
// The CAN bus access library: its 28 operations and the state of a bus.

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
    struct Ops;

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

// A received message as the library delivers it; payload byte i is 0xA0 + i.
NXSCanMessage MakeMessage(std::uint32_t id, bool extended, std::uint16_t dlc, std::uint64_t ticks,
                          std::uint32_t flags = 0);

// ---------------------------------------------------------------------------
// The Ethernet bus access library (24 operations) and the replay
// pre-processing library (6 operations). The Ethernet double makes replay
// records by the rule both open libraries keep: a 56-byte head, the frame
// from byte 48, the size rounded up to 8. The pre-processing double passes
// records through unchanged, once it holds as many as the fill level the
// stage was made with, or the closing record.

using EthRecord = StreamedRecord<NXSEthReplayData>;  // payload: the frame, from byte 48
std::vector<EthRecord> SplitRecords(const std::vector<std::uint8_t>& stream);

class FakeEthLibrary : public FakeBusLibrary {
public:
    static FakeEthLibrary& Instance();
    void Reset();

private:
    FakeEthLibrary() : FakeBusLibrary(1000000000) {}
    struct Ops;
};

class FakeDrPreLibrary : public FakeLibrary {
public:
    static FakeDrPreLibrary& Instance();
    void Reset();

    // NxDRPP_GetFrames throws, as a library written in C++ may.
    void SetGetFramesThrows(bool throws) { Locked(m_throws, throws); }
    // Records held by the stages.
    std::size_t Held() const { return Copy(m_held).size(); }

private:
    struct Ops;

    std::deque<std::vector<std::uint8_t>> m_held;
    std::uint64_t m_minFillLevel = 0;
    bool m_closed = false;
    bool m_throws = false;
    std::uintptr_t m_nextHandle = 0x1000;
};

// Installs both doubles, reset, for its lifetime: the Ethernet library at
// its fixed path, the pre-processing library beside the package.
class ScopedFakeEthLibrary {
public:
    ScopedFakeEthLibrary();

    FakeEthLibrary& Eth() { return FakeEthLibrary::Instance(); }
    FakeDrPreLibrary& Stage() { return FakeDrPreLibrary::Instance(); }
    FakeLibraryObject& EthObject() { return m_eth.Object(); }
    FakeLibraryObject& StageObject() { return m_stage.Object(); }

private:
    ScopedFakeLibrary m_eth;
    ScopedFakeLibrary m_stage;
};

}  // namespace nxtest

#endif
