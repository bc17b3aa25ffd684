// What the recorder's file remembers.
#include "cards/past.h"

#include <gtest/gtest.h>

#include "unit/support/folder.h"

namespace cg
{

namespace
{

using std::chrono::seconds;
constexpr admission::Time now{seconds{1'700'049'600}};

} // namespace

TEST(Past, AFileThatIsNotThereIsAProblemAndNoFailure)
{
    const Folder folder;
    const Past past = read_past(folder.path("none"));
    EXPECT_EQ(past.file, folder.path("none"));
    EXPECT_NE(past.problem.find("none"), std::string::npos) << past.problem;
    EXPECT_EQ(past.alive_at, std::nullopt);
    EXPECT_NE(read_heartbeat(folder.path("none")).problem.find("none"), std::string::npos);
}

TEST(Past, AHeartbeatMayBeFortyFiveSecondsOld)
{
    EXPECT_FALSE((Heartbeat{now - seconds{45}}.is_old(now)));
    EXPECT_TRUE((Heartbeat{now - seconds{46}}.is_old(now)));
    EXPECT_FALSE((Heartbeat{}.is_old(now))) << "not known";
}

TEST(Past, SaysThatNothingIsRecorded)
{
    EXPECT_EQ(not_recorded_text({now}, now), "");
    EXPECT_NE(not_recorded_text({now - seconds{60}}, now).find("nothing has been recorded since "),
              std::string::npos);
    EXPECT_NE(not_recorded_text({}, now).find("nothing was recorded yet"), std::string::npos);
}

} // namespace cg
