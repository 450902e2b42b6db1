// The progress bar: drawn only for large work, and only where someone watches.

#include <gtest/gtest.h>

#include "Progress.h"

namespace {

using dtmtool::Progress;

// Forces the bar on (standard error is not a terminal under the test runner) and restores the
// terminal test afterwards.
class ProgressTest : public ::testing::Test {
protected:
    void SetUp() override { Progress::ForceShown(true); }
    void TearDown() override { Progress::ForceShown(false); }
};

TEST_F(ProgressTest, LargeWorkDrawsTheLabelAndErasesTheLineWhenFinished) {
    ::testing::internal::CaptureStderr();
    {
        Progress progress("importing", Progress::MIN_TOTAL * 2);
        EXPECT_TRUE(progress.IsShown());
        progress.Set(Progress::MIN_TOTAL);
        progress.Finish();
    }
    const std::string drawn = ::testing::internal::GetCapturedStderr();
    EXPECT_NE(drawn.find("\rimporting ["), std::string::npos);
    EXPECT_NE(drawn.find(" 50%"), std::string::npos);
    EXPECT_EQ(drawn.substr(drawn.size() - 4), "\r\033[K");
}

TEST_F(ProgressTest, SmallWorkDrawsNothing) {
    ::testing::internal::CaptureStderr();
    {
        Progress progress("saving", Progress::MIN_TOTAL - 1);
        EXPECT_FALSE(progress.IsShown());
        progress.Set(Progress::MIN_TOTAL / 2);
        progress.Finish();
    }
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

TEST_F(ProgressTest, AnAbandonedBarIsErasedWhenItGoes) {
    ::testing::internal::CaptureStderr();
    {
        Progress progress("loading", Progress::MIN_TOTAL);
        progress.Set(Progress::MIN_TOTAL / 4);
    }
    const std::string drawn = ::testing::internal::GetCapturedStderr();
    ASSERT_GE(drawn.size(), 4u);
    EXPECT_EQ(drawn.substr(drawn.size() - 4), "\r\033[K");
}

TEST(ProgressTerminalTest, NotATerminalDrawsNothing) {
    ::testing::internal::CaptureStderr();
    {
        Progress progress("rendering", Progress::MIN_TOTAL * 10);
        EXPECT_FALSE(progress.IsShown());
        progress.Finish();
    }
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

}  // namespace
