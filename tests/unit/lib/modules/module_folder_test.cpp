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

TEST(ModuleFolder, AnEntryCountsAsTheDaemonReadsIt)
{
    const Folder folder;
    const std::string place = folder.path("modules");
    std::filesystem::create_directory(place);
    EXPECT_EQ(folder_problem("", "volt"), "");
    EXPECT_EQ(folder_problem(place, "volt"),
              place + " has no entry volt: the daemon does not ask this module. Make one, as with `touch " +
                  place + "/volt`, and restart the daemon");
    std::ofstream(place + "/volt") << "";
    EXPECT_EQ(folder_problem(place, "volt"), "");
    std::ofstream(place + "/power-budget-module") << "";
    EXPECT_EQ(folder_problem(place, "power-budget-mo"), "") << "the daemon cuts there";
    EXPECT_NE(folder_problem(folder.path("none"), "volt").find("No such file or directory"),
              std::string::npos);
}

TEST(ModuleFolder, EntriesBehindTheSixteenthAreIgnored)
{
    const Folder folder;
    const std::string place = folder.path("modules");
    std::filesystem::create_directory(place);
    for (int i = 0; i < 17; ++i) {
        std::ofstream(place + "/m" + std::to_string(i)) << "";
    }
    auto entry = std::filesystem::directory_iterator(place); // in the folder's own order
    std::advance(entry, 15);
    EXPECT_EQ(folder_problem(place, entry->path().filename()), "");
    ++entry;
    const std::string name = entry->path().filename();
    EXPECT_EQ(folder_problem(place, name),
              place + " has the entry " + name +
                  " behind 16 others, and the daemon asks no more; remove one of them, "
                  "and restart the daemon");
}

} // namespace cg
