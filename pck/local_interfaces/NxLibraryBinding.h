// What the bindings to the closed libraries share: the library object behind
// a table of operations, and the loading of a table from it, all or nothing.
//
// Each library (CAN, Ethernet, replay pre-processing) has one process-wide
// NxLibraryBinding: the library object, the lock under which the table is
// loaded and cleared, and the count of the wrappers that use it. Each keeps
// its own typed table of function pointers and the names its users know it
// by; the binding loads the library, pins it if asked, and hands back the
// addresses of the symbols in the table's order.
//
// The library object is normally the shared object on disk, but any object
// that resolves the same names (a simulator linked in, a test double) can
// stand in its place, and everything above it runs unchanged against it.
#ifndef NX_LIBRARY_BINDING_H
#define NX_LIBRARY_BINDING_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

// Something that can be loaded and that hands out the address of a symbol
// by name.
class NxLibraryObject {
public:
    virtual ~NxLibraryObject();
    // Whether there is a file at `path`, asked before loading where a
    // missing library is a normal state rather than an error.
    virtual bool exists(const std::string& path) const = 0;
    virtual bool is_loaded() const = 0;
    // Throws boost::system::system_error when the object cannot be loaded.
    virtual void load(const std::string& path) = 0;
    // Lets the library go; a pinned library stays mapped all the same.
    virtual void unload() = 0;
    // The address of the symbol; throws boost::system::system_error when the
    // symbol is missing. An object may also answer null, which the loading
    // code treats as an unusable binding.
    virtual void* get(const std::string& symbol) = 0;
};

// The shared object on disk, through Boost.DLL. A pinned library, once
// loaded, stays mapped until the process ends, also after the object that
// loaded it is gone: the bus libraries run threads of their own and keep
// state for the whole process.
std::unique_ptr<NxLibraryObject> MakeNxSharedLibrary(bool pinned);

// One operation of a table: its exported symbol, and how the typed pointer
// of the table is set to an address (null clears it).
struct NxTableEntry {
    const char* symbol;
    void (*bind)(void* address);
};

class NxLibraryBinding {
public:
    explicit NxLibraryBinding(bool pinned) : m_pinned(pinned) {}
    NxLibraryBinding(const NxLibraryBinding&) = delete;
    NxLibraryBinding& operator=(const NxLibraryBinding&) = delete;

    // The library object; made on the first load, unless somebody installed
    // another before (and puts the previous one back when done).
    std::unique_ptr<NxLibraryObject> object;
    // The wrappers of this library alive in the process.
    std::uint32_t users = 0;
    // Taken by loading and clearing the table, by discovery, and by a
    // wrapper while it counts itself in or out, so that components born and
    // ending on threads of their own never see a table half written or
    // cleared under them. Recursive: a load runs inside a wrapper's count.
    std::recursive_mutex lock;

    // Loads `path` unless the object is loaded already (with a test that the
    // file exists first when `testExists`), then resolves every symbol of the
    // table in order, even past one that comes back null. 0 when all are
    // there, and the table is set; else 1, after `unloadTable` where a symbol
    // came back null. Errors of loading and of a missing symbol are Boost's
    // system_error and pass through.
    int Load(const std::string& path, bool testExists, const NxTableEntry* table, std::size_t count,
             void (*unloadTable)());
    template <std::size_t N>
    int Load(const std::string& path, bool testExists, const NxTableEntry (&table)[N], void (*unloadTable)())
    {
        return Load(path, testExists, table, N, unloadTable);
    }
    // Every pointer of the table to null.
    template <std::size_t N>
    static void Clear(const NxTableEntry (&table)[N])
    {
        for (const NxTableEntry& entry : table) entry.bind(nullptr);
    }

    // Loaded already, or a file at `path` to load.
    bool Available(const std::string& path);
    bool IsLoaded() const { return object && object->is_loaded(); }
    // Lets the library go, for real unless it is pinned.
    void Unload();

private:
    NxLibraryObject& Object();

    const bool m_pinned;
};

// Puts an address into a typed pointer of a table. A loaded table is not
// written again when it is loaded anew: its users read it without the lock.
template <class Function>
void NxBindOperation(Function& pointer, void* address)
{
    Function resolved = reinterpret_cast<Function>(address);
    if (pointer != resolved) pointer = resolved;
}

#endif
