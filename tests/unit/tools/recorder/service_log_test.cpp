// The service log: what is read of it, and what is skipped.
#include "loop/descriptor.h"
#include "service_log.h"

#include <gmock/gmock.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "unit/support/folder.h"

namespace recorder
{

namespace
{

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr history::Time noon = history::Time{} + 1'700'049'600s;

// How often a file is opened while this lives.
class OpenCount
{
public:
    explicit OpenCount(const std::string &path)
    {
        EXPECT_GE(inotify_add_watch(events_.get(), path.c_str(), IN_OPEN), 0);
    }
    // Since the last call.
    [[nodiscard]] int read() const
    {
        int count = 0;
        for (inotify_event event{}; ::read(events_.get(), &event, sizeof event) == sizeof event;) {
            ++count;
        }
        return count;
    }

private:
    platform::Descriptor events_{inotify_init1(IN_NONBLOCK | IN_CLOEXEC)};
};

class ServiceLogTest : public testing::Test
{
protected:
    void append(const std::string &text) const { std::ofstream(path_, std::ios::app) << text; }
    static std::vector<std::string> statuses(ServiceLog &file)
    {
        std::vector<std::string> found;
        for (const ServiceLine &line : file.poll()) {
            found.push_back(line.event.is_start ? "start" : line.event.status);
        }
        return found;
    }

