// Log records: what a line looks like, and where it goes.
#include "vx_zlog.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "log/journal_destination.h"
#include "unit/builtin/platform_fixture.h"

namespace
{

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsNull;
using testing::MatchesRegex;
using testing::NotNull;
using testing_platform::content_of;
using testing_platform::ScopedSetting;

// A category keeps its destination for the life of the process, so each test takes one of its own.
std::string fresh_module()
{
    static int count = 0;
    return "module" + std::to_string(++count);
}

void log(vx_zlog_category_t *category, int32_t level, const char *text)
{
    vxcg_zlog(category, "app_cg.cpp", strlen("app_cg.cpp"), "main", strlen("main"), 42, level, "%s", text);
}

class VxZlog : public testing::Test
{
protected:
    testing_platform::TempFolder folder;
    const std::string path = folder.file("log");
    const std::string module = fresh_module();

    vx_zlog_category_t *open_log(const std::string &destination) const
    {
        const ScopedSetting setting("VX_ZLOG", destination);
        return vx_zlog_init(module.c_str());
    }
    // Returns the text of the only record, without what stands before it in its line.
    std::string text_logged(const char *text) const
    {
        log(open_log("file:" + path), 100, text);
        const std::string line = content_of(path);
        const std::string before = "main: ";
        return line.substr(line.find(before) + before.size());
    }
    // Opens a log that cannot be, and returns what is said about it.
    std::string complaint_about(const std::string &destination) const
    {
        testing::internal::CaptureStderr();
        EXPECT_THAT(open_log(destination), IsNull());
        return testing::internal::GetCapturedStderr();
    }
};

TEST_F(VxZlog, RecordIsOneLineWithAllThatIsKnown)
{
    log(open_log("file:" + path), 60, "started");
    EXPECT_THAT(
        content_of(path),
        MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}[+-][0-9]{2}:[0-9]{2} "
                     "notice " +
                     module + " app_cg.cpp:42 main: started\n"));
}

TEST_F(VxZlog, LevelsKeepTheirNamesAndOthersTheirNumbers)
{
    auto *category = open_log("file:" + path);
    const std::map<int32_t, std::string> names = {{40, "info"},   {60, "notice"}, {80, "warn"},
                                                  {100, "error"}, {120, "fatal"}, {0, "0"},
                                                  {55, "55"},     {-1, "-1"}};
    for (const auto &[level, name] : names) {
        log(category, level, "text");
        EXPECT_THAT(content_of(path), EndsWith(" " + name + " " + module + " app_cg.cpp:42 main: text\n"));
    }
}

TEST_F(VxZlog, LengthsOfFileAndFunctionCount)
{
    vxcg_zlog(open_log("file:" + path), "app_cg.cpp", 6, "main_loop", 4, 7, 40, "%d of %s", 1, "two");
    EXPECT_THAT(content_of(path), EndsWith(" app_cg:7 main: 1 of two\n"));
}

TEST_F(VxZlog, OneLineBreakAtTheEndIsDropped)
{
    auto *category = open_log("file:" + path);
    for (const auto &[text, shown] :
         {std::pair{"a\r\n", "a"}, {"b\n", "b"}, {"c\n\n", "c\\x0a"}, {"d\r", "d\\x0d"}}) {
        log(category, 100, text);
        EXPECT_THAT(content_of(path), EndsWith(std::string("main: ") + shown + "\n"));
    }
}

TEST_F(VxZlog, ControlBytesAreMadeVisible)
{
    EXPECT_EQ(text_logged("a\nb\tc\x1b[31m\x7f"), "a\\x0ab\\x09c\\x1b[31m\\x7f\n");
}

TEST_F(VxZlog, BytesOfOtherEncodingsPassUntouched)
{
    EXPECT_EQ(text_logged("\xb2\xe5\xbf\xa8 \x80\xff"), "\xb2\xe5\xbf\xa8 \x80\xff\n");
}

