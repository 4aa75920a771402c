// Paths and files: path arithmetic on odd paths, the open modes by what they
// do to a file, lines, errors as shown, locks between two processes, the
// system's folders, and names outside ASCII, also in a Latin-1 locale.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "veld_os_helpers.h"

extern char** environ;

namespace {

class Folder {
public:
    Folder()
    {
        char pattern[] = "/tmp/veld_files.XXXXXX";
        m_path = mkdtemp(pattern);
    }
    ~Folder() { std::system(("rm -rf '" + m_path + "'").c_str()); }
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }
    const std::string& Path() const { return m_path; }

private:
    std::string m_path;
};

std::string Slurp(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void Put(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

// What ShowError displays, kept by the test.
std::string g_shown;
void Keep(const wchar_t* text)
{
    char narrow[512] = "No error";
    if (text) std::snprintf(narrow, sizeof narrow, "%ls", text);
    g_shown = narrow;
}

// ---------------------------------------------------------------------------
// Path arithmetic

struct CompactCase {
    const char* path;
    bool done;
    const char* result;
};

class Compact : public ::testing::TestWithParam<CompactCase> {};

TEST_P(Compact, DropsDotsAndEmptyElementsAndClimbsWhereItMay)
{
    VELDFile file(GetParam().path);
    EXPECT_EQ(file.CompactPath(), GetParam().done);
    EXPECT_STREQ(file.GetLongName(), GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(
    OddPaths, Compact,
    ::testing::Values(CompactCase{"a/./b", true, "a/b/"}, CompactCase{"/x/y/../z", true, "/x/z/"},
                      CompactCase{"//a///b/.", true, "/a/b/"}, CompactCase{"a/b/c/../../d", true, "a/d/"},
                      // A ".." is resolved only against one of two elements kept.
                      CompactCase{"a/../b", true, "a/../b/"}, CompactCase{"../../a", true, "../../a/"},
                      CompactCase{"/../a", false, "/../a"}, CompactCase{"/a/../b", false, "/a/../b"},
                      CompactCase{"./", true, ""}, CompactCase{"", true, ""}));

struct PartsCase {
    const char* path;
    const char* name;
    const char* parent;
    const char* shortName;
    const char* extension;
    bool absolute;
};

class Parts : public ::testing::TestWithParam<PartsCase> {};

TEST_P(Parts, SplitAtTheLastSeparator)
{
    const PartsCase& c = GetParam();
    VELDFile file(c.path);
    EXPECT_STREQ(file.GetName(), c.name);
    EXPECT_STREQ(file.GetParentFolder(), c.parent);
    EXPECT_STREQ(file.GetShortName(), c.shortName);
    EXPECT_STREQ(file.GetExtension(), c.extension);
    EXPECT_EQ(file.IsAbsolute(), c.absolute);
}

INSTANTIATE_TEST_SUITE_P(Paths, Parts,
                         ::testing::Values(PartsCase{"/a/b/c.tar.gz", "c.tar.gz", "/a/b", "c.tar.gz", "gz", true},
                                           PartsCase{"/a/b//", "b", "/a", "", "", true},
                                           PartsCase{"/top", "top", "/", "top", "", true},
                                           PartsCase{"/", "", "/", "", "", true},
                                           PartsCase{"plain", "plain", "", "plain", "", false},
                                           PartsCase{"\\share\\x", "\\share\\x", "", "\\share\\x", "", true},
                                           PartsCase{"", "", "", "", "", false}));

struct RelativeCase {
    const char* path;
    const char* base;
    const char* relative;
};

class Relative : public ::testing::TestWithParam<RelativeCase> {};

TEST_P(Relative, ClimbsFromTheBaseAndDescendsToThePath)
{
    EXPECT_STREQ(VELDFile(GetParam().path).GetRelativePath(GetParam().base), GetParam().relative);
}

INSTANTIATE_TEST_SUITE_P(Paths, Relative,
                         ::testing::Values(RelativeCase{"/a/b/c.txt", "/a/d", "../b/c.txt"},
                                           RelativeCase{"/a/b/c", "/a", "b/c"},
                                           RelativeCase{"/a/./b/../c", "/a/x/..", "c"},
                                           RelativeCase{"/a/b", "/a/b/", "."},
                                           RelativeCase{"/etc", "/usr/lib/x", "../../../etc"},
                                           RelativeCase{"rel/x", "/a", "rel/x"}));

TEST(Paths, AbsolutePathsPutARelativeOneBehindItsBase)
{
    EXPECT_STREQ(VELDFile("x/y").GetAbsolutePath("/base"), "/base/x/y");
    EXPECT_STREQ(VELDFile("x").GetAbsolutePath("/base/"), "/base/x");
    EXPECT_STREQ(VELDFile("/abs").GetAbsolutePath("/base"), "/abs");
    char here[4096];
    ASSERT_NE(getcwd(here, sizeof here), nullptr);
    EXPECT_EQ(std::string(VELDFile("x").GetAbsolutePath()), std::string(here) + "/x");
    EXPECT_TRUE(VELDFile("/a/b") == VELDFile("/a/b"));
    EXPECT_TRUE(VELDFile("/a/b") != VELDFile("/a/b/"));
}

// ---------------------------------------------------------------------------
// Files

struct ModeCase {
    int flags;
    const char* after;  // "old" written over by "XY", then read back from the start
};

class WriterModes : public ::testing::TestWithParam<ModeCase> {};

TEST_P(WriterModes, TruncateAppendOrOverwriteAsTheFlagsSay)
{
    Folder folder;
    const std::string path = folder / "f.bin";
    Put(path, "old");
    VELDFileWriterAndReader both;
    VELDFileWriter writer;
    const bool readable = (GetParam().flags & VELDFileIO::EnableRead) != 0;
    VELDFileWriter& file = readable ? static_cast<VELDFileWriter&>(both) : writer;
    ASSERT_TRUE(file.Open(path.c_str(), GetParam().flags));
    ASSERT_TRUE(file.Write("XY", 2));
    if (readable) {
        ASSERT_TRUE(both.Rewind());
        char back[16] = {};
        EXPECT_EQ(both.Read(back, sizeof back), static_cast<int>(std::strlen(GetParam().after)));
        EXPECT_STREQ(back, GetParam().after);
    }
    ASSERT_TRUE(file.Close());
    EXPECT_EQ(Slurp(path), GetParam().after);
}

INSTANTIATE_TEST_SUITE_P(
    Flags, WriterModes,
    ::testing::Values(ModeCase{0, "XY"}, ModeCase{VELDFileIO::EnableRead, "XY"}, ModeCase{VELDFileIO::Append, "oldXY"},
                      ModeCase{VELDFileIO::Append | VELDFileIO::EnableRead, "oldXY"},
                      ModeCase{VELDFileIO::Append | VELDFileIO::EnableRead | VELDFileIO::RandomAccess, "XYd"}));

TEST(Files, LinesComeWithoutTheirEndsAndWhereTheyStart)
{
    Folder folder;
    const std::string path = folder / "lines.txt";
    const std::string longLine(300, 'z');
    std::string text = "ab\r\n\n" + longLine + "\nnul";
    text += '\0';
    text += "rest\nlast";
    Put(path, text);

    VELDFileReader reader;
    ASSERT_TRUE(reader.Open(path.c_str()));
    const VELDInt64 size = reader.FileSize();
    EXPECT_EQ(size, static_cast<VELDInt64>(text.size()));
    EXPECT_EQ(reader.GetPos(), 0);
    VELDString line("stale");
    VELDInt64 at = -1;
    const struct {
        const char* line;
        VELDInt64 at;
        bool stopAtNul;
    } expected[] = {{"ab", 0, false}, {"", 4, false}, {longLine.c_str(), 5, false}, {"nul", 306, true},
                    {"rest", 310, false}, {"last", 315, false}};
    for (const auto& e : expected) {
        ASSERT_TRUE(reader.NextLine(line, &at, false, e.stopAtNul)) << e.at;
        EXPECT_STREQ(line, e.line);
        EXPECT_EQ(at, e.at);
    }
    EXPECT_FALSE(reader.NextLine(line));
    EXPECT_EQ(line.Length(), 0);
    EXPECT_TRUE(reader.SetPos(3));
    EXPECT_EQ(reader.FileSize(), size);
    EXPECT_EQ(reader.GetPos(), 3);  // where it was
    EXPECT_TRUE(reader.MovePos(-2));
    ASSERT_TRUE(reader.NextLine(line, nullptr, false, false));
    EXPECT_STREQ(line, "b");
}

TEST(Files, ErrorsAreShownWithTheirTitleAndReason)
{
    VELDFileIO::SetDisplayErrorFunction(Keep);
    VELDFileReader reader;
    reader.ShowError();
    EXPECT_EQ(g_shown, "No error");
    EXPECT_FALSE(reader.Open("/nonexistent/veld/file"));
    reader.ShowError();
    EXPECT_EQ(g_shown, std::string("File read error: ") + std::strerror(ENOENT));

    VELDFileWriter full;
    ASSERT_TRUE(full.Open("/dev/full"));
    ASSERT_TRUE(full.Write("x", 1));  // into the buffer
    EXPECT_FALSE(full.FlushToDisk());
    EXPECT_EQ(g_shown, std::string("File write error: ") + std::strerror(ENOSPC));

    VELDFileWriterAndReader both;
    EXPECT_FALSE(both.Write("x", 1));  // not open
    EXPECT_EQ(g_shown, std::string("File read/write error: ") + std::strerror(EBADF));
    VELDFileIO::SetDisplayErrorFunction(nullptr);
}

TEST(Files, ATempFileIsMadeInTheWorkingFolderForReadingAndWriting)
{
    Folder folder;
    char here[4096];
    ASSERT_NE(getcwd(here, sizeof here), nullptr);
    ASSERT_EQ(chdir(folder.Path().c_str()), 0);
    VELDFileWriterAndReader temp;
    VELDString name;
    const bool opened = temp.OpenTempFile(name);
    const bool written = opened && temp.WriteText("hello", true) && temp.Rewind();
    VELDString line;
    const bool read = written && temp.NextLine(line);
    ASSERT_EQ(chdir(here), 0);
    ASSERT_TRUE(read);
    EXPECT_STREQ(line, "hello");
    EXPECT_EQ(std::string(name).rfind("vld", 0), 0u);
    EXPECT_EQ(std::string(name).size(), 9u);
    temp.Close();
    EXPECT_EQ(Slurp(folder / std::string(name)), "hello\n");
}

// ---------------------------------------------------------------------------
// Locks across processes

class Locks : public ::testing::TestWithParam<bool> {};

TEST_P(Locks, AreHeldAgainstAnotherProcessUntilReleased)
{
    Folder folder;
    const bool directory = GetParam();
    const std::string path = directory ? folder.Path() : folder / "lock";
    if (!directory) Put(path, "");
    int held[2], release[2];
    ASSERT_EQ(pipe(held), 0);
    ASSERT_EQ(pipe(release), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        VELDFileLocker mine(path.c_str(), directory);
        const char ok = mine.TryLock() ? 'L' : 'F';
        char go = 0;
        _exit(write(held[1], &ok, 1) == 1 && read(release[0], &go, 1) == 1 && mine.TryUnlock() ? 0 : 1);
    }
    char state = 0;
    ASSERT_EQ(read(held[0], &state, 1), 1);
    ASSERT_EQ(state, 'L');
    VELDFileLocker ours(path.c_str(), directory);
    EXPECT_FALSE(ours.TryLock());
    EXPECT_FALSE(ours.IsLocked());
    ASSERT_EQ(write(release[1], "u", 1), 1);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_TRUE(ours.TryLock());
    // A copy shares the lock; another locker of this process is kept out too.
    VELDFileLocker copy = ours;
    EXPECT_TRUE(copy.IsLocked());
    VELDFileLocker other(path.c_str(), directory);
    EXPECT_FALSE(other.TryLock());
    EXPECT_TRUE(copy.TryUnlock());
    EXPECT_FALSE(ours.IsLocked());
    EXPECT_TRUE(other.TryLock());
    for (int fd : {held[0], held[1], release[0], release[1]}) close(fd);
}

INSTANTIATE_TEST_SUITE_P(FileAndFolder, Locks, ::testing::Bool());

TEST(Locks, AMissingPathCannotBeLocked)
{
    EXPECT_FALSE(VELDFileLocker("/nonexistent/veld.lock").TryLock());
    EXPECT_FALSE(VELDFileLocker("/etc/hostname", true).TryLock());  // not a folder
    EXPECT_FALSE(VELDFileLocker().TryLock());
}

// ---------------------------------------------------------------------------
// System folders

TEST(SystemPaths, TempHomeWorkingFolderAndThisProgram)
{
    EXPECT_STREQ(VELD::GetTempFolder(), "/tmp");
    const char* before = std::getenv("HOME");
    const std::string saved = before ? before : "";
    setenv("HOME", "/home/tester", 1);
    EXPECT_STREQ(VELD::GetUserHomeFolder(), "/home/tester");
    unsetenv("HOME");
    EXPECT_STREQ(VELD::GetUserHomeFolder(), "");
    if (before) setenv("HOME", saved.c_str(), 1);

    char here[4096];
    ASSERT_NE(getcwd(here, sizeof here), nullptr);
    EXPECT_STREQ(VELD::GetCurrentFolder(), here);
    const std::string self = VELD::GetCurrentBinaryPath().Beginning();
    EXPECT_STREQ(VELDFile(self.c_str()).GetName(), "foundation_tests");
    const VELDString symbolFile = VELD::GetSymbolFilePath(reinterpret_cast<const void*>(&Slurp));
    EXPECT_STREQ(VELDFile(symbolFile).GetName(), "foundation_tests");
}

TEST(SystemPaths, TheRuntimeRootIsTheFolderOfTheRuntimeLibrary)
{
    // The test's runtime library lies in a folder on this program's search
    // path (see tests/CMakeLists.txt).
    EXPECT_STREQ(VELD::GetRuntimeRootDirectory(), VELDOR_RUNTIME_PROBE_DIR);
}

// ---------------------------------------------------------------------------
// Names outside ASCII

TEST(FileNames, OutsideAsciiAreBytesToThePathsAndTheFiles)
{
    Folder folder;
    const std::string path = folder / "donn\xC3\xA9" "es/caf\xC3\xA9.velt";
    ASSERT_EQ(mkdir((folder / "donn\xC3\xA9" "es").c_str(), 0700), 0);
    VELDFileWriter writer;
    ASSERT_TRUE(writer.Open(path.c_str()));
    ASSERT_TRUE(writer.WriteText("\xE2\x82\xAC", false));
    writer.Close();
    EXPECT_EQ(Slurp(path), "\xE2\x82\xAC");
    VELDFile file(path.c_str());
    EXPECT_STREQ(file.GetName(), "caf\xC3\xA9.velt");
    EXPECT_STREQ(VELDFile(file.GetParentFolder()).GetName(), "donn\xC3\xA9" "es");
    EXPECT_STREQ(file.GetExtension(), "velt");
    VELDFileLocker lock(path.c_str());
    EXPECT_TRUE(lock.TryLock());
}

// In a locale of another encoding, a name that does not open as it is given
// opens as the locale's conversion makes it. The locale is built into a
// folder of the test, and this program runs the second half in it.
TEST(FileNames, OpenOnTheSecondTryUnderTheLocalesName)
{
    if (std::system("command -v localedef >/dev/null 2>&1") != 0) GTEST_SKIP() << "no localedef";
    Folder folder;
    const std::string make = "localedef -i en_US -f ISO-8859-1 '" + (folder / "en_US.ISO-8859-1") + "' >/dev/null 2>&1";
    if (std::system(make.c_str()) != 0) GTEST_SKIP() << "localedef cannot build a Latin-1 locale here";
    const std::string self = VELD::GetCurrentBinaryPath().Beginning();
    const std::string locpath = "LOCPATH=" + folder.Path(), lang = "LC_ALL=en_US.ISO-8859-1",
                      child = "VELDOR_FILES_CHILD=" + folder.Path();
    std::vector<char*> env;
    for (char** e = environ; *e; ++e)
        if (std::strncmp(*e, "LC_ALL=", 7) != 0 && std::strncmp(*e, "LOCPATH=", 8) != 0) env.push_back(*e);
    for (const std::string* s : {&locpath, &lang, &child}) env.push_back(const_cast<char*>(s->c_str()));
    env.push_back(nullptr);
    std::string filter = "--gtest_filter=FileNamesInLatin1.*";
    char* argv[] = {const_cast<char*>(self.c_str()), &filter[0], nullptr};
    pid_t pid = 0;
    ASSERT_EQ(posix_spawn(&pid, self.c_str(), nullptr, nullptr, argv, env.data()), 0);
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST(FileNamesInLatin1, TheSecondTry)
{
    const char* folder = std::getenv("VELDOR_FILES_CHILD");
    if (!folder) GTEST_SKIP() << "run by FileNames.OpenOnTheSecondTryUnderTheLocalesName";
    ASSERT_STREQ(VELDIconv::localeCodeset(), "ISO-8859-1");
    const std::string name = std::string(folder) + "/caf\xC3\xA9.txt";
    char* converted = VELDIconv::UTF8ToLocale(name.c_str());
    ASSERT_NE(converted, nullptr);
    ASSERT_STRNE(converted, name.c_str());
    Put(converted, "second try");
    VELDIconv::releaseLocale(converted);
    struct stat st;
    ASSERT_NE(stat(name.c_str(), &st), 0);  // not under the name as given
    VELDFileReader reader;
    ASSERT_TRUE(reader.Open(name.c_str()));
    VELDString line;
    ASSERT_TRUE(reader.NextLine(line));
    EXPECT_STREQ(line, "second try");
    EXPECT_TRUE(VELDFileLocker(name.c_str()).TryLock());
}

}  // namespace