    cg::Folder folder_;
    std::string path_ = folder_.path("life");
};

} // namespace

TEST(ServiceLogLines, AreParsedOrSkipped)
{
    EXPECT_EQ(parse_service_line("1700049600000 start 42")->pid, 42);
    EXPECT_EQ(parse_service_line("1700049600000 start 42")->at, noon);
    EXPECT_EQ(parse_service_line("1700049600000 exit killed KILL")->status, "KILL");
    for (const char *line :
         {"", "x start 1", "1 start", "1 start 1 2", "1 exit exited", "1 exit a b c", "1 exit exited 7\033",
          "-1 start 1", "1 sleep 1", "1 exit exited 01234567890123456789"}) {
        EXPECT_FALSE(parse_service_line(line)) << line;
    }
}

TEST_F(ServiceLogTest, ReturnsWhatIsAppendedInWholeLines)
{
    ServiceLog file(path_);
    EXPECT_THAT(file.poll(), IsEmpty());
    append("1 start 42\nrubbish\n2 exit exi");
    EXPECT_THAT(statuses(file), ElementsAre("start"));
    append("ted 77\n");
    EXPECT_THAT(statuses(file), ElementsAre("77"));
    EXPECT_THAT(statuses(file), IsEmpty());
}

TEST_F(ServiceLogTest, KnowsWhatIsBehindALine)
{
    append("1 start 42\n2 exit exited 1\n3 start 43\n");
    ServiceLog file(path_);
    const std::vector<ServiceLine> lines = file.poll();
    ASSERT_THAT(lines_behind("2 exit exited 1", lines), SizeIs(1));
    EXPECT_EQ(lines_behind("2 exit exited 1", lines)[0].text, "3 start 43");
    EXPECT_THAT(lines_behind("3 start 43", lines), IsEmpty());
    EXPECT_THAT(lines_behind("0 start 7", lines), SizeIs(3));
    EXPECT_THAT(lines_behind("", lines), SizeIs(3));
}

TEST_F(ServiceLogTest, IsReadableWhileItIsThere)
{
    append("1 start 42\n");
    ServiceLog file(path_);
    EXPECT_THAT(statuses(file), SizeIs(1));
    ASSERT_EQ(unlink(path_.c_str()), 0);
    EXPECT_THAT(file.poll(), IsEmpty());
    append("1 start 42\n2 exit exited 3\n");
    EXPECT_THAT(statuses(file), ElementsAre("3")) << "the first line is known";
}

TEST_F(ServiceLogTest, AFileThatDidNotChangeIsNotOpened)
{
    append("1 start 42\n");
    ServiceLog file(path_);
    EXPECT_THAT(statuses(file), SizeIs(1));
    const OpenCount opened(path_);
    for (int i = 0; i < 3; ++i) {
        EXPECT_THAT(file.poll(), IsEmpty());
    }
    EXPECT_EQ(opened.read(), 0);
    append("2 exit exited 1\n");
    EXPECT_EQ(opened.read(), 1);
    EXPECT_THAT(statuses(file), SizeIs(1));
    EXPECT_EQ(opened.read(), 1);
}

TEST_F(ServiceLogTest, NoticesATruncatedAndAReplacedFile)
{
    append("1 start 42\n2 exit exited 1\n");
    ServiceLog file(path_);
    EXPECT_THAT(statuses(file), SizeIs(2));
    ASSERT_EQ(truncate(path_.c_str(), 0), 0);
    append("3 start 43\n");
    EXPECT_THAT(statuses(file), ElementsAre("start"));
    std::ofstream(path_ + ".new") << "3 start 43\n4 exit exited 2\n";
    ASSERT_EQ(rename((path_ + ".new").c_str(), path_.c_str()), 0);
    EXPECT_THAT(statuses(file), ElementsAre("2"));
}

TEST_F(ServiceLogTest, AnOverlongLineIsSkipped)
{
    append("1 start 42\n" + std::string(10'000, 'x'));
    ServiceLog file(path_);
    EXPECT_FALSE(file.met_overlong_line());
    EXPECT_THAT(statuses(file), ElementsAre("start"));
    EXPECT_TRUE(file.met_overlong_line());
    append("1 start 43");
    EXPECT_THAT(statuses(file), IsEmpty());
    append("\n2 exit exited 77\n3 start");
    EXPECT_THAT(statuses(file), ElementsAre("77")) << "the end of the long one is no line";
    append(" 44\n");
    EXPECT_THAT(statuses(file), ElementsAre("start"));
}

TEST_F(ServiceLogTest, ALineMayBeAsLongAsItMay)
{
    const std::string longest = "1 start " + std::string(120 - 2, '0') + "42";
    append(longest + "\n");
    ServiceLog file(path_);
    EXPECT_THAT(statuses(file), SizeIs(1));
    EXPECT_FALSE(file.met_overlong_line());
    append("0" + longest + "\n");
    EXPECT_THAT(statuses(file), IsEmpty());
    EXPECT_TRUE(file.met_overlong_line());
}

TEST_F(ServiceLogTest, OfTooManyLinesTheNewestAreKept)
{
    constexpr int many = 25'000;
    std::string text;
    for (int i = 1; i <= many; ++i) {
        text += std::to_string(i) + " start 1\n";
    }
    append(text);
    ServiceLog file(path_);
    const std::vector<ServiceLine> lines = file.poll();
    ASSERT_THAT(lines, SizeIs(10'000));
    EXPECT_EQ(lines.front().text, "15001 start 1");
    EXPECT_EQ(lines.back().text, "25000 start 1");
}

TEST_F(ServiceLogTest, ALongLineEndsWithItsFile)
{
    append(std::string(300, 'x'));
    ServiceLog file(path_);
    EXPECT_THAT(statuses(file), IsEmpty());
    ASSERT_EQ(truncate(path_.c_str(), 0), 0);
    append("1 start 42\n");
    EXPECT_THAT(statuses(file), ElementsAre("start"));
}

TEST_F(ServiceLogTest, APipeInItsPlaceDoesNotBlock)
{
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    ServiceLog file(path_);
    EXPECT_THAT(file.poll(), IsEmpty());
}

TEST(ServiceLogLines, MayBeAsLargeAsTheyMay)
{
    EXPECT_EQ(parse_service_line("0 start 0")->pid, 0);
    EXPECT_EQ(parse_service_line("9223372036854 start 2147483647")->pid, INT32_MAX);
    EXPECT_FALSE(parse_service_line("9223372036855 start 1"));
    EXPECT_EQ(parse_service_line("1 start 2147483648")->pid, 0) << "none that could be";
    EXPECT_TRUE(parse_service_line("1 exit exited 0123456789+-RTab"));
    EXPECT_FALSE(parse_service_line("1 exit 01234567890123456 1"));
    EXPECT_EQ(parse_service_line("1 exit dumped ABRT")->code, "dumped");
    EXPECT_FALSE(parse_service_line("1 exit killed "));
}

} // namespace recorder