TEST_F(VxZlog, LongTextsAreWhole)
{
    const std::string text(10'000, 'x');
    EXPECT_EQ(text_logged(text.c_str()), text + "\n");
}

TEST_F(VxZlog, PercentSignsAndBracesOfATextAreText)
{
    EXPECT_EQ(text_logged("100% {} %s %n"), "100% {} %s %n\n");
}

TEST_F(VxZlog, RecordIsInTheFileWhenTheCallReturns)
{
    testing_platform::Signpost logged;
    testing_platform::Child daemon{[&] {
        log(open_log("file:" + path), 120, "last words");
        logged.reach();
        pause();
        return 0;
    }};
    ASSERT_TRUE(logged.wait());
    daemon.send(SIGKILL);
    EXPECT_EQ(daemon.wait(), 128 + SIGKILL);
    EXPECT_THAT(content_of(path), EndsWith("main: last words\n"));
}

TEST_F(VxZlog, FileIsRotatedAndOldOnesAreLimited)
{
    auto *category = open_log("file:" + path + ":1024:2");
    const std::string text(200, 'x');
    for (int i = 0; i < 50; ++i) {
        log(category, 100, text.c_str());
    }
    size_t files = 0;
    for (const auto &entry : std::filesystem::directory_iterator(folder.path())) {
        EXPECT_LE(entry.file_size(), 1024U) << entry.path();
        ++files;
    }
    EXPECT_EQ(files, 3U);
}

TEST_F(VxZlog, SecondOpeningOfAModuleGivesTheSameHandle)
{
    auto *category = open_log("file:" + path);
    ASSERT_THAT(category, NotNull());
    EXPECT_EQ(open_log("stderr"), category);
}

TEST_F(VxZlog, UnwritableFileIsNamedAndCanBeTriedAgain)
{
    const std::string folder_as_file = "file:" + folder.path();
    const std::string complaint = complaint_about(folder_as_file);
    EXPECT_THAT(complaint, HasSubstr("platform: cannot log to VX_ZLOG=" + folder_as_file + ": "));
    EXPECT_THAT(open_log("file:" + path), NotNull());
}

TEST_F(VxZlog, DestinationsThatAreNoneAreNamed)
{
    for (const std::string destination : {"nowhere", "file:", "file:relative", "file:/x:12", "file:/x:abc",
                                          "file:/x:4096:-1", "file:/x:4096:2:3"}) {
        EXPECT_THAT(complaint_about(destination), HasSubstr("VX_ZLOG=" + destination + ": ")) << destination;
    }
}

TEST_F(VxZlog, NoModuleNoLog)
{
    EXPECT_THAT(vx_zlog_init(nullptr), IsNull());
}

TEST_F(VxZlog, RecordWithoutCategoryIsDropped)
{
    log(nullptr, 120, "lost");
}

TEST_F(VxZlog, StandardErrorIsTheDefaultAndIsKeptWhenDescriptorTwoMoves)
{
    const std::string elsewhere = folder.file("elsewhere");
    testing_platform::Child daemon{[&] {
        const ScopedSetting unset("VX_ZLOG", nullptr);
        dup2(open(path.c_str(), O_WRONLY | O_CREAT, 0600), STDERR_FILENO);
        auto *category = vx_zlog_init(module.c_str());
        log(category, 100, "before");
        dup2(open(elsewhere.c_str(), O_WRONLY | O_CREAT, 0600), STDERR_FILENO);
        log(category, 100, "after");
        return 0;
    }};
    EXPECT_EQ(daemon.wait(), 0);
    EXPECT_THAT(content_of(path), MatchesRegex(".*main: before\n.*main: after\n"));
    EXPECT_EQ(content_of(elsewhere), "");
}

TEST_F(VxZlog, ClosedStandardErrorIsNoDestination)
{
    testing_platform::Child daemon{[&] {
        close(STDERR_FILENO);
        return open_log("stderr") == nullptr ? 0 : 2;
    }};
    EXPECT_EQ(daemon.wait(), 0);
}

// The reading end of a pipe that stands for standard error, and has room for two pages.
class SmallPipe
{
public:
    SmallPipe()
    {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        out_.reset(ends[0]);
        EXPECT_EQ(fcntl(ends[1], F_SETPIPE_SZ, 8192), 8192);
        EXPECT_EQ(dup2(ends[1], STDERR_FILENO), STDERR_FILENO);
        close(ends[1]);
    }
    std::string read_all() const
    {
        std::string text(65536, '\0');
        (void)fcntl(out_.get(), F_SETFL, O_NONBLOCK);
        const ssize_t length = read(out_.get(), text.data(), text.size());
        return text.substr(0, static_cast<size_t>(std::max<ssize_t>(length, 0)));
    }

private:
    platform::Descriptor out_;
};

TEST_F(VxZlog, StandardErrorThatNobodyReadsIsNotWaitedForAndKeepsItsLines)
{
    testing_platform::Child daemon{[&] {
        const SmallPipe pipe;
        auto *category = open_log("stderr");
        const std::string longest(9000, 'x'); // more than two pages
        log(category, 100, longest.c_str());
        log(category, 100, "lost");
        log(category, 100, "lost");
        std::string all = pipe.read_all();
        log(category, 100, "written");
        all += pipe.read_all();
        const size_t at = all.find(longest);
        EXPECT_NE(at, std::string::npos) << "not as a whole";
        all.erase(std::min(at, all.size()), longest.size());
        EXPECT_THAT(
            all,
            MatchesRegex("[^\n]* main: \n"
                         "[^\n]* warn [^\n]*: log: records that could not be written here and are lost: 2\n"
                         "[^\n]* main: written\n"));
        return 0;
    }};
    EXPECT_EQ(daemon.wait(), 0);
}

TEST_F(VxZlog, FileThatCannotBeOpenedAgainLosesRecordsAndNothingElse)
{
    const std::string own = folder.file("own");
    auto *category = open_log("file:" + own + "/log:1024:1");
    log(category, 100, std::string(900, 'x').c_str());
    std::filesystem::remove_all(own);
    testing_platform::write_file(own, "");
    log(category, 100, std::string(900, 'x').c_str());
    log(category, 100, "short");
    std::filesystem::remove(own);
    while (content_of(own + "/log").empty()) {
        log(category, 100, "again");
    }
    EXPECT_THAT(content_of(own + "/log"),
                MatchesRegex("[^\n]*: log: records that could not be written here and "
                             "are lost: [0-9]+\n[^\n]* again\n"));
}

TEST_F(VxZlog, JournalGetsFields)
{
    const int result = testing_platform::run_in_private_view([&] {
        EXPECT_THAT(complaint_about("journal"), HasSubstr("VX_ZLOG=journal: /run/systemd/journal/socket"));
        std::filesystem::create_directories("/run/systemd/journal");
        const testing_platform::Mailbox journal("/run/systemd/journal/socket");
        log(open_log("journal"), 80, "careful\r\n");
        EXPECT_EQ(journal.next(), "MESSAGE=careful\nPRIORITY=4\nSYSLOG_IDENTIFIER=" + module +
                                      "\nCODE_FILE=app_cg.cpp\nCODE_LINE=42\nCODE_FUNC=main\n");
        log(open_log("journal"), 80, std::string(1000000, 'x').c_str());
        EXPECT_EQ(journal.next().find("\nPRIORITY"), strlen("MESSAGE=") + 32768) << "far too long, so cut";
        return 0;
    });
    if (result == testing_platform::cannot_be_tried_here) {
        GTEST_SKIP() << "no private view of the file system here";
    }
    EXPECT_EQ(result, 0);
}

TEST(JournalField, SeveralLinesGoWithTheirLength)
{
    std::string entry;
    platform::append_journal_field(entry, "MESSAGE", "one\ntwo");
    platform::append_journal_field(entry, "CODE_LINE", "7");
    EXPECT_EQ(entry, std::string("MESSAGE\n\7\0\0\0\0\0\0\0one\ntwo\nCODE_LINE=7\n", 36));
    entry.clear();
    platform::append_journal_field(entry, "A", std::string(0x0102, '\n'));
    EXPECT_EQ(entry.substr(0, 10), std::string("A\n\2\1\0\0\0\0\0\0", 10));
}

TEST(AtSnprintf, CutsAsSnprintfDoes)
{
    char buffer[8] = "";
    EXPECT_EQ(at_snprintf(buffer, sizeof(buffer), "%s-%d", "slot", 12345), 10);
    EXPECT_STREQ(buffer, "slot-12");
    EXPECT_EQ(at_snprintf(nullptr, 0, "%d", 123), 3);
}

} // namespace
