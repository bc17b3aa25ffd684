// The scripts for the shells.
#include <gtest/gtest.h>

#include "unit/tools/cgctl/run_cgctl.h"

namespace cg
{

TEST(Completion, KnowsTwoShellsAndSaysSo)
{
    EXPECT_NE(run_cgctl({"completion", "bash"}).out.find("complete -F _cgctl cgctl"), std::string::npos);
    EXPECT_TRUE(run_cgctl({"completion", "zsh"}).out.starts_with("#compdef cgctl\n"));
    EXPECT_EQ(run_cgctl({"completion", "fish"}).status, 2);
}

} // namespace cg
