// What every simulated bus library keeps per process: its configuration
// and hardware clock, the injected faults, the last provider-specific error,
// the details that go with its error codes, its table of handles, and the
// guards through which its exported operations run.
#pragma once

#include <atomic>
#include <cstring>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "hardware_clock.h"
#include "replay_engine.h"
#include "sim_config.h"

namespace nxsim {

// What an injected fault asks of one call.
struct FaultAction {
    bool fail = false;
    int32_t code = 0;
    int32_t vendorCode = 0;
    std::string text;
    uint32_t consumeRecords = 0;
};

class FaultTable {
public:
    void Load(const std::vector<FaultConfig>& faults);
    // Counts the call and returns what the matching faults ask for.
    FaultAction Check(const char* operation, const std::string& channel);

private:
    struct Entry {
        FaultConfig config;
        uint64_t calls = 0;
        uint64_t acted = 0;
    };
    std::mutex m_mutex;
    std::vector<Entry> m_entries;
};

// The last vendor-specific error of a channel or of the process.
class VendorError {
public:
    void Set(int32_t code, std::string text);
    void Get(int32_t* code, std::string* text);

private:
    std::mutex m_mutex;
    int32_t m_code = 0;
    std::string m_text;
};

// The codes and texts in which a library's errors are told.
struct LibraryCodes {
    const char* name;                 // for the message on stderr
    int32_t success;
    int32_t vendorSpecific;
    int32_t generic;
    int32_t invalidArgument;
    int32_t invalidHandle;
    int32_t configuration;
    int32_t shutDown;
    int32_t invalidRecord;            // of a replay stream
    int32_t replayStarted;            // a start time once the replay has started
    const char* (*baseText)(int32_t code);  // null for an unknown code
    BitRateCheck bitRateCheck;              // for the CAN settings of the file, or null
};

class LibraryState {
public:
    explicit LibraryState(const LibraryCodes& codes) : m_codes(codes) {}
    virtual ~LibraryState() = default;

    const LibraryCodes& Codes() const { return m_codes; }
    int32_t Code(ReplayResult result) const;

    // The replay of a channel or interface as the configuration wants it;
    // the caller adds the limits of its queue.
    ReplaySettings ReplayFor(bool highSpeed) const;

    // Loads the configuration on first use: success, configuration or shut-down code.
    int32_t Ready();
    const Config& GetConfig() const { return m_config; }
    const HardwareClock& Clock() const { return m_clock; }

    FaultAction CheckFault(const char* operation, const std::string& key);
    // Applies a failing fault: records the vendor error, returns the code.
    int32_t ApplyFault(const FaultAction& fault, VendorError* channelError);

    // The vendor-specific error of operations without a handle.
    VendorError& LastVendorError() { return m_vendorError; }

    // The latest detail behind an error code, added to its text.
    void SetDetail(int32_t code, std::string detail);
    std::string ErrorText(int32_t code);

    // Ends all handles and threads. After Shutdown every call fails with the
    // shut-down code; after ResetForTests the next call loads the
    // configuration again from the environment.
    void Shutdown();
    void ResetForTests();

protected:
    // Under m_mutex, once the configuration has been loaded.
    virtual void Build() = 0;
    // Without m_mutex: closes and forgets what Build and the handles made.
    virtual void ReleaseObjects() = 0;

    std::mutex m_mutex;
    bool m_shutDown = false;

private:
    void TearDown();

    const LibraryCodes m_codes;
    bool m_loaded = false;
    int32_t m_loadResult = 0;
    Config m_config;
    HardwareClock m_clock;
    FaultTable m_faults;
    std::atomic<bool> m_hasFaults{false};
    VendorError m_vendorError;
    std::mutex m_textMutex;
    std::map<int32_t, std::string> m_details;
};

// The handles of one library in this process.
template <class T>
class HandleTable {
public:
    int32_t Add(std::shared_ptr<T> object)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const int32_t handle = m_next++;
        m_objects.emplace(handle, std::move(object));
        return handle;
    }
    std::shared_ptr<T> Find(int32_t handle)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto it = m_objects.find(handle);
        return it == m_objects.end() ? nullptr : it->second;
    }
    std::shared_ptr<T> Take(int32_t handle)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto it = m_objects.find(handle);
        if (it == m_objects.end())
            return nullptr;
        std::shared_ptr<T> object = std::move(it->second);
        m_objects.erase(it);
        return object;
    }
    std::vector<std::shared_ptr<T>> TakeAll()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<std::shared_ptr<T>> all;
        for (auto& entry : m_objects)
            all.push_back(std::move(entry.second));
        m_objects.clear();
        return all;
    }
    template <class Predicate>
    bool Any(Predicate predicate)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const auto& entry : m_objects)
            if (predicate(*entry.second))
                return true;
        return false;
    }

private:
    std::mutex m_mutex;
    std::map<int32_t, std::shared_ptr<T>> m_objects;
    int32_t m_next = 1;
};

