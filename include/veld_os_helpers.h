// The system's side of the foundation: sleeping and threads, time texts,
// regular expressions, character set conversions through the system's iconv,
// and paths and files.
#ifndef VELD_OS_HELPERS_H
#define VELD_OS_HELPERS_H

#include <cstddef>
#include <string>

#include "veld_reference.h"
#include "veld_string.h"
#include "veld_types.h"

// Microseconds since 1970-01-01 00:00:00 UTC.
typedef VELDInt64 VELDAbsoluteTime;

namespace VELD {

// Sleeps that long; a signal restarts the whole sleep, not the rest of it.
void Sleep(VELDInt64 microseconds);
// The short pause of polling loops: 10 milliseconds.
void Wait4AWhile();
// Gives the processor to another thread.
void ReleaseCurrentThread();
// Prints "<title>: <text>" (with "Warning: " for kind 1 on standard output,
// "Error: " for kind 2 on standard error), then shows a window until a key,
// a click or its closing, unless "SILENT" or "VELDOR_SILENT" is set or no
// display opens.
void MsgBox(const char* title, const char* text, int kind);
// A detached thread that sets LC_NUMERIC to "C" and runs body(arg). False
// when the system refuses the thread.
bool CreateThread(void* (*body)(void*), void* arg);

// "[-][H:]MM:SS.uuuuuu": hours only when there are any.
VELDString Timestamp2String(VELDInt64 microseconds);
// Reads "S", "M:S" or "H:M:S" with up to six digits of fraction, into
// microseconds; -1 for a null or empty text. `end` receives the first
// character not read.
VELDInt64 TimestampFromString(const char* text, char** end);
// "YYYY/MM/DD hh:mm:ss.uuuuuu" in local time.
VELDString AbsoluteTime2String(VELDAbsoluteTime time);

// --- system paths, UTF-8; empty when the system can't tell ------------------
// The running program's file, from the link /proc/<pid>/exe.
VELDString GetCurrentBinaryPath();
// "/tmp".
VELDString GetTempFolder();
// The environment's HOME, converted from the locale.
VELDString GetUserHomeFolder();
// The process's working folder.
VELDString GetCurrentFolder();
// The file of the shared object or program that holds `symbol`.
VELDString GetSymbolFilePath(const void* symbol);
// The folder of the runtime library ("libveldor.so", else "libveldor.so.4"),
// found by its symbol "veld_init".
VELDString GetRuntimeRootDirectory();

}  // namespace VELD

// A Perl-compatible regular expression. Copies share one reference-counted
// record holding the compiled pattern and the state of the last match.
class VELDRegExp {
public:
    explicit VELDRegExp(const char* pattern = nullptr, int options = 0);
    VELDRegExp(const VELDRegExp& other);
    VELDRegExp& operator=(const VELDRegExp& other);
    ~VELDRegExp();

    // Compile anew; a record shared with copies is left to them.
    void SetPattern(const char* pattern);
    void SetOptions(int options);
    // True on a match. `options` go to the matcher.
    bool exec(const char* subject, int options = 0);

    bool Ok() const;
    const char* LastError() const;
    // Offset of a compilation error; -1 when none is recorded.
    int ErrorOffset() const;
    // Substrings of the last match, the whole match included.
    int Substrings() const;
    // Start offset of substring i of the last match, or -1.
    int Position(int i) const;
    // Length of substring i of the last match, or -1.
    int Length(int i) const;

private:
    struct Record;
    void addref();
    void decref();
    // Gives this object a record of its own.
    void newbase();
    void compile();

    Record* m_record;
};

class VELDIconvHandle;
class VELDIconvImplementation;

// Static front over one process-wide converter. Every result block is new[]
// and goes back through the matching release operation.
//
// The four descriptors are paired with the operations as the framework has
// always paired them: UTF8ToLocale runs the descriptor whose source is the
// locale and whose target is UTF-8, localeToUTF8 the opposite one, and the
// same goes for the two wide forms. On a UTF-8 locale the first pair is the
// same either way; callers that want UTF-8 from locale text use
// UTF8ToLocale (see VELDStringHelper).
class VELDIconv {
public:
    static VELDIconvHandle* open(const char* from, const char* to);
    static void close(VELDIconvHandle* handle);
    // A new block, or null for a null input or a failed conversion.
    static char* convert(VELDIconvHandle* handle, const char* in, std::size_t inBytes);

