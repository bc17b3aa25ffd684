// What a client says and does when the store, or its own program, gets in its way.
#include <algorithm>
#include <atomic>
#include <optional>

#include "client_fixture.h"
#include "scripted_server.h"
#include "store/client.h"

namespace
{

using store::Change;
using store::Client;
using store::ConnectionEvent;
using store_test::array;
using store_test::bulk;
using store_test::Card;
using store_test::card_type;
using store_test::db;
using store_test::key_of;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Texts = std::vector<std::string>;

class ClientTroubleTest : public store_test::ClientFixture
{
protected:
    // Subscribes to the cards and hears of the connection; what comes goes to `events`.
    void follow()
    {
        ASSERT_TRUE(client->on_connection(db, [this](const ConnectionEvent &event) { note(event); }));
        cards = client->subscribe(db, card_type, [this](const Change &change) { note(change); }).value;
    }
    void follow_and_forget()
    {
        ASSERT_NO_FATAL_FAILURE(follow());
        serve_until([&] { return has_event("29"); });
        events.clear();
    }
    void note(const Change &change)
    {
        events.push_back(std::to_string(change.command) +
                         (change.record == nullptr ? "" : ' ' + std::string(change.key)));
        if (on_event) {
            on_event();
        }
    }
    void note(const ConnectionEvent &event)
    {
        using Kind = ConnectionEvent::Kind;
        events.push_back(event.kind == Kind::connected ? "connected"
                         : event.kind == Kind::lost    ? "lost: " + event.reason
                                                       : "returned");
        if (on_event) {
            on_event();
        }
    }
    bool has_event(const std::string &event) const
    {
        return std::find(events.begin(), events.end(), event) != events.end();
    }

    // Of clients with the server.
    int handshakes_so_far()
    {
        const std::string name = "cmdstat_client|setname:calls=";
        const std::string figures = server.run(0, {"INFO", "commandstats"});
        const size_t at = figures.find(name);
        return at == std::string::npos ? 0 : std::stoi(figures.substr(at + name.size()));
    }

    // Runs the loop so many times; each run is ended by what it delivers.
    void run(int times)
    {
        on_event = [this] { loop.stop(); };
        bool is_late = false;
        const auto late = loop.after(std::chrono::seconds(20), [&] {
            is_late = true;
            loop.stop();
        });
        for (int i = 0; i < times && !is_late; i++) {
            loop.run();
        }
        EXPECT_FALSE(is_late);
    }

