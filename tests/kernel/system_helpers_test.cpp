#include <gtest/gtest.h>

#include <sched.h>
#include <sys/resource.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <tuple>

#include "Engine.h"
#include "scoped_env.h"
#include "veld_os_helpers.h"
#include "veld_thread.h"

TEST(TimestampText, WritesAndReadsDurationsWithAndWithoutHours)
{
    const struct {
        VELDInt64 t;
        const char* text;
    } written[] = {{1500000, "00:01.500000"}, {3600000000LL, "1:00:00.000000"}, {0, "00:00.000000"},
                   {-1, "-00:00.000001"}, {26LL * 3600000000LL + 61500001LL, "26:01:01.500001"}};
    for (const auto& w : written) EXPECT_STREQ(VELD::Timestamp2String(w.t), w.text);
    const struct {
        const char* text;
        VELDInt64 t;
    } read[] = {{"1:30", 90000000},         {"-1:30", -90000000},          {"2.5", 2500000},
                {"1:00:00.000001", 3600000001LL}, {"-1:00:00.5", -3600500000LL}, {"", -1}};
    for (const auto& r : read) EXPECT_EQ(VELD::TimestampFromString(r.text, nullptr), r.t) << r.text;
    EXPECT_EQ(VELD::TimestampFromString(nullptr, nullptr), -1);

    // A seventh digit of fraction stays unread.
    char* end = nullptr;
    EXPECT_EQ(VELD::TimestampFromString("0.1234567x", &end), 123456);
    EXPECT_STREQ(end, "7x");
    // Both forms meet: what one writes the other reads.
    for (VELDInt64 t : {0LL, 1LL, 59999999LL, 3599999999LL, 3600000000LL, 90061000001LL, -7LL, -3600000001LL})
        EXPECT_EQ(VELD::TimestampFromString(VELD::Timestamp2String(t), nullptr), t) << t;
}

TEST(AbsoluteTime, HasTheSeparatorsInOrder)
{
    std::string text(VELD::AbsoluteTime2String(1700000000123456LL));
    ASSERT_EQ(text.size(), 26u) << text;
    EXPECT_EQ(text.substr(0, 2), "20");
    EXPECT_EQ(std::string() + text[4] + text[7] + text[13] + text[16] + text[19], "//::.");
    EXPECT_EQ(text.substr(20), "123456");
}

TEST(RegExp, CompilesMatchesReportsErrorsAndGrowsItsOffsetVector)
{
    VELDRegExp names("^[a-zA-Z][a-zA-Z_0-9]*$");
    ASSERT_TRUE(names.Ok());
    EXPECT_EQ(names.ErrorOffset(), -1);
    EXPECT_TRUE(names.exec("oCAN"));
    EXPECT_FALSE(names.exec("1st") || names.exec("with.dot"));
    VELDRegExp broken("(unclosed");
    EXPECT_FALSE(broken.Ok());
    EXPECT_GE(broken.ErrorOffset(), 0);
    EXPECT_NE(std::string(broken.LastError()), "");
    EXPECT_FALSE(broken.exec("anything"));

    std::string pattern, subject;
    for (int i = 0; i < 25; ++i) pattern += "(.)", subject += static_cast<char>('a' + i);
    VELDRegExp many(pattern.c_str());
    ASSERT_TRUE(many.exec(subject.c_str()));
    EXPECT_EQ(std::make_tuple(many.Substrings(), many.Position(25), many.Length(25), many.Position(26)),
              std::make_tuple(26, 24, 1, -1));
}

TEST(RegExp, CopiesShareTheRecordUntilOneIsChanged)
{
    VELDRegExp a("^x");
    VELDRegExp b(a);
    EXPECT_TRUE(b.exec("xyz"));
    EXPECT_EQ(a.Substrings(), 1);  // the match state is shared
    b.SetPattern("^y");
    EXPECT_TRUE(b.exec("yes"));
    EXPECT_FALSE(a.exec("yes"));
    a = b;
    EXPECT_TRUE(a.exec("yes"));
}

TEST(MsgBox, PrintsAndOpensNothingWhenSilentOrWithoutADisplay)
{
    {
        veldor_test::ScopedEnv silent("SILENT", "1");
        testing::internal::CaptureStdout();
        VELD::MsgBox("Title", "some text", 1);
        VELD::MsgBox("Title", "plain", 0);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "Warning: Title: some text\nTitle: plain\n");
        testing::internal::CaptureStderr();
        VELD::MsgBox("Title", "bad", 2);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error: Title: bad\n");
    }
    veldor_test::ScopedEnv silent("SILENT", nullptr), quiet("VELDOR_SILENT", nullptr);
    veldor_test::ScopedEnv display("DISPLAY", ":97");  // nothing listens there
    testing::internal::CaptureStdout();
    VELD::MsgBox("Title", "no window", 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Title: no window\n");
}

// A priority maps to the thread's nice value, 128 being nice 0; from 250 up
// to real-time scheduling where the system allows it (else to the lowest
// nice value the table gives); back below, to time sharing again. Run on a
// thread of its own, which the test leaves as it found it.
TEST(ThreadPriority, NiceValuesAndTheRealTimeBand)
{
    veldor::Engine engine;  // the threads' clock
    std::thread([] {
        VELDThread thread;
        const pid_t tid = thread.SystemId();
        const bool mayRaise = setpriority(PRIO_PROCESS, static_cast<id_t>(tid), -1) == 0;
        const struct {
            int priority;
            int nice;  // expected where allowed
        } table[] = {{128, 0}, {0, 9}, {115, 1}, {141, -1}, {249, -9}};
        for (const auto& row : table) {
            SCOPED_TRACE(row.priority);
            if (row.nice < 0 && !mayRaise) continue;
            EXPECT_TRUE(thread.SetPriority(row.priority));
            EXPECT_EQ(getpriority(PRIO_PROCESS, static_cast<id_t>(tid)), row.nice);
            EXPECT_EQ(sched_getscheduler(tid), SCHED_OTHER);
        }
        if (thread.SetPriority(255)) {
            EXPECT_EQ(sched_getscheduler(tid), SCHED_FIFO);
            EXPECT_TRUE(thread.SetPriority(128));
            EXPECT_EQ(sched_getscheduler(tid), SCHED_OTHER) << "back to time sharing";
            EXPECT_EQ(getpriority(PRIO_PROCESS, static_cast<id_t>(tid)), 0);
        }
        EXPECT_EQ(thread.Priority(), 128);
    }).join();
}