    static bool isLocaleUTF8();
    static const char* localeCodeset();

    static char* localeToUTF8(const char* text);
    static char* wideToUTF8(const wchar_t* text);
    // False, and `out` untouched, for a null input or a failed conversion.
    static bool localeToUTF8(const char* text, VELDString& out);
    static bool wideToUTF8(const wchar_t* text, VELDString& out);
    static char* UTF8ToLocale(const char* text);
    static wchar_t* UTF8ToWide(const char* text);
    // Characters of a UTF-8 text, or -1.
    static int NbColumns(const VELDString& text);

    static void releaseLocale(char* block);
    static void releaseWide(wchar_t* block);
    static void releaseUTF8(char* block);

private:
    static VELDIconvImplementation& impl();
};

// Conversions for the bus side, which works with std::string.
class VELDStringHelper {
public:
    static std::string UTF8ToLocale(const char* text);
    static std::string UTF8ToLocale(const VELDString& text);
    static VELDString LocaleToUTF8(const char* text);
    static VELDString LocaleToUTF8(const std::string& text);
};

// ---------------------------------------------------------------------------
// Paths and files

// A path and its arithmetic. The separator is "/"; the text is UTF-8 and is
// handled in bytes.
class VELDFile {
public:
    VELDFile() {}
    VELDFile(const char* path) { SetLongName(path); }
    virtual ~VELDFile() {}

    // The whole path, and the text after its last "/" as the short name.
    void SetLongName(const char* path);
    const VELDString& GetLongName() const { return m_longName; }
    const VELDString& GetShortName() const { return m_shortName; }
    VELDString GetFullPath() const { return m_longName; }

    // Starts with "/" or a backslash; an empty path is not absolute.
    bool IsAbsolute() const;
    // The text after the last "." of the path; empty without one.
    VELDString GetExtension() const;
    // Drops "." and empty elements and resolves ".." against the element
    // before it when at least two are kept. The result ends in "/". False,
    // and the path unchanged, when a ".." climbs above the root of an
    // absolute path.
    bool CompactPath();
    // The path from `base` to this one, by ".." and elements; a relative
    // path is given back as it is.
    VELDString GetRelativePath(const char* base) const;
    // This path put behind `base`, or behind the working folder without one;
    // an absolute path is given back as it is.
    VELDString GetAbsolutePath(const char* base = nullptr) const;
    // The last element and what stands before it, trailing separators aside.
    VELDString GetName() const;
    VELDString GetParentFolder() const;

    bool operator==(const VELDFile& other) const { return m_longName == other.m_longName; }
    bool operator!=(const VELDFile& other) const { return !(*this == other); }

private:
    VELDString m_shortName;
    VELDString m_longName;
};

// A buffered file over the C stream library. A failed operation answers
// false and keeps the system's reason for ShowError.
class VELDFileIO {
public:
    static const int EnableRead = 0x20;
    static const int SequentialAccess = 0x10;
    static const int RandomAccess = 0x8;
    static const int Append = 0x4;
    static const int NoBuffering = 0x2;
    static const int Asynchronous = 0x1;

    VELDFileIO();
    VELDFileIO(const VELDFileIO&) = delete;
    VELDFileIO& operator=(const VELDFileIO&) = delete;

    virtual bool Open(const char* path, int flags) = 0;
    virtual bool Close();
    // Tells the last failure (or that there was none) through the display
    // function.
    virtual void ShowError();
    virtual ~VELDFileIO();

    bool IsOpen() const;
    bool SetPos(VELDInt64 position);
    bool MovePos(int offset);
    VELDInt64 GetPos();
    bool Rewind();
    bool Go2End();
    // The size, the position left where it was; -1 when it can't be told.
    VELDInt64 FileSize();
    // The system's reason of the last failure; 0 for none.
    int LastError() const;