// Runs an exported operation without a handle: configuration loaded, fault
// checked, exceptions (memory) turned into the generic code.
template <class Body>
int32_t GlobalCall(LibraryState& lib, const char* operation, const std::string& faultKey, Body body)
{
    try {
        if (const int32_t rc = lib.Ready(); rc != lib.Codes().success)
            return rc;
        const FaultAction fault = lib.CheckFault(operation, faultKey);
        if (fault.fail)
            return lib.ApplyFault(fault, nullptr);
        return body(fault);
    } catch (...) {
        return lib.Codes().generic;
    }
}

// Runs an exported operation on the object of `handle`; `onFault` fixes up
// outputs when an injected fault answers instead.
template <class T, class Body, class OnFault>
int32_t HandleCall(LibraryState& lib, HandleTable<T>& handles, const char* operation, int32_t handle, Body body,
                   OnFault onFault)
{
    try {
        if (const int32_t rc = lib.Ready(); rc != lib.Codes().success)
            return rc;
        const std::shared_ptr<T> object = handles.Find(handle);
        const FaultAction fault = lib.CheckFault(operation, object ? object->Config().id : std::string());
        if (fault.fail) {
            onFault();
            return lib.ApplyFault(fault, object ? &object->LastVendorError() : nullptr);
        }
        if (!object)
            return lib.Codes().invalidHandle;
        return body(*object, fault);
    } catch (...) {
        return lib.Codes().generic;
    }
}

// The guards above, for a library `Lib` with a static Instance() and the
// table of its handles in Handles(): the body gets the library, the object
// of the handle (or its replay) and the fault.
template <class Lib, class Body>
int32_t LibraryCall(const char* operation, const std::string& faultKey, Body body)
{
    Lib& lib = Lib::Instance();
    return GlobalCall(lib, operation, faultKey, [&](const FaultAction& fault) { return body(lib, fault); });
}

template <class Lib, class Body, class OnFault>
int32_t ObjectCall(const char* operation, int32_t handle, Body body, OnFault onFault)
{
    Lib& lib = Lib::Instance();
    return HandleCall(
        lib, lib.Handles(), operation, handle, [&](auto& object, const FaultAction& fault) { return body(lib, object, fault); },
        onFault);
}

template <class Lib, class Body>
int32_t ObjectCall(const char* operation, int32_t handle, Body body)
{
    return ObjectCall<Lib>(operation, handle, body, [] {});
}

template <class Lib, class Body>
int32_t ReplayCall(const char* operation, int32_t handle, int32_t notReplay, Body body)
{
    return ObjectCall<Lib>(operation, handle, [&](Lib&, auto& object, const FaultAction& fault) {
        ReplayEngine* replay = object.GetReplay();
        return replay == nullptr ? notReplay : body(*replay, fault);
    });
}

// Copies a text into a caller's buffer of `capacity` bytes, NUL-terminated.
void CopyText(const std::string& text, char* out, size_t capacity);

bool ParseIpv4(const std::string& text, uint32_t* address);
bool AnyAddressOf(const std::vector<uint32_t>& wanted, const std::vector<uint32_t>& addresses);

// The IPv4 addresses of search attributes (network byte order); texts that
// are no address find nothing. False for an attribute of another type.
template <class Attribute>
bool SearchedAddresses(uint32_t count, const Attribute* attributes, std::vector<uint32_t>* addresses)
{
    for (uint32_t i = 0; i < count; ++i) {
        if (attributes[i].tSearchAttributeType != 1)
            return false;
        uint32_t address = 0;
        const std::string text(attributes[i].szSearchAttribute,
                               strnlen(attributes[i].szSearchAttribute, sizeof attributes[i].szSearchAttribute));
        if (ParseIpv4(text, &address))
            addresses->push_back(address);
    }
    return true;
}

// Whether a registration's vendor, interface name and serial number (each
// null for any) are those of the configuration.
bool SameIdentity(const char* vendor, const char* interfaceName, const char* serial, const std::string& configVendor,
                  const std::string& configInterface, const std::string& configSerial);

// The text of an error code, into a buffer of `capacity`: the texts need no
// valid configuration, injected faults do.
int32_t ErrorTextCall(LibraryState& lib, const char* operation, int32_t error, char* text, size_t capacity);

// The last vendor-specific error of a handle, or of the process for handle -1.
template <class T>
int32_t VendorErrorCall(LibraryState& lib, HandleTable<T>& handles, const char* operation, int32_t handle,
                        int32_t* code, char* text, size_t capacity)
{
    if (code == nullptr || text == nullptr)
        return lib.Codes().invalidArgument;
    std::string message;
    const int32_t rc =
        handle == -1 ? GlobalCall(lib, operation, {},
                                  [&](const FaultAction&) {
                                      lib.LastVendorError().Get(code, &message);
                                      return lib.Codes().success;
                                  })
                     : HandleCall(
                           lib, handles, operation, handle,
                           [&](T& object, const FaultAction&) {
                               object.LastVendorError().Get(code, &message);
                               return lib.Codes().success;
                           },
                           [] {});
    if (rc == lib.Codes().success)
        CopyText(message, text, capacity);
    return rc;
}

}  // namespace nxsim
