// Where the history is.
#include "history/history.h"

#include <gmock/gmock.h>

#include <cstdlib>

namespace history
{

TEST(HistoryPath, IsTheOneGivenElseTheOneSetElseTheDefault)
{
    ASSERT_EQ(unsetenv(path_setting), 0);
    EXPECT_EQ(path_or_default(""), default_path);
    ASSERT_EQ(setenv(path_setting, "", 1), 0);
    EXPECT_EQ(path_or_default(""), default_path);
    ASSERT_EQ(setenv(path_setting, "/set", 1), 0);
    EXPECT_EQ(path_or_default(""), "/set");
    EXPECT_EQ(path_or_default("/given"), "/given");
    unsetenv(path_setting);
}

} // namespace history