    // Where ShowError's texts go: by default standard error, printed with
    // "%ls\n", or "No error\n" for a null text.
    typedef void (*DisplayErrorFunction)(const wchar_t* text);
    static void displayErrorDefaultFunction(const wchar_t* text);
    static void SetDisplayErrorFunction(DisplayErrorFunction function);

protected:
    struct Record;
    // fopen with `mode`: the path as given, then converted for the locale.
    bool OpenWithMode(const char* path, const char* mode, int flags);
    // Adopts a stream that is already open.
    void Adopt(void* stream);
    // Remembers the system's reason of a failure, and answers false.
    bool Failed();
    // "<title> <reason>" through the display function.
    void ShowErrorTitled(const char* title);
    void* Stream() const;

    Record* m_record;
};

class VELDFileReader : public virtual VELDFileIO {
public:
    bool Open(const char* path, int flags = 0) override;
    void ShowError() override;

    // Up to `size` bytes; the count read, 0 at the end or on a failure.
    int Read(void* buffer, int size);
    // The next line without its line feed and one carriage return before
    // it, read in blocks of 128 bytes; the file stands just behind the line
    // afterwards. With `append` the line goes behind what `line` holds; with
    // `stopAtNul` a zero byte ends the line as well. `position`, when given,
    // receives where the line starts. False at the end of the file when
    // nothing was read.
    bool NextLine(VELDString& line, VELDInt64* position = nullptr, bool append = false, bool stopAtNul = false);
};

class VELDFileWriter : public virtual VELDFileIO {
public:
    bool Open(const char* path, int flags = 0) override;
    void ShowError() override;

    // False on a short write, which is shown.
    bool Write(const void* bytes, int size, void* reserved = nullptr);
    // The text, and a line feed after it when `newLine`.
    bool WriteText(const VELDString& text, bool newLine = false);
    // Into the system's hands and onto the disk.
    bool FlushToDisk();

protected:
    static const char* ModeFor(int flags);
};

class VELDFileWriterAndReader : public VELDFileReader, public VELDFileWriter {
public:
    bool Open(const char* path, int flags = 0) override;
    void ShowError() override;
    // A new file "vldXXXXXX" in the working folder, open for reading and
    // writing; `name` receives its name.
    virtual bool OpenTempFile(VELDString& name);
};

// An exclusive lock on a file or a folder, held through flock by an open
// descriptor: other processes (and other descriptors of this one) are kept
// out until it is released or the process ends.
class VELDFileLockerHandle {
public:
    explicit VELDFileLockerHandle(const char* path) : m_path(path), m_descriptor(-1) {}
    VELDFileLockerHandle(const VELDFileLockerHandle&) = delete;
    VELDFileLockerHandle& operator=(const VELDFileLockerHandle&) = delete;
    virtual ~VELDFileLockerHandle();

    // Without waiting: false when somebody else holds the lock or the path
    // can't be opened.
    bool TryLock();
    bool TryUnlock();
    bool IsLocked() const { return m_descriptor >= 0; }
    const VELDString& Path() const { return m_path; }

protected:
    // The descriptor that carries the lock, or -1.
    virtual int OpenDescriptor() = 0;

    VELDString m_path;
    int m_descriptor;
};

class VELDFileLockerHandleFile : public VELDFileLockerHandle {
public:
    using VELDFileLockerHandle::VELDFileLockerHandle;

protected:
    int OpenDescriptor() override;
};

class VELDFileLockerHandleDirectory : public VELDFileLockerHandle {
public:
    using VELDFileLockerHandle::VELDFileLockerHandle;

protected:
    int OpenDescriptor() override;
};

// Copies share one handle, and the last copy releases the lock.
class VELDFileLocker {
public:
    VELDFileLocker() {}
    explicit VELDFileLocker(const char* path, bool directory = false);

    bool TryLock() { return m_handle && m_handle->TryLock(); }
    bool TryUnlock() { return m_handle && m_handle->TryUnlock(); }
    bool IsLocked() const { return m_handle && m_handle->IsLocked(); }

private:
    VELDReference<VELDFileLockerHandle> m_handle;
};

#endif
