#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/file.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <clocale>
#include <locale.h>
#include <cwchar>
#include <iconv.h>
#include <langinfo.h>

#include "veld_os_c_wrappers_posix.h"
#include "veld_os_helpers.h"
#include "veld_reference.h"

// Last: its macros must not reach the headers above.
#include <X11/Xlib.h>

class VELDIconvHandle {
public:
    explicit VELDIconvHandle(iconv_t d) : descriptor(d) {}
    ~VELDIconvHandle() { iconv_close(descriptor); }

    iconv_t descriptor;
    VELDMutex mutex;
};

class VELDIconvImplementation {
public:
    VELDIconvImplementation();
    ~VELDIconvImplementation();

    VELDIconvHandle* open(const char* from, const char* to);
    void close(VELDIconvHandle* handle);
    char* convert(VELDIconvHandle* handle, const char* in, std::size_t inBytes);

    VELDMutex mutex;  // one conversion at a time
    VELDString locale;
    VELDString wide;
    VELDIconvHandle* utf8FromLocale;  // UTF8ToLocale
    VELDIconvHandle* localeFromUtf8;  // localeToUTF8
    VELDIconvHandle* utf8FromWide;    // UTF8ToWide
    VELDIconvHandle* wideFromUtf8;    // wideToUTF8
};

VELDIconvImplementation::VELDIconvImplementation()
    : utf8FromLocale(nullptr), localeFromUtf8(nullptr), utf8FromWide(nullptr), wideFromUtf8(nullptr)
{
    std::setlocale(LC_ALL, "");
    const char* codeset = nl_langinfo(CODESET);
    locale = codeset;
    // Numbers are written and read the same whatever the user's locale.
    std::setlocale(LC_NUMERIC, "C");
    wide = "UTF-32";
    if (!codeset) return;
    mutex.Lock();
    // iconv_open takes the target first.
    utf8FromLocale = open(locale, "UTF-8");
    localeFromUtf8 = open("UTF-8", locale);
    utf8FromWide = open(wide, "UTF-8");
    wideFromUtf8 = open("UTF-8", wide);
    mutex.Release();
}

VELDIconvImplementation::~VELDIconvImplementation()
{
    close(utf8FromLocale);
    close(localeFromUtf8);
    close(utf8FromWide);
    close(wideFromUtf8);
}

VELDIconvHandle* VELDIconvImplementation::open(const char* from, const char* to)
{
    iconv_t d = iconv_open(to, from);
    if (d == reinterpret_cast<iconv_t>(-1)) return nullptr;
    return new VELDIconvHandle(d);
}

void VELDIconvImplementation::close(VELDIconvHandle* handle) { delete handle; }

char* VELDIconvImplementation::convert(VELDIconvHandle* handle, const char* in, std::size_t inBytes)
{
    if (!in || !handle) return nullptr;
    std::size_t size = inBytes ? inBytes : 1;
    char* out = new char[size];
    handle->mutex.Lock();
    mutex.Lock();
    for (;;) {
        iconv(handle->descriptor, nullptr, nullptr, nullptr, nullptr);  // fresh shift state
        char* src = const_cast<char*>(in);
        std::size_t srcLeft = inBytes;
        char* dst = out;
        std::size_t dstLeft = size;
        if (iconv(handle->descriptor, &src, &srcLeft, &dst, &dstLeft) != static_cast<std::size_t>(-1)) break;
        int error = errno;
        delete[] out;
        out = nullptr;
        if (error != E2BIG) break;  // EINVAL, EILSEQ and the rest: no result
        size *= 2;
        out = new char[size];
    }
    mutex.Release();
    handle->mutex.Release();
    return out;
}

VELDIconvImplementation& VELDIconv::impl()
{
    static VELDReference<VELDIconvImplementation> m_impl(new VELDIconvImplementation());
    return *m_impl;
}

