// What programs read of findings and events.
#include "forms/json_form.h"

#include <gtest/gtest.h>

#include "command_line/session.h"

namespace cg
{

namespace
{

// What a kind of event has besides the members of all.
template <typename What>
std::string members_of(const What &what)
{
    Json json = event_json({.what = what});
    for (const char *common : {"version", "time", "card", "name", "meanwhile"}) {
        json.erase(common);
    }
    return dump(json);
}

} // namespace

TEST(JsonForm, AFindingIsAnObjectOfTheSecondForm)
{
    EXPECT_EQ(
        dump(finding_json({Severity::skipped, "open", "close", "users"})),
        R"({"version":2,"name":"users","state":"skipped","server":null,"databases":null,"found":"open","fix":"close"})");
    EXPECT_EQ(finding_json({Severity::warn, ""})["state"], "warn");
    EXPECT_EQ(finding_json({Severity::fail, ""})["state"], "fail");
    EXPECT_EQ(finding_json({Severity::ok, ""})["state"], "ok");
    const Json of_one = finding_json({.check = "store", .server = "unix:/s", .databases = {28, 33}});
    EXPECT_EQ(of_one["server"], "unix:/s");
    EXPECT_EQ(of_one["databases"], (Json{28, 33}));
}

TEST(JsonForm, EachEventHasItsWordAndMembers)
{
    using Kind = CardChange::Kind;
    admission::CardFacts card;
    card.node_type = 3;
    card.serial = "0a";
    EXPECT_EQ(members_of(CardChange{Kind::plugged, card}),
              R"({"event":"plugged","node_type":"lc","serial":"0a","is_online":false})");
    EXPECT_EQ(members_of(CardChange{Kind::changed, card}),
              R"({"event":"changed","node_type":"lc","serial":"0a","is_online":false})");
    EXPECT_EQ(event_json({.what = CardChange{Kind::online, card}})["event"], "online");
    EXPECT_EQ(event_json({.what = CardChange{Kind::offline, card}})["event"], "offline");
    EXPECT_EQ(members_of(CardChange{Kind::pulled, card}), R"({"event":"pulled"})");
    EXPECT_EQ(members_of(PowerChange{true}), R"({"event":"power","power_off":true})");
    EXPECT_EQ(members_of(RoleChange{2}), R"({"event":"role","role":"slave"})");
    EXPECT_EQ(members_of(RoleChange{}), R"({"event":"role","role":null})");
    EXPECT_EQ(members_of(StoreChange{28, false, false, "reset"}),
              R"({"event":"store","db":28,"server":null,"connected":false,"problem":"reset"})");
    EXPECT_EQ(
        members_of(StoreChange{28, true, false, "", "unix:a"}),
        R"({"event":"store","db":28,"server":"unix:a","connected":true,"problem":null,"same_data":false})");
    EXPECT_EQ(members_of(HistoryChange{"gone"}),
              R"({"event":"recorder","at_work":null,"alive_at":null,"problem":"gone"})");
}

} // namespace cg
