// The folder of the check modules, as the daemon reads it.
#include "modules/module_folder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "unit/support/folder.h"

namespace cg
{

TEST(ModuleFolder, HasAnEntryOfAnyKindForEachModule)
{
    const Folder folder;
    const std::string place = folder.path("modules");
    std::filesystem::create_directories(place + "/power-budget-module");
    std::ofstream(place + "/.hidden") << "";
    const ModuleFolder found = read_module_folder(place);
    EXPECT_TRUE(found.readable);
    EXPECT_FALSE(found.missing);
    EXPECT_EQ(found.problem, "");
    ASSERT_EQ(found.entries.size(), 2U);
    const bool hidden_first = found.entries[0].file_name == ".hidden";
    const ModuleEntry &hidden = found.entries[hidden_first ? 0 : 1];
    const ModuleEntry &power = found.entries[hidden_first ? 1 : 0];
    EXPECT_EQ(hidden.name, ".hidden");
    EXPECT_EQ(power.file_name, "power-budget-module");
    EXPECT_EQ(power.name, "power-budget-mo");
}

TEST(ModuleFolder, SixteenModulesAreAsked)
{
    ModuleFolder folder;
    for (int i = 0; i < 17; ++i) {
        folder.entries.push_back({"file", "m" + std::to_string(i)});
    }
    const std::vector<std::string> asked = asked_of(folder);
    ASSERT_EQ(asked.size(), 16U);
    EXPECT_EQ(asked.front(), "m0");
    EXPECT_EQ(asked.back(), "m15");
}

TEST(ModuleFolder, WhyItCannotBeReadIsSaid)
{
    const Folder folder;
    const ModuleFolder none = read_module_folder(folder.path("none"));
    EXPECT_FALSE(none.readable);
    EXPECT_TRUE(none.missing);
    EXPECT_EQ(none.problem, "No such file or directory");
    std::ofstream(folder.path("file")) << "";
    const ModuleFolder file = read_module_folder(folder.path("file"));
    EXPECT_FALSE(file.readable);
    EXPECT_FALSE(file.missing);
    EXPECT_EQ(file.problem, "Not a directory");
}

TEST(ModuleFolder, AMistakenNameIsShownWithItsRules)
{
    EXPECT_EQ(module_name_mistake("volt"), "");
    EXPECT_EQ(module_name_mistake("sixteen_bytes_xx"),
              "\"sixteen_bytes_xx\" is not a module name; 1 to 15 characters, the name of an entry of "
              "/etc/app_cg/deny_check");
    EXPECT_NE(module_name_mistake("\xff"), "");
    EXPECT_NE(module_name_mistake("a\xc2\x9bm"), "") << "it could drive a terminal";
}

} // namespace cg
