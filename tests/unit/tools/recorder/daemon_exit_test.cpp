// What the service log says of the daemon's exits.
#include "daemon_exit.h"

#include <gmock/gmock.h>

namespace recorder
{

namespace
{

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr history::Time noon = history::Time{} + 1'700'049'600s;

} // namespace

TEST(DaemonExit, TwoStartsInARowAreAnEndThatNobodyNoted)
{
    const ServiceLine start{{noon, true, 42, "", ""}, "1 start 42"};
    const ServiceLine exit{{noon, false, 0, "exited", "77"}, "2 exit exited 77"};
    EXPECT_FALSE(has_exit("", {}));
    EXPECT_FALSE(has_exit("", {start}));
    EXPECT_FALSE(has_exit("0 exit exited 77", {start}));
    EXPECT_TRUE(has_exit("0 start 41", {start}));
    EXPECT_TRUE(has_exit("", {start, start}));
    EXPECT_TRUE(has_exit("0 start 41", {exit}));
}

TEST(DaemonExit, TheLastExit)
{
    const auto lines = [](const std::vector<std::string> &texts) {
        std::vector<ServiceLine> all;
        all.reserve(texts.size());
        for (const std::string &text : texts) {
            all.push_back({parse_service_line(text).value(), text});
        }
        return all;
    };
    const auto at = [](int64_t ms) { return history::Time(std::chrono::milliseconds(ms)); };
    EXPECT_EQ(last_exit("", {}), std::nullopt);
    EXPECT_EQ(last_exit("10 start 1", {}), std::nullopt);
    EXPECT_EQ(last_exit("10 exit exited 0", lines({"20 start 2"})), at(10));
    EXPECT_EQ(last_exit("10 start 1", lines({"20 start 2"})), at(20)); // nobody could note the first one's
    EXPECT_EQ(last_exit("10 start 1", lines({"20 exit exited 0", "15 start 2", "16 exit exited 0"})),
              at(20)); // a clock was set
    EXPECT_EQ(last_exit("", lines({"10 start 1"})), std::nullopt);
}

} // namespace recorder
