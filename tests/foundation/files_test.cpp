// Paths and files: path arithmetic on odd paths, the open modes by what they
// do to a file, lines, errors as shown, locks between two processes, the
// system's folders, and a name opened under the locale's encoding.
#include <gtest/gtest.h>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "scoped_env.h"
#include "scratch.h"
#include "veld_os_helpers.h"

extern char** environ;

namespace {

using Folder = veldtest::ScratchDir;
using veldtest::ReadText;
using veldtest::WriteText;

// Path arithmetic

TEST(Paths, CompactDropsDotsAndEmptyElementsAndClimbsWhereItMay)
{
    const struct {
        const char* path;
        bool done;
        const char* result;
    } cases[] = {{"a/./b", true, "a/b/"}, {"/x/y/../z", true, "/x/z/"}, {"//a///b/.", true, "/a/b/"},
                 {"a/b/c/../../d", true, "a/d/"},
                 // A ".." is resolved only against one of two elements kept.
                 {"a/../b", true, "a/../b/"}, {"../../a", true, "../../a/"}, {"/../a", false, "/../a"},
                 {"/a/../b", false, "/a/../b"}, {"./", true, ""}, {"", true, ""}};
    for (const auto& c : cases) {
        VELDFile file(c.path);
        EXPECT_EQ(file.CompactPath(), c.done) << c.path;
        EXPECT_STREQ(file.GetLongName(), c.result) << c.path;
    }
}

TEST(Paths, RelativeClimbsFromTheBaseAndDescendsToThePath)
{
    const struct {
        const char *path, *base, *relative;
    } cases[] = {{"/a/b/c.txt", "/a/d", "../b/c.txt"}, {"/a/./b/../c", "/a/x/..", "c"}, {"/a/b", "/a/b/", "."},
                 {"/etc", "/usr/lib/x", "../../../etc"}, {"rel/x", "/a", "rel/x"}};
    for (const auto& c : cases) EXPECT_STREQ(VELDFile(c.path).GetRelativePath(c.base), c.relative) << c.path;
}

TEST(Paths, NameParentAndExtensionSplitBehindTrailingSeparators)
{
    const VELDFile file("/a/b.d/c.tar.gz//");
    EXPECT_STREQ(file.GetName(), "c.tar.gz");
    EXPECT_STREQ(file.GetParentFolder(), "/a/b.d");
    EXPECT_STREQ(VELDFile("/top").GetParentFolder(), "/");
    EXPECT_STREQ(VELDFile("/a/b.d/c.tar.gz").GetExtension(), "gz");
    EXPECT_STREQ(VELDFile("x").GetAbsolutePath("/base/"), "/base/x");
    EXPECT_TRUE(VELDFile("\\share").IsAbsolute() && !VELDFile("").IsAbsolute());
}

// Files

TEST(Files, WritersTruncateAppendOrOverwriteAsTheFlagsSay)
{
    const struct {
        int flags;
        const char* after;  // "old" written over by "XY"
    } cases[] = {{0, "XY"}, {VELDFileIO::EnableRead, "XY"}, {VELDFileIO::Append, "oldXY"},
                 {VELDFileIO::Append | VELDFileIO::EnableRead, "oldXY"},
                 {VELDFileIO::Append | VELDFileIO::EnableRead | VELDFileIO::RandomAccess, "XYd"}};
    Folder folder;
    const std::string path = folder / "f.bin";
    for (const auto& c : cases) {
        SCOPED_TRACE(c.flags);
        WriteText(path, "old");
        VELDFileWriterAndReader both;
        VELDFileWriter writer;
        const bool readable = (c.flags & VELDFileIO::EnableRead) != 0;
        VELDFileWriter& file = readable ? static_cast<VELDFileWriter&>(both) : writer;
        ASSERT_TRUE(file.Open(path.c_str(), c.flags));
        ASSERT_TRUE(file.Write("XY", 2));
        // Read back through the same file where it can read.
        char back[16] = {};
        const bool read = !readable || (both.Rewind() && both.Read(back, sizeof back) > 0);
        ASSERT_TRUE(file.Close() && read);
        EXPECT_EQ(ReadText(path), c.after);
        EXPECT_STREQ(readable ? back : c.after, c.after);
    }
}

TEST(Files, LinesComeWithoutTheirEndsFromWhereTheyStart)
{
    Folder folder;
    const std::string path = folder / "lines.txt", longLine(300, 'z');
    WriteText(path, "ab\r\n\n" + longLine + "\nnul" + std::string(1, '\0') + "rest\nlast");
    VELDFileReader reader;
    ASSERT_TRUE(reader.Open(path.c_str()));
    VELDString line("stale");
    VELDInt64 at = -1;
    const struct {
        const char* line;
        VELDInt64 at;
        bool stopAtNul;
    } expected[] = {{"ab", 0, false},  {"", 4, false}, {longLine.c_str(), 5, false}, {"nul", 306, true},
                    {"rest", 310, false}, {"last", 315, false}};
    for (const auto& e : expected) {
        ASSERT_TRUE(reader.NextLine(line, &at, false, e.stopAtNul)) << e.at;
        EXPECT_STREQ(line, e.line);
        EXPECT_EQ(at, e.at);
    }
    EXPECT_FALSE(reader.NextLine(line));
    EXPECT_TRUE(reader.SetPos(1));
    EXPECT_EQ(reader.FileSize(), 319);
    EXPECT_EQ(reader.GetPos(), 1);  // where it was
    ASSERT_TRUE(reader.NextLine(line));
    EXPECT_STREQ(line, "b");
}

std::string g_shown;

TEST(Files, ErrorsAreShownWithTheirTitleAndReason)
{
    VELDFileIO::SetDisplayErrorFunction([](const wchar_t* text) {
        char narrow[512] = "No error";
        if (text) std::snprintf(narrow, sizeof narrow, "%ls", text);
        g_shown = narrow;
    });
    VELDFileReader reader;
    reader.ShowError();
    EXPECT_EQ(g_shown, "No error");
    EXPECT_FALSE(reader.Open("/nonexistent/veld/file"));
    reader.ShowError();
    EXPECT_EQ(g_shown, std::string("File read error: ") + std::strerror(ENOENT));
    VELDFileWriter full;
    ASSERT_TRUE(full.Open("/dev/full") && full.Write("x", 1));  // into the buffer
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
    const std::string here = VELD::GetCurrentFolder().Beginning();
    ASSERT_EQ(chdir(folder.Path().c_str()), 0);
    VELDFileWriterAndReader temp;
    VELDString name, line;
    const bool done = temp.OpenTempFile(name) && temp.WriteText("hello", true) && temp.Rewind() && temp.NextLine(line);
    ASSERT_EQ(chdir(here.c_str()), 0);
    ASSERT_TRUE(done);
    EXPECT_STREQ(line, "hello");
    EXPECT_EQ(std::string(name).rfind("vld", 0), 0u);
    temp.Close();
    EXPECT_EQ(ReadText(folder / std::string(name)), "hello\n");
}

// Locks across processes

class Locks : public ::testing::TestWithParam<bool> {};

TEST_P(Locks, AreHeldAgainstAnotherProcessUntilReleased)
{
    Folder folder;
    const bool directory = GetParam();
    const std::string path = directory ? folder.Path() : folder / "lock";
    if (!directory) WriteText(path, "");
    int held[2], release[2];
    ASSERT_EQ(pipe(held) | pipe(release), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        VELDFileLocker mine(path.c_str(), directory);
        const char ok = mine.TryLock() ? 'L' : 'F';
        char go = 0;
        _exit(write(held[1], &ok, 1) == 1 && read(release[0], &go, 1) == 1 && mine.TryUnlock() ? 0 : 1);
    }
    char state = 0;
    ASSERT_TRUE(read(held[0], &state, 1) == 1 && state == 'L');
    VELDFileLocker ours(path.c_str(), directory);
    EXPECT_FALSE(ours.TryLock());
    ASSERT_EQ(write(release[1], "u", 1), 1);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_TRUE(ours.TryLock());
    // A copy shares the lock; another locker of this process is kept out too.
    VELDFileLocker copy = ours, other(path.c_str(), directory);
    EXPECT_FALSE(other.TryLock());
    EXPECT_TRUE(copy.TryUnlock());
    EXPECT_FALSE(ours.IsLocked());
    EXPECT_TRUE(other.TryLock());
    EXPECT_FALSE(VELDFileLocker((folder / "missing").c_str(), directory).TryLock());
    for (int fd : {held[0], held[1], release[0], release[1]}) close(fd);
}

INSTANTIATE_TEST_SUITE_P(FileAndFolder, Locks, ::testing::Bool());

// System folders

TEST(SystemPaths, TempHomeAndThisProgram)
{
    EXPECT_STREQ(VELD::GetTempFolder(), "/tmp");
    {
        veldor_test::ScopedEnv home("HOME", "/home/tester");
        EXPECT_STREQ(VELD::GetUserHomeFolder(), "/home/tester");
    }
    {
        veldor_test::ScopedEnv home("HOME", nullptr);
        EXPECT_STREQ(VELD::GetUserHomeFolder(), "");
    }
    EXPECT_STREQ(VELDFile(VELD::GetCurrentBinaryPath()).GetName(), "foundation_tests");
    EXPECT_STREQ(VELDFile(VELD::GetSymbolFilePath(reinterpret_cast<const void*>(&ReadText))).GetName(),
                 "foundation_tests");
    // The test's runtime library lies on this program's search path (see
    // tests/CMakeLists.txt).
    EXPECT_STREQ(VELD::GetRuntimeRootDirectory(), VELDOR_RUNTIME_PROBE_DIR);
}

// A name in a locale of another encoding: one that does not open as it is
// given opens as the locale's conversion makes it. The locale is built into
// a folder of the test, and this program runs the second half in it.

TEST(FileNames, OpenOnTheSecondTryUnderTheLocalesName)
{
    Folder folder;
    const std::string make = "localedef -i en_US -f ISO-8859-1 '" + (folder / "en_US.ISO-8859-1") + "' >/dev/null 2>&1";
    if (std::system(make.c_str()) != 0) GTEST_SKIP() << "localedef cannot build a Latin-1 locale here";
    const std::string self = VELD::GetCurrentBinaryPath().Beginning();
    std::vector<std::string> settings = {"LOCPATH=" + folder.Path(), "LC_ALL=en_US.ISO-8859-1",
                                         "VELDOR_FILES_CHILD=" + folder.Path()};
    std::vector<char*> env;
    for (char** e = environ; *e; ++e)
        if (std::strncmp(*e, "LC_ALL=", 7) != 0 && std::strncmp(*e, "LOCPATH=", 8) != 0) env.push_back(*e);
    for (std::string& s : settings) env.push_back(&s[0]);
    env.push_back(nullptr);
    std::string filter = "--gtest_filter=FileNamesInLatin1.*";
    std::string program = self;
    char* argv[] = {&program[0], &filter[0], nullptr};
    pid_t pid = 0;
    ASSERT_EQ(posix_spawn(&pid, self.c_str(), nullptr, nullptr, argv, env.data()), 0);
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

// The second half, which exists only in the child.
class TheSecondTry : public ::testing::Test {
    void TestBody() override
    {
        const std::string name = std::string(std::getenv("VELDOR_FILES_CHILD")) + "/caf\xC3\xA9.txt";
        ASSERT_STREQ(VELDIconv::localeCodeset(), "ISO-8859-1");
        char* converted = VELDIconv::UTF8ToLocale(name.c_str());
        ASSERT_TRUE(converted && name != converted);
        WriteText(converted, "second try");
        VELDIconv::releaseLocale(converted);
        ASSERT_TRUE(ReadText(name).empty());  // nothing under the name as given
        VELDFileReader reader;
        VELDString line;
        ASSERT_TRUE(reader.Open(name.c_str()) && reader.NextLine(line));
        EXPECT_STREQ(line, "second try");
        EXPECT_TRUE(VELDFileLocker(name.c_str()).TryLock());
    }
};

const bool g_child = std::getenv("VELDOR_FILES_CHILD") &&
                     ::testing::RegisterTest("FileNamesInLatin1", "TheSecondTry", nullptr, nullptr, __FILE__, __LINE__,
                                             []() -> ::testing::Test* { return new TheSecondTry(); });

}  // namespace
