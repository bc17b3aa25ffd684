// A plain look at a server.
#include "store/inspect/inspection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "unit/builtin/store/scoped_setting.h"
#include "unit/builtin/store/scripted_server.h"

namespace
{

using std::chrono::milliseconds;
using store::Inspected;
using store::Inspection;
using store_test::array;
using store_test::bulk;
using store_test::ScopedSetting;
using store_test::ScriptedServer;
using Texts = std::vector<std::string>;

constexpr milliseconds enough{20000};

std::optional<std::string> answer(const Texts &command)
{
    if (command[0] == "LIST") {
        return array({bulk("a"), ":7\r\n", "$-1\r\n", array({bulk("deep")})});
    }
    if (command[0] == "WRONG") {
        return "-ERR no\r\n";
    }
    if (command[0] == "SILENT") {
        return "";
    }
    if (command[0] == "PUSHED") {
        return "+first\r\n+second\r\n";
    }
    return store_test::ordinary_answer(command);
}

class InspectionTest : public testing::Test
{
protected:
    ScriptedServer server{answer};
    ScopedSetting endpoint{"VX_MOM_ENDPOINT", server.endpoint().text};
};

TEST(InspectedTest, AListOfNamesAndValuesIsReadByName)
{
    const auto text = [](const char *value) { return Inspected{Inspected::Kind::text, value, {}}; };
    const Inspected pairs{Inspected::Kind::list, "", {text("a"), text("b"), text("b"), text("c"), text("d")}};
    EXPECT_EQ(pairs.value_of("a").text, "b");
    EXPECT_EQ(pairs.value_of("b").text, "c") << "names stand at every other place";
    EXPECT_EQ(pairs.value_of("d").kind, Inspected::Kind::nothing) << "its value is missing";
}

TEST_F(InspectionTest, RepliesAreFreeOfAnyLibrarysTypes)
{
    Inspection inspection(3, enough);
    ASSERT_TRUE(inspection.is_open()) << inspection.problem();
    EXPECT_THAT(server.commands(), testing::ElementsAre("SELECT 3", "CLIENT SETNAME inspection"));
    EXPECT_EQ(inspection.ask({"SET"}, enough)->text, "OK");
    const auto wrong = inspection.ask({"WRONG"}, enough);
    EXPECT_TRUE(wrong->is_error());
    EXPECT_EQ(wrong->text, "ERR no");
    const auto list = inspection.ask({"LIST"}, enough);
    ASSERT_EQ(list->kind, Inspected::Kind::list);
    EXPECT_FALSE(list->is_error());
    ASSERT_EQ(list->items.size(), 4U);
    EXPECT_EQ(list->items[0].kind, Inspected::Kind::text);
    EXPECT_EQ(list->items[0].text, "a");
    EXPECT_EQ(list->items[1].kind, Inspected::Kind::number);
    EXPECT_EQ(list->items[1].text, "7");
    EXPECT_EQ(list->items[2].kind, Inspected::Kind::nothing);
    EXPECT_EQ(list->items[3].items[0].text, "deep");
}

TEST_F(InspectionTest, WhatIsPushedComesOneByOneAndSilenceEndsIt)
{
    Inspection inspection(0, enough);
    EXPECT_EQ(inspection.ask({"PUSHED"}, enough)->text, "first");
    EXPECT_EQ(inspection.next(enough)->text, "second");
    EXPECT_FALSE(inspection.next(milliseconds(10)));
    EXPECT_EQ(inspection.problem(), server.endpoint().text + ": no answer in time");
    EXPECT_FALSE(inspection.is_open());
    EXPECT_FALSE(inspection.next(milliseconds(10)));
    EXPECT_FALSE(inspection.ask({"PING"}, enough)) << "once closed";
    Inspection another(0, enough);
    EXPECT_FALSE(another.ask({"SILENT"}, milliseconds(10)));
}

TEST_F(InspectionTest, GoesToAPlaceAsItsUser)
{
    store::Credentials credentials;
    credentials.user = "gate";
    credentials.password = "secret";
    const ScopedSetting elsewhere("VX_MOM_ENDPOINT", "unix:/nonexistent/socket");
    const Inspection inspection({server.endpoint(), credentials}, 0, enough);
    EXPECT_TRUE(inspection.is_open());
    EXPECT_EQ(server.commands().front(), "AUTH gate secret");
}

TEST_F(InspectionTest, GoesWhereTheDatabaseIs)
{
    const ScopedSetting elsewhere("VX_MOM_ENDPOINT_28", "unix:/nonexistent/socket");
    EXPECT_TRUE(Inspection(0, enough).is_open());
    EXPECT_TRUE(Inspection(1, enough).is_open());
    EXPECT_EQ(Inspection(28, enough).problem(), "unix:/nonexistent/socket: No such file or directory");
}

TEST(Inspection, WithoutAServerOrGoodSettingsSaysWhy)
{
    {
        const ScopedSetting nowhere("VX_MOM_ENDPOINT", "unix:/nonexistent/socket");
        const Inspection inspection(0, enough);
        EXPECT_FALSE(inspection.is_open());
        EXPECT_EQ(inspection.problem(), "unix:/nonexistent/socket: No such file or directory");
    }
    const ScopedSetting nonsense("VX_MOM_ENDPOINT", "nonsense");
    EXPECT_THAT(Inspection(0, enough).problem(), testing::HasSubstr("'nonsense'"));
}

} // namespace