VELDIconvHandle* VELDIconv::open(const char* from, const char* to) { return impl().open(from, to); }
void VELDIconv::close(VELDIconvHandle* handle) { impl().close(handle); }

char* VELDIconv::convert(VELDIconvHandle* handle, const char* in, std::size_t inBytes)
{
    return impl().convert(handle, in, inBytes);
}

const char* VELDIconv::localeCodeset() { return impl().locale; }

bool VELDIconv::isLocaleUTF8()
{
    VELDString codeset(impl().locale);
    codeset.Lowercase();
    return codeset.FindStr("utf8") >= 0 || codeset.FindStr("utf-8") >= 0;
}

char* VELDIconv::localeToUTF8(const char* text)
{
    if (!text) return nullptr;
    return impl().convert(impl().localeFromUtf8, text, std::strlen(text) + 1);
}

char* VELDIconv::wideToUTF8(const wchar_t* text)
{
    if (!text) return nullptr;
    return impl().convert(impl().wideFromUtf8, reinterpret_cast<const char*>(text),
                          (std::wcslen(text) + 1) * sizeof(wchar_t));
}

bool VELDIconv::localeToUTF8(const char* text, VELDString& out)
{
    char* block = localeToUTF8(text);
    if (!block) return false;
    out = block;
    releaseUTF8(block);
    return true;
}

bool VELDIconv::wideToUTF8(const wchar_t* text, VELDString& out)
{
    char* block = wideToUTF8(text);
    if (!block) return false;
    out = block;
    releaseUTF8(block);
    return true;
}

char* VELDIconv::UTF8ToLocale(const char* text)
{
    if (!text) return nullptr;
    return impl().convert(impl().utf8FromLocale, text, static_cast<std::size_t>(VELD::Strlen(text)) + 1);
}

wchar_t* VELDIconv::UTF8ToWide(const char* text)
{
    if (!text) return nullptr;
    char* block = impl().convert(impl().utf8FromWide, text, static_cast<std::size_t>(VELD::Strlen(text)) + 1);
    return reinterpret_cast<wchar_t*>(block);
}

int VELDIconv::NbColumns(const VELDString& text)
{
    if (!text.Beginning()) return -1;
    wchar_t* block = UTF8ToWide(text);
    if (!block) return -1;
    int n = static_cast<int>(std::wcslen(block));
    releaseWide(block);
    return n;
}

void VELDIconv::releaseLocale(char* block) { delete[] block; }
void VELDIconv::releaseWide(wchar_t* block) { delete[] reinterpret_cast<char*>(block); }
void VELDIconv::releaseUTF8(char* block) { delete[] block; }

// ---------------------------------------------------------------------------
// Sleeping, threads, dates

void VELD::Sleep(VELDInt64 microseconds)
{
    if (microseconds <= 0) return;
    timespec span;
    span.tv_sec = static_cast<time_t>(microseconds / 1000000);
    span.tv_nsec = static_cast<long>(microseconds % 1000000) * 1000;
    // Interrupted, the sleep starts over with the full time.
    while (nanosleep(&span, nullptr) != 0 && errno == EINTR) {
    }
}

void VELD::Wait4AWhile() { VELD::Sleep(10000); }

void VELD::ReleaseCurrentThread() { sched_yield(); }

namespace {

struct ThreadStart {
    void* (*body)(void*);
    void* arg;
};

void* RunThread(void* p)
{
    ThreadStart start = *static_cast<ThreadStart*>(p);
    delete static_cast<ThreadStart*>(p);
    // Numbers are written and read the same on every thread.
    locale_t c = newlocale(LC_NUMERIC_MASK, "C", static_cast<locale_t>(nullptr));
    if (c) uselocale(c);
    void* result = start.body(start.arg);
    if (c) {
        uselocale(LC_GLOBAL_LOCALE);
        freelocale(c);
    }
    return result;
}

}  // namespace

