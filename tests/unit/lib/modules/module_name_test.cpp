// Whether the daemon can know a module's name.
#include "modules/module_name.h"

#include <gtest/gtest.h>

namespace cg
{

TEST(ModuleName, IsAFilesNameOfUpTo15Bytes)
{
    EXPECT_EQ(name_problem("fifteen_bytes_x"), "");
    EXPECT_EQ(name_problem("a"), "");
    EXPECT_EQ(
        name_problem("sixteen_bytes_xx"),
        "the name sixteen_bytes_xx has 16 bytes; the daemon would cut it to sixteen_bytes_x and wait for "
        "answers of that name; a module has the name of an entry of the folder of check modules, 1 to 15 "
        "bytes");
    EXPECT_EQ(name_problem("").find("the module has no name; "), 0U);
    for (const char *name : {".", "..", "a/b", "a\nb", "\x7f", "\x1f"}) {
        EXPECT_EQ(
            name_problem(name).find("a file cannot have the module's name, or it has control characters; "),
            0U)
            << name;
    }
    EXPECT_EQ(name_problem(" "), "") << "a blank is no control character";
}

TEST(ModuleName, AMistakenNameIsShownWithItsRules)
{
    EXPECT_EQ(module_name_mistake("volt"), "");
    EXPECT_EQ(module_name_mistake("sixteen_bytes_xx"),
              "\"sixteen_bytes_xx\" is not a module name; 1 to 15 characters, the name of an entry of "
              "/etc/app_cg/deny_check");
    EXPECT_NE(module_name_mistake("\xff"), "");
    EXPECT_NE(module_name_mistake("a\xc2\x9bm"), "") << "it could drive a terminal";
}

} // namespace cg
