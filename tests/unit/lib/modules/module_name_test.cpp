// Whether the daemon can know a module's name, and whether it asks the module.
#include "modules/module_name.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "unit/support/folder.h"

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

TEST(ModuleName, AnEntryCountsAsTheDaemonReadsIt)
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

TEST(ModuleName, EntriesBehindTheSixteenthAreIgnored)
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