bool VELD::CreateThread(void* (*body)(void*), void* arg)
{
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) return false;
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_attr_setinheritsched(&attributes, 0);
    ThreadStart* start = new ThreadStart{body, arg};
    pthread_t thread;
    int error = pthread_create(&thread, &attributes, RunThread, start);
    pthread_attr_destroy(&attributes);
    if (error != 0) {
        delete start;
        return false;
    }
    return true;
}

VELDString VELD::AbsoluteTime2String(VELDAbsoluteTime time)
{
    time_t seconds = static_cast<time_t>(time / 1000000);
    long micro = static_cast<long>(time % 1000000);
    if (micro < 0) {
        micro += 1000000;
        --seconds;
    }
    tm local;
    localtime_r(&seconds, &local);
    char text[64];
    std::snprintf(text, sizeof text, "%04d/%02d/%02d %02d:%02d:%02d.%06ld", local.tm_year + 1900, local.tm_mon + 1,
                  local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, micro);
    return VELDString(text);
}

// ---------------------------------------------------------------------------
// System paths

namespace {

// `text` from the locale into UTF-8; as it stands when it can't be converted.
VELDString FromLocale(const char* text)
{
    VELDString utf8;
    if (!text) return utf8;
    if (!VELDIconv::localeToUTF8(text, utf8)) utf8 = text;
    return utf8;
}

}  // namespace

VELDString VELD::GetCurrentBinaryPath()
{
    char link[64];
    std::snprintf(link, sizeof link, "/proc/%d/exe", static_cast<int>(getpid()));
    char path[PATH_MAX];
    const ssize_t n = readlink(link, path, sizeof path - 1);
    if (n < 0) return VELDString();
    path[n] = 0;
    return VELDString(path);
}

VELDString VELD::GetTempFolder() { return VELDString("/tmp"); }

VELDString VELD::GetUserHomeFolder() { return FromLocale(std::getenv("HOME")); }

VELDString VELD::GetCurrentFolder()
{
    char path[PATH_MAX];
    return getcwd(path, sizeof path) ? FromLocale(path) : VELDString();
}

VELDString VELD::GetSymbolFilePath(const void* symbol)
{
    Dl_info info;
    if (!symbol || dladdr(symbol, &info) == 0 || !info.dli_fname) return VELDString();
    return VELDString(info.dli_fname);
}

VELDString VELD::GetRuntimeRootDirectory()
{
    for (const char* name : {"libveldor.so", "libveldor.so.4"}) {
        void* library = dlopen(name, RTLD_LAZY);
        if (!library) continue;
        const void* symbol = dlsym(library, "veld_init");
        const VELDString path = GetSymbolFilePath(symbol);
        dlclose(library);
        if (path.Length() > 0) return VELDFile(path).GetParentFolder();
    }
    return VELDString();
}

// ---------------------------------------------------------------------------
// Files

struct VELDFileIO::Record {
    std::FILE* file = nullptr;
    int error = 0;  // errno of the last failure
};

namespace {

VELDFileIO::DisplayErrorFunction g_displayError = &VELDFileIO::displayErrorDefaultFunction;

}  // namespace

void VELDFileIO::displayErrorDefaultFunction(const wchar_t* text)
{
    if (text)
        std::fprintf(stderr, "%ls\n", text);
    else
        std::fprintf(stderr, "No error\n");
}

void VELDFileIO::SetDisplayErrorFunction(DisplayErrorFunction function)
{
    g_displayError = function ? function : &displayErrorDefaultFunction;
}

VELDFileIO::VELDFileIO() : m_record(new Record()) {}

VELDFileIO::~VELDFileIO()
{
    VELDFileIO::Close();
    delete m_record;
}

bool VELDFileIO::IsOpen() const { return m_record->file != nullptr; }
void* VELDFileIO::Stream() const { return m_record->file; }
int VELDFileIO::LastError() const { return m_record->error; }

bool VELDFileIO::Failed()
{
    m_record->error = errno ? errno : EIO;
    return false;
}

