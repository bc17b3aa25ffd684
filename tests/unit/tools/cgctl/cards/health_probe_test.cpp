// The daemon and the recorder, asked beside the loop.
#include "cards/health_probe.h"

#include <gtest/gtest.h>

#include "unit/support/folder.h"

namespace cg
{

TEST(HealthProbe, ReportsOnTheLoopWhoIsNotThere)
{
    const Folder folder;
    platform::Loop loop("test");
    std::optional<HealthReport> found;
    const auto here = std::this_thread::get_id();
    HealthProbe probe(loop, folder.path("no-socket"), folder.path("no-history"),
                      [&](const HealthReport &report) {
                          EXPECT_EQ(std::this_thread::get_id(), here);
                          found = report;
                          loop.stop();
                      });
    loop.run();
    ASSERT_TRUE(found);
    EXPECT_TRUE(found->daemon.is_silent);
    EXPECT_NE(found->daemon.problem.find("no-socket"), std::string::npos) << found->daemon.problem;
    EXPECT_EQ(found->recorder.at, std::nullopt);
    EXPECT_NE(found->recorder.problem.find("no-history"), std::string::npos) << found->recorder.problem;
}

TEST(HealthProbe, AsksAgain)
{
    const Folder folder;
    platform::Loop loop("test");
    int reports = 0;
    HealthProbe probe(loop, folder.path("no-socket"), folder.path("no-history"),
                      [&](const HealthReport &) { ++reports < 2 ? void() : loop.stop(); });
    loop.run();
    EXPECT_EQ(reports, 2);
}

TEST(HealthProbe, EndsWhileAnAnswerIsUnderWay)
{
    const Folder folder;
    platform::Loop loop("test");
    {
        const HealthProbe probe(loop, folder.path("no-socket"), folder.path("no-history"),
                                [](const HealthReport &) { ADD_FAILURE() << "nobody is there any more"; });
        const platform::Timer soon = loop.after(std::chrono::milliseconds{0}, [&loop] { loop.stop(); });
        loop.run();
    }
    const platform::Timer later = loop.after(std::chrono::milliseconds{0}, [&loop] { loop.stop(); });
    loop.run();
}

} // namespace cg
