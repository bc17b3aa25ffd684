// What a client says and does when the store, or its own program, gets in its way.
#include <algorithm>

#include "client_fixture.h"
#include "scripted_server.h"
#include "store/client.h"

namespace
{

using store::Change;
using store::Client;
using store::ConnectionEvent;
using store_test::Card;
using store_test::card_type;
using store_test::db;
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

} // namespace