bool VELDFileIO::Close()
{
    if (!m_record->file) return true;
    const int closed = std::fclose(m_record->file);
    m_record->file = nullptr;
    return closed == 0 || Failed();
}

bool VELDFileIO::OpenWithMode(const char* path, const char* mode, int flags)
{
    Close();
    m_record->error = 0;
    if (!path) {
        m_record->error = EINVAL;
        return false;
    }
    std::FILE* file = std::fopen(path, mode);
    int error = errno;
    if (!file) {
        char* local = VELDIconv::UTF8ToLocale(path);
        if (local) {
            file = std::fopen(local, mode);
            if (!file) error = errno;
            VELDIconv::releaseLocale(local);
        }
    }
    if (!file) {
        m_record->error = error;
        return false;
    }
    if (flags & NoBuffering) std::setvbuf(file, nullptr, _IONBF, 0);
    m_record->file = file;
    return true;
}

void VELDFileIO::Adopt(void* stream)
{
    Close();
    m_record->error = 0;
    m_record->file = static_cast<std::FILE*>(stream);
}

bool VELDFileIO::SetPos(VELDInt64 position)
{
    if (!m_record->file) return (errno = EBADF, Failed());
    return fseeko(m_record->file, static_cast<off_t>(position), SEEK_SET) == 0 || Failed();
}

bool VELDFileIO::MovePos(int offset)
{
    if (!m_record->file) return (errno = EBADF, Failed());
    return fseeko(m_record->file, offset, SEEK_CUR) == 0 || Failed();
}

VELDInt64 VELDFileIO::GetPos()
{
    if (!m_record->file) return (errno = EBADF, Failed(), -1);
    const off_t position = ftello(m_record->file);
    if (position < 0) Failed();
    return position;
}

bool VELDFileIO::Rewind() { return SetPos(0); }

bool VELDFileIO::Go2End()
{
    if (!m_record->file) return (errno = EBADF, Failed());
    return fseeko(m_record->file, 0, SEEK_END) == 0 || Failed();
}

VELDInt64 VELDFileIO::FileSize()
{
    const VELDInt64 here = GetPos();
    if (here < 0 || !Go2End()) return -1;
    const VELDInt64 size = GetPos();
    SetPos(here);
    return size;
}

void VELDFileIO::ShowError() { ShowErrorTitled("File read/write error:"); }

void VELDFileIO::ShowErrorTitled(const char* title)
{
    if (m_record->error == 0) {
        g_displayError(nullptr);
        return;
    }
    const std::size_t n = std::strlen(title);
    const char* glue = n > 0 && title[n - 1] == ':' ? " " : ": ";
    wchar_t text[512];
    std::swprintf(text, sizeof text / sizeof text[0], L"%s%s%s", title, glue, std::strerror(m_record->error));
    g_displayError(text);
}

bool VELDFileReader::Open(const char* path, int flags) { return OpenWithMode(path, "rb", flags); }

void VELDFileReader::ShowError() { ShowErrorTitled("File read error"); }

int VELDFileReader::Read(void* buffer, int size)
{
    std::FILE* file = static_cast<std::FILE*>(Stream());
    if (!file || !buffer || size <= 0) return 0;
    const std::size_t n = std::fread(buffer, 1, static_cast<std::size_t>(size), file);
    if (n < static_cast<std::size_t>(size) && std::ferror(file)) Failed();
    return static_cast<int>(n);
}

bool VELDFileReader::NextLine(VELDString& line, VELDInt64* position, bool append, bool stopAtNul)
{
    if (!append) line.Clear();
    std::FILE* file = static_cast<std::FILE*>(Stream());
    if (!file) return false;
    const off_t start = ftello(file);
    if (position) *position = start;
    char block[128];
    off_t taken = 0;
    bool any = false;
    for (;;) {
        const std::size_t n = std::fread(block, 1, sizeof block, file);
        if (n == 0) {
            if (std::ferror(file)) Failed();
            break;
        }
        any = true;
        std::size_t end = 0;
        while (end < n && block[end] != '\n' && !(stopAtNul && block[end] == 0)) ++end;
        line.Append(block, static_cast<int>(end));
        taken += static_cast<off_t>(end);
        if (end < n) {
            ++taken;  // the line feed
            break;
        }
    }
    // Blocks read past the line: the file goes back to just behind it.
    if (start >= 0) fseeko(file, start + taken, SEEK_SET);
    if (line.Length() > 0 && line[line.Length() - 1] == '\r') line.Shorten(1);
    return any;
}

