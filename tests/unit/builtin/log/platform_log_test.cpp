// The platform's own records: to standard error until a log is open, then into that.
#include "log/platform_log.h"

#include <functional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "unit/builtin/platform_fixture.h"

namespace
{

using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing_platform::Child;
using testing_platform::content_of;
using testing_platform::ScopedSetting;
using testing_platform::TempFolder;

// What a function prints on standard error.
std::string printed(const std::function<void()> &what)
{
    testing::internal::CaptureStderr();
    what();
    return testing::internal::GetCapturedStderr();
}

void log_long_text()
{
    PLATFORM_LOG(platform::log_warn, "%s", std::string(2000, 'x').c_str());
}

int log_before_and_after_opening(const TempFolder &folder)
{
    // NOLINTNEXTLINE(bugprone-lambda-function-name): the place is part of the line
    EXPECT_THAT(printed([] { PLATFORM_LOG(platform::log_warn, "two\nlines of %d", 2); }),
                MatchesRegex("platform_log_test.cpp:[0-9]+ operator\\(\\): two\\\\x0alines of 2\n"));
    EXPECT_THAT(printed(log_long_text), EndsWith("log_long_text: " + std::string(1023, 'x') + '\n'));
    const ScopedSetting setting("VX_ZLOG", "file:" + folder.file("log"));
    platform::log_open("platform_log_test");
    // NOLINTNEXTLINE(bugprone-lambda-function-name)
    EXPECT_EQ(printed([] { PLATFORM_LOG(platform::log_error, "lost %s", "it"); }), "");
    platform::log_line("a/b/source.cpp", "function", 7, platform::log_info, "100%d");
    const std::string log = content_of(folder.file("log"));
    EXPECT_THAT(log, HasSubstr(" error platform_log_test platform_log_test.cpp:"));
    EXPECT_THAT(log, HasSubstr(" operator(): lost it\n"));
    EXPECT_THAT(log, HasSubstr(" info platform_log_test source.cpp:7 function: 100%d\n"));
    return 0;
}

// In a process of its own, which has not opened a log.
TEST(PlatformLog, RecordsGoToStandardErrorAndThenIntoTheLog)
{
    const TempFolder folder;
    EXPECT_EQ(Child([&] { return log_before_and_after_opening(folder); }).wait(), 0);
}

TEST(PlatformLog, WhoStartsAProgramReadsOneLine)
{
    EXPECT_EQ(printed([] { platform::notify_starter("no\tsettings"); }), "no\\x09settings\n");
}

} // namespace
