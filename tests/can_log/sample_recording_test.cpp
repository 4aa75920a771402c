// The bundled sample recording: both files hold the same frames, all of
// them readable, in time order, with the mix the generator promises.
#include <gtest/gtest.h>

#include <set>

#include "LogTestSupport.h"

using namespace veldor::canlog;
using namespace canlog_test;

TEST(SampleRecording, AscAndLogHoldTheSameFrames)
{
    ReaderOptions utc;
    utc.dateZone = DateZone::Utc;  // as the generator writes the header
    const ReadOutcome asc = ReadAll(std::string(VELDOR_SAMPLE_DATA_DIR) + "/sample_drive.asc", utc);
    const ReadOutcome log = ReadAll(std::string(VELDOR_SAMPLE_DATA_DIR) + "/sample_drive.log");
    ASSERT_TRUE(asc.openError.empty()) << asc.openError;
    ASSERT_TRUE(log.openError.empty()) << log.openError;
    EXPECT_TRUE(asc.issues.empty());
    EXPECT_TRUE(log.issues.empty());
    ASSERT_EQ(asc.frames, log.frames);

    const std::vector<CanFrame>& frames = asc.frames;
    ASSERT_GT(frames.size(), 3000u);
    std::set<std::uint32_t> ids;
    std::size_t fd = 0, brs = 0, extended = 0;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        if (i > 0) {
            ASSERT_GT(frames[i].timestamp, frames[i - 1].timestamp) << "frame " << i;
        }
        ids.insert(frames[i].id);
        fd += frames[i].fd;
        brs += frames[i].bitRateSwitch;
        extended += frames[i].extended;
    }
    EXPECT_GE(ids.size(), 10u);
    EXPECT_GT(fd, brs);
    EXPECT_GT(brs, 0u);
    EXPECT_GT(extended, 0u);
    EXPECT_GE(frames.back().timestamp - frames.front().timestamp, 19000000);
}