const char* VELDFileWriter::ModeFor(int flags)
{
    if (!(flags & Append)) return (flags & EnableRead) ? "w+b" : "wb";
    if (!(flags & EnableRead)) return "ab";
    return (flags & RandomAccess) ? "r+b" : "a+b";
}

bool VELDFileWriter::Open(const char* path, int flags) { return OpenWithMode(path, ModeFor(flags), flags); }

void VELDFileWriter::ShowError() { ShowErrorTitled("File write error:"); }

bool VELDFileWriter::Write(const void* bytes, int size, void*)
{
    std::FILE* file = static_cast<std::FILE*>(Stream());
    if (size <= 0) return true;
    const bool written =
        file ? std::fwrite(bytes, 1, static_cast<std::size_t>(size), file) == static_cast<std::size_t>(size)
             : (errno = EBADF, false);
    if (written) return true;
    Failed();
    ShowError();
    return false;
}

bool VELDFileWriter::WriteText(const VELDString& text, bool newLine)
{
    return Write(text.Beginning(), text.Length()) && (!newLine || Write("\n", 1));
}

bool VELDFileWriter::FlushToDisk()
{
    std::FILE* file = static_cast<std::FILE*>(Stream());
    if (file && std::fflush(file) == 0 && fsync(fileno(file)) == 0) return true;
    if (!file) errno = EBADF;
    Failed();
    ShowError();
    return false;
}

bool VELDFileWriterAndReader::Open(const char* path, int flags)
{
    return OpenWithMode(path, ModeFor(flags | EnableRead), flags);
}

void VELDFileWriterAndReader::ShowError() { ShowErrorTitled("File read/write error:"); }

bool VELDFileWriterAndReader::OpenTempFile(VELDString& name)
{
    char pattern[] = "vldXXXXXX";
    const int descriptor = mkstemp(pattern);
    if (descriptor < 0) return Failed();
    // Read and write: the file is new, and this object is its only user.
    std::FILE* file = fdopen(descriptor, "w+b");
    if (!file) {
        Failed();
        close(descriptor);
        return false;
    }
    Adopt(file);
    name = FromLocale(pattern);
    return true;
}

// ---------------------------------------------------------------------------
// Locks

namespace {

// open(2) with the path as given, then converted for the locale.
int OpenPath(const char* path, int flags)
{
    int descriptor = open(path, flags | O_CLOEXEC);
    if (descriptor < 0) {
        char* local = VELDIconv::UTF8ToLocale(path);
        if (local) descriptor = open(local, flags | O_CLOEXEC);
        VELDIconv::releaseLocale(local);
    }
    return descriptor;
}

}  // namespace

VELDFileLockerHandle::~VELDFileLockerHandle() { TryUnlock(); }

bool VELDFileLockerHandle::TryLock()
{
    if (m_descriptor >= 0) return true;
    const int descriptor = OpenDescriptor();
    if (descriptor < 0) return false;
    if (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        close(descriptor);
        return false;
    }
    m_descriptor = descriptor;
    return true;
}

bool VELDFileLockerHandle::TryUnlock()
{
    if (m_descriptor < 0) return false;
    const bool unlocked = flock(m_descriptor, LOCK_UN) == 0;
    close(m_descriptor);
    m_descriptor = -1;
    return unlocked;
}

