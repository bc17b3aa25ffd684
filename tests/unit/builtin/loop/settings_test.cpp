// Where settings come from, and which one wins.
#include "loop/settings.h"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "unit/builtin/platform_fixture.h"

namespace
{

using platform::setting;
using platform::setting_number;
using testing_platform::ScopedSetting;
using testing_platform::write_file;

class Settings : public testing::Test
{
protected:
    testing_platform::TempFolder folder;
    ScopedSetting conf{"VX_PLATFORM_CONF", folder.file("platform.conf")};
    ScopedSetting unset{"A_SETTING", nullptr};

    void configure(const std::string &text) { write_file(folder.file("platform.conf"), text); }
};

TEST_F(Settings, NowhereSetGivesTheFallback)
{
    EXPECT_EQ(setting("A_SETTING", "fallback"), "fallback");
}

TEST_F(Settings, FileSetsIt)
{
    configure("# A_SETTING=comment\n\nOTHER=1\n  A_SETTING = from file \r\nA_SETTING_LONGER=2\n");
    EXPECT_EQ(setting("A_SETTING", "fallback"), "from file");
}

TEST_F(Settings, LastLineWinsAndValuesMayHoldEqualSigns)
{
    configure("A_SETTING=first\nA_SETTING=a=b\n");
    EXPECT_EQ(setting("A_SETTING", "fallback"), "a=b");
}

TEST_F(Settings, EnvironmentWinsOverTheFileUnlessEmpty)
{
    configure("A_SETTING=from file\n");
    {
        const ScopedSetting environment("A_SETTING", "from environment");
        EXPECT_EQ(setting("A_SETTING", "fallback"), "from environment");
    }
    const ScopedSetting empty("A_SETTING", "");
    EXPECT_EQ(setting("A_SETTING", "fallback"), "from file");
}

TEST_F(Settings, EmptyInTheFileGivesTheFallback)
{
    configure("A_SETTING=\n");
    EXPECT_EQ(setting("A_SETTING", "fallback"), "fallback");
}

TEST_F(Settings, LineWithoutEqualSignIsReportedOnceAndPassedOver)
{
    configure("nonsense\nA_SETTING=7\n");
    testing::internal::CaptureStderr();
    EXPECT_EQ(setting("A_SETTING", ""), "7");
    EXPECT_EQ(setting("A_SETTING", ""), "7");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "platform: " + folder.file("platform.conf") + ":1: not of the form NAME=VALUE\n");
}

TEST_F(Settings, MistakesAreToldToWhoeverAsksForThem)
{
    configure("nonsense\n");
    std::string told;
    platform::on_setting_mistake([&told](const std::string &text) { told += text; });
    testing::internal::CaptureStderr();
    EXPECT_EQ(setting("A_SETTING", "fallback"), "fallback");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    platform::on_setting_mistake({});
    EXPECT_EQ(told, "platform: " + folder.file("platform.conf") + ":1: not of the form NAME=VALUE");
}

TEST_F(Settings, NumbersWithinTheirBoundsAreTaken)
{
    for (const auto &[text, number] : {std::pair{"5", 5}, {"10", 10}, {"-3", -3}}) {
        const ScopedSetting environment("A_SETTING", text);
        EXPECT_EQ(setting_number("A_SETTING", 7, -3, 10), number);
    }
    EXPECT_EQ(setting_number("A_SETTING", 7, -3, 10), 7);
}

TEST_F(Settings, WhatIsNoNumberWithinTheBoundsIsReportedAndNotUsed)
{
    // A name of the run's own: what has been reported is not reported again.
    static int run = 0;
    const std::string name = "A_SETTING_" + std::to_string(++run);
    for (const char *text : {"11", "-4", "5x", "x", "0x5", "5 6", "99999999999999999999"}) {
        const ScopedSetting environment(name, text);
        testing::internal::CaptureStderr();
        EXPECT_EQ(setting_number(name.c_str(), 7, -3, 10), 7) << text;
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "platform: " + name + "=" + text + ": not a whole number from -3 to 10, 7 is used\n");
    }
}

class NumberedSettings : public Settings
{
protected:
    ScopedSetting unset_28{"A_SETTING_28", nullptr};

    // The setting for database 28, with the name that gave it.
    static std::string given()
    {
        const platform::Setting found = platform::numbered_setting("A_SETTING", 28, "fallback");
        return found.name + '=' + found.value;
    }
};

TEST_F(NumberedSettings, NowhereSetGivesTheFallback)
{
    configure("A_SETTING_33=other\nA_SETTING_2=other\n");
    EXPECT_EQ(given(), "A_SETTING=fallback");
}

TEST_F(NumberedSettings, ANumberWinsOverNoneOfItsLayer)
{
    configure("A_SETTING_28=numbered\nA_SETTING=from file\n");
    EXPECT_EQ(given(), "A_SETTING_28=numbered");
    const ScopedSetting environment("A_SETTING", "from environment");
    const ScopedSetting numbered("A_SETTING_28", "numbered, environment");
    EXPECT_EQ(given(), "A_SETTING_28=numbered, environment");
    EXPECT_EQ(setting("A_SETTING", ""), "from environment");
}

TEST_F(NumberedSettings, TheEnvironmentWinsAsAWhole)
{
    configure("A_SETTING_28=numbered\n");
    const ScopedSetting environment("A_SETTING", "from environment");
    EXPECT_EQ(given(), "A_SETTING=from environment");
}

TEST_F(NumberedSettings, AnEmptyOneIsNotSet)
{
    configure("A_SETTING=from file\nA_SETTING_28=\n");
    const ScopedSetting empty("A_SETTING_28", "");
    EXPECT_EQ(given(), "A_SETTING=from file");
}

TEST_F(NumberedSettings, AReplacedOneHoldsForEveryDatabase)
{
    configure("A_SETTING_28=from file\n");
    const ScopedSetting numbered("A_SETTING_28", "numbered");
    const ScopedSetting other_number("A_SETTING_1", "other number");
    const ScopedSetting longer_name("A_SETTING_28_MS", "kept");
    const ScopedSetting another_name("A_SETTING_X", "kept");
    platform::replace_setting("A_SETTING", "new");
    EXPECT_EQ(given(), "A_SETTING=new");
    EXPECT_EQ(platform::numbered_setting("A_SETTING", 1, "").value, "new");
    EXPECT_EQ(setting("A_SETTING_28_MS", ""), "kept");
    EXPECT_EQ(setting("A_SETTING_X", ""), "kept");
}

TEST_F(NumberedSettings, AMistakeNamesTheNameThatGaveIt)
{
    configure("A_SETTING_28=many\n");
    const platform::Setting found = platform::numbered_setting("A_SETTING", 28, "");
    EXPECT_EQ(platform::number_problem(found, {0, 9}), "A_SETTING_28=many: not a whole number from 0 to 9");
    testing::internal::CaptureStderr();
    EXPECT_EQ(setting_number(found, 3, {0, 9}), 3);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "platform: A_SETTING_28=many: not a whole number from 0 to 9, 3 is used\n");
}

} // namespace