    Texts events;
    std::function<void()> on_event;
    store::Subscription cards;
};

constexpr const char *card_channels = "@chg:1:p_dev.card_info:*";

// What a server answers that has no records, to a subscriber too.
std::string answer(const Texts &command)
{
    if (command[0] == "PSUBSCRIBE") {
        return array({bulk("psubscribe"), bulk(command[1]), ":1\r\n"});
    }
    if (command[0] == "PING") {
        return array({bulk("pong"), bulk(command.size() == 1 ? "" : command[1])});
    }
    if (command[0] == "SSCAN") {
        return array({bulk("0"), "*0\r\n"});
    }
    return store_test::ordinary_answer(command);
}

TEST_F(ClientTroubleTest, WhyTheDataCannotBeIdentifiedIsSaidOnce)
{
    store_test::ScriptedServer refusing([](const Texts &command) {
        return command[0] == "GET" ? "-NOPERM not for you\r\n" : store_test::ordinary_answer(command);
    });
    store::Options refused = options();
    refused.place = store::Place{refusing.endpoint().text, ""};
    Client other(loop.context(), std::move(refused));
    ASSERT_TRUE(other.open(db));
    serve_until([&] {
        const Texts commands = refusing.commands();
        return std::count(commands.begin(), commands.end(), "SELECT 1") > 5;
    });
    EXPECT_THAT(notices,
                ElementsAre("database 1: the store's data cannot be identified: " + refusing.endpoint().text +
                            ": @set: the store server answers: NOPERM not for you"));
}

TEST_F(ClientTroubleTest, WhyADatabaseThatIsBackCannotBeUsedIsSaidOnce)
{
    ASSERT_TRUE(client->set(db, *Card(0, 1, 0).message()));
    ASSERT_NO_FATAL_FAILURE(follow_and_forget());
    ASSERT_EQ(server.run(db, {"SET", "@rev:p_dev.card_info", "many"}), "OK");
    (void)server.run(0, {"CLIENT", "KILL", "TYPE", "pubsub"});
    serve_until([&] { return !notices.empty(); });
    const int handshakes = handshakes_so_far();
    serve_until([&] { return handshakes_so_far() > handshakes + 2; });
    EXPECT_THAT(notices, ElementsAre("database 1: the store's data cannot be identified: "
                                     "@rev:p_dev.card_info holds no revision: many"));
    ASSERT_EQ(server.run(db, {"SET", "@rev:p_dev.card_info", "1"}), "OK");
    serve_until([&] { return has_event("returned"); });
}

TEST_F(ClientTroubleTest, ALossForDataThatCannotBeIdentifiedBringsTheReason)
{
    ASSERT_TRUE(client->set(db, *Card(0, 1, 0).message()));
    ASSERT_TRUE(client->set(db, *Card(0, 2, 0).message()));
    ASSERT_NO_FATAL_FAILURE(follow_and_forget());
    ASSERT_EQ(server.run(db, {"DEL", "@set", "@rev:p_dev.card_info"}), "2");
    ASSERT_EQ(server.run(db, {"SADD", "@set", "no text"}), "1");
    ASSERT_TRUE(client->set(db, *Card(0, 3, 0).message())) << "with a revision that has been";
    serve_until([&] { return !events.empty(); });
    EXPECT_THAT(events, ElementsAre(HasSubstr("identified: @set: the store server answers: WRONGTYPE")));
    EXPECT_THAT(notices, Each(Not(IsEmpty())));
}

TEST_F(ClientTroubleTest, WhatTheEndOfARunCutsOffComesWithTheNextOne)
{
    ASSERT_TRUE(client->set(db, *Card(0, 1, 0).message()));
    ASSERT_TRUE(client->set(db, *Card(0, 2, 0).message()));
    ASSERT_TRUE(client->open(db));
    ASSERT_TRUE(client->open(db));
    ASSERT_NO_FATAL_FAILURE(follow());
    run(5);
    EXPECT_THAT(events, ElementsAre("connected", "connected", "4 " + key_of(1), "4 " + key_of(2), "29"));
    events.clear();
    for (const int slot : {3, 4, 5}) {
        ASSERT_TRUE(client->set(db, *Card(0, slot, 0).message()));
    }
    run(3);
    EXPECT_THAT(events, ElementsAre("4 " + key_of(3), "4 " + key_of(4), "4 " + key_of(5)));
    events.clear();
    (void)server.run(0, {"CLIENT", "KILL", "TYPE", "pubsub"});
    ASSERT_TRUE(client->set(db, *Card(0, 6, 0).message()));
    run(3);
    EXPECT_THAT(events, ElementsAre(HasSubstr("lost"), "returned", "4 " + key_of(6)));
}

TEST_F(ClientTroubleTest, TheEndOfARunCutsOffNoOtherDatabase)
{
    ASSERT_NO_FATAL_FAILURE(follow_and_forget());
    constexpr int32_t other = 28;
    ASSERT_TRUE(client->on_connection(other, [this](const ConnectionEvent &event) { note(event); }));
    ASSERT_TRUE(client->open(other));
    run(1);
    events.clear();
    (void)server.run(0, {"CLIENT", "KILL", "SKIPME", "yes"});
    run(4);
    EXPECT_THAT(events,
                testing::UnorderedElementsAre(HasSubstr("lost"), HasSubstr("lost"), "returned", "returned"));
}

TEST_F(ClientTroubleTest, AfterALossWithinANotificationNothingOfWhatWasReadIsDelivered)
{
    for (int slot = 1; slot <= 10; slot++) {
        ASSERT_TRUE(client->set(db, *Card(0, slot, 0).message()));
    }
    on_event = [this] {
        on_event = {};
        EXPECT_EQ(server.run(0, {"FLUSHALL"}), "OK");
        EXPECT_TRUE(client->set(db, *Card(0, 1, 0).message())) << "which notices that";
    };
    ASSERT_NO_FATAL_FAILURE(follow());
    serve_until([&] { return has_event("29"); });
    ASSERT_GE(events.size(), 3U);
    EXPECT_EQ(events[0], "4 " + key_of(1));
    EXPECT_THAT(events[1], HasSubstr("lost"));
    EXPECT_EQ(events[2], "returned");
}

TEST_F(ClientTroubleTest, WhatASubscriptionCannotHearIsNoContact)
{
    const std::string index = "@idx:p_dev.card_info";
    ASSERT_TRUE(client->set(db, *Card(0, 1, 0).message()));
    ASSERT_NO_FATAL_FAILURE(follow_and_forget());
    ASSERT_EQ(server.run(db, {"DEL", index}), "1");
    ASSERT_EQ(server.run(db, {"SET", index, "a text"}), "OK");
    ASSERT_EQ(server.run(db, {"PUBLISH", "@chg:1:" + key_of(1), "1:91:41:11:61:5"}), "1") << "9 follows 1";
    serve_until([&] { return !notices.empty() && notices.back().find("refused") != std::string::npos; });
    const auto before = client->last_contact(db);
    bool in_place = false;
    const auto acks = client->subscribe(db, p_libpub__app_cg_card_check_ack__descriptor,
                                        [&](const Change &) { in_place = true; });
    serve_until([&] { return in_place; });
    EXPECT_EQ(client->last_contact(db), before);
}

TEST_F(ClientTroubleTest, ASubscriptionThatANoticeCancelsStaysCancelled)
{
    std::atomic<bool> is_spoilt = false;
    store_test::ScriptedServer scripted([&](const Texts &command) -> std::optional<std::string> {
        if (command[0] == "GET" && command[1] == "@rev:p_dev.card_info" && !is_spoilt.exchange(true)) {
            return std::nullopt;
        }
        return command[0] == "HGETALL" && is_spoilt ? array({bulk("junk"), bulk("junk")}) : answer(command);
    });
    client.emplace(loop.context(),
                   store::Options{.place = store::Place{scripted.endpoint().text, ""},
                                  .notice = [this](int32_t, const std::string &) { cards.cancel(); }});
    ASSERT_NO_FATAL_FAILURE(follow());
    bool in_place = false;
    const auto acks = client->subscribe(db, p_libpub__app_cg_card_check_ack__descriptor,
                                        [&](const Change &) { in_place = true; });
    serve_until([&] { return in_place; });
    EXPECT_THAT(scripted.commands(), Contains("SSCAN @idx:p_libpub.app_cg_card_check_ack 0 COUNT 128"));
    EXPECT_THAT(scripted.commands(), Not(Contains(HasSubstr("SSCAN @idx:p_dev.card_info"))));
}

TEST_F(ClientTroubleTest, ARefusalIsThatOfTheSubscriptionAskedFor)
{
    store_test::ScriptedServer scripted([](const Texts &command) -> std::string {
        if (command[0] != "PSUBSCRIBE") {
            return answer(command);
        }
        return command[1] == card_channels ? "" : "-NOPERM no cards\r\n" + answer(command);
    });
    store::Options there = options();
    there.place = store::Place{scripted.endpoint().text, ""};
    client.emplace(loop.context(), std::move(there));
    ASSERT_NO_FATAL_FAILURE(follow());
    const std::string asked = std::string("PSUBSCRIBE ") + card_channels;
    serve_until([&] {
        const Texts commands = scripted.commands();
        return std::find(commands.begin(), commands.end(), asked) != commands.end();
    });
    cards.cancel();
    bool in_place = false;
    const auto acks = client->subscribe(db, p_libpub__app_cg_card_check_ack__descriptor,
                                        [&](const Change &) { in_place = true; });
    serve_until([&] { return in_place; });
    EXPECT_THAT(notices, IsEmpty());
}

} // namespace