int VELDFileLockerHandleFile::OpenDescriptor() { return OpenPath(m_path, O_RDONLY); }
int VELDFileLockerHandleDirectory::OpenDescriptor() { return OpenPath(m_path, O_RDONLY | O_DIRECTORY); }

VELDFileLocker::VELDFileLocker(const char* path, bool directory)
    : m_handle(directory ? static_cast<VELDFileLockerHandle*>(new VELDFileLockerHandleDirectory(path))
                         : new VELDFileLockerHandleFile(path))
{
}

// ---------------------------------------------------------------------------
// Message box

namespace {

int ReportX11Error(Display* display, XErrorEvent* event)
{
    char text[256];
    XGetErrorText(display, event->error_code, text, sizeof text);
    std::fprintf(stderr, "X11 error: %s\n", text);
    return 0;
}

void ShowWindow(const char* title, const char* text)
{
    Display* display = XOpenDisplay(nullptr);
    if (!display) display = XOpenDisplay(":0");
    if (!display) return;
    XSetErrorHandler(ReportX11Error);
    XFontStruct* font = XLoadQueryFont(display, "fixed");
    if (!font) {
        XCloseDisplay(display);
        return;
    }

    VELDArray<VELDString> lines = VELDString(text).Split('\n');
    const int margin = 10;
    int lineHeight = font->ascent + font->descent;
    int width = 0;
    for (int i = 0; i < lines.Size(); ++i) {
        int direction, ascent, descent;
        XCharStruct extent;
        XTextExtents(font, lines[i], lines[i].Length(), &direction, &ascent, &descent, &extent);
        if (extent.width > width) width = extent.width;
    }
    width += 2 * margin;
    int height = lineHeight * lines.Size() + 2 * margin;
    int screen = DefaultScreen(display);
    int x = (DisplayWidth(display, screen) - width) / 2;
    int y = (DisplayHeight(display, screen) - height) / 2;
    Window window = XCreateSimpleWindow(display, RootWindow(display, screen), x, y, static_cast<unsigned>(width),
                                        static_cast<unsigned>(height), 1, BlackPixel(display, screen),
                                        WhitePixel(display, screen));
    XStoreName(display, window, title ? title : "");
    XSelectInput(display, window, ExposureMask | KeyPressMask | ButtonPressMask);
    Atom deleteWindow = XInternAtom(display, "WM_DELETE_WINDOW", False);
    XSetWMProtocols(display, window, &deleteWindow, 1);
    GC gc = XCreateGC(display, window, 0, nullptr);
    XSetFont(display, gc, font->fid);
    XSetForeground(display, gc, BlackPixel(display, screen));
    XMapWindow(display, window);

    for (bool done = false; !done;) {
        XEvent event;
        XNextEvent(display, &event);
        switch (event.type) {
        case Expose:
            for (int i = 0; i < lines.Size(); ++i)
                XDrawString(display, window, gc, margin, margin + font->ascent + i * lineHeight, lines[i],
                            lines[i].Length());
            break;
        case KeyPress:
        case ButtonPress:
            done = true;
            break;
        case ClientMessage:
            done = static_cast<Atom>(event.xclient.data.l[0]) == deleteWindow;
            break;
        default:
            break;
        }
    }
    XFreeGC(display, gc);
    XDestroyWindow(display, window);
    XFreeFont(display, font);
    XCloseDisplay(display);
}

}  // namespace

void VELD::MsgBox(const char* title, const char* text, int kind)
{
    if (kind == 1)
        std::fprintf(stdout, "Warning: %s: %s\n", title ? title : "", text ? text : "");
    else if (kind == 2)
        std::fprintf(stderr, "Error: %s: %s\n", title ? title : "", text ? text : "");
    else
        std::fprintf(stdout, "%s: %s\n", title ? title : "", text ? text : "");
    std::fflush(kind == 2 ? stderr : stdout);
    if (std::getenv("SILENT") || std::getenv("VELDOR_SILENT")) return;
    ShowWindow(title, text ? text : "");
}
