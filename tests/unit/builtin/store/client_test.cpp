// The store as C++ programs use it.
#include "store/client.h"

#include <algorithm>
#include <map>
#include <stdexcept>

#include "client_fixture.h"

namespace
{

using cg::StoreServer;
using std::chrono::milliseconds;
using store::Change;
using store::Client;
using store::ConnectionEvent;
using store_test::Card;
using store_test::card_type;
using store_test::db;
using store_test::ScopedSetting;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class ClientTest : public store_test::ClientFixture
{
protected:
    store::Subscription follow(Client &from)
    {
        auto asked = from.subscribe(db, card_type, [this](const Change &change) { note(change); });
        EXPECT_EQ(asked.code, 0) << asked.reason;
        return std::move(asked.value);
    }

    void note(const Change &change)
    {
        std::string text = std::to_string(change.command);
        if (change.record != nullptr) {
            text += ' ' + std::string(change.key) + " at " + std::to_string(change.revision);
        }
        if (change.error != 0) {
            text += " error " + std::to_string(change.error) + ' ' + std::string(change.reason);
        }
        events.push_back(text + (change.existing ? " existing" : ""));
    }

    bool has_event(const std::string &event) const
    {
        return std::find(events.begin(), events.end(), event) != events.end();
    }

    std::vector<std::string> events;
};

TEST_F(ClientTest, CallsWriteReadAndDelete)
{
    const Card card(0, 1, 0, 7);
    EXPECT_TRUE(client->connect(db));
    EXPECT_FALSE(client->exists(db, *card.message()).value);
    EXPECT_FALSE(client->read(db, *card.message()).value);
    ASSERT_TRUE(client->set(db, *card.message()));
    EXPECT_TRUE(client->exists(db, *card.message()).value);
    const int32_t fields[] = {6};
    ASSERT_TRUE(client->set_fields(db, *Card(0, 1, 0, 9).message(), fields));
    const auto found = client->read(db, *card.message());
    ASSERT_TRUE(found && found.value) << found.reason;
    EXPECT_EQ(found.value->key, "p_dev.card_info:0:0:1:0");
    EXPECT_EQ(found.value->revision, 2U);
    EXPECT_EQ(reinterpret_cast<const PDev__CardInfo &>(*found.value->message).config_dev_type, 9);
    EXPECT_FALSE(found.value->origin().instance.empty());
    EXPECT_EQ(found.value->origin().number, 2U);
    ASSERT_TRUE(client->erase(db, *card.message()));
    EXPECT_TRUE(client->erase(db, *card.message())) << "none there is no failure";
    ASSERT_TRUE(client->set(db, *card.message()));
    ASSERT_TRUE(client->set(db, *Card(1, 1, 0).message()));
    ASSERT_TRUE(client->erase_matching(db, *card.message(), 2)) << "shelf and device";
    EXPECT_FALSE(client->exists(db, *card.message()).value);
    EXPECT_TRUE(client->exists(db, *Card(1, 1, 0).message()).value);
    EXPECT_THAT(notices, IsEmpty());
}

TEST_F(ClientTest, AFailureBringsItsReasonAndNoNoticeBesides)
{
    ASSERT_EQ(server.run(db, {"SET", "p_dev.card_info:0:0:1:0", "text"}), "OK");
    const Card card(0, 1, 0);
    EXPECT_THAT(client->set(db, *card.message()).reason, HasSubstr("WRONGTYPE"));
    EXPECT_THAT(client->read(db, *card.message()).reason, HasSubstr("WRONGTYPE"));
    const auto exists = client->exists(db, *card.message());
    EXPECT_EQ(exists.code, -74);
    EXPECT_THAT(exists.reason, HasSubstr("WRONGTYPE"));
    EXPECT_THAT(client->erase_matching(db, *card.message(), 9).reason, HasSubstr("key fields"));
    EXPECT_THAT(client->set_fields(db, *card.message(), {}).reason, HasSubstr("no field"));
    EXPECT_THAT(client->connect(-1).reason, "there is no database -1");
    EXPECT_THAT(notices, IsEmpty());
}

TEST_F(ClientTest, EachOfManyFailuresHasAReason)
{
    const ScopedSetting soon("VX_MOM_DEADLINE_MS", "50");
    Client absent(loop.context(), {.place = store::Place{"unix:/nonexistent/socket", ""},
                                   .notice = [](int32_t, const std::string &) {}});
    for (int i = 0; i < 3; i++) {
        const store::Status status = absent.connect(db);
        EXPECT_EQ(status.code, -110);
        EXPECT_THAT(status.reason, HasSubstr("unix:/nonexistent/socket")) << i;
    }
    Client wrong(loop.context(),
                 {.place = store::Place{"somewhere", ""}, .notice = [](int32_t, const std::string &) {}});
    for (int i = 0; i < 2; i++) {
        const store::Status status = wrong.connect(db);
        EXPECT_EQ(status.code, -22);
        EXPECT_THAT(status.reason, HasSubstr("somewhere")) << i;
    }
}

TEST_F(ClientTest, TwoClientsInOneProcessKnowNothingOfEachOther)
{
    StoreServer other_server;
    std::vector<std::string> other_notices;
    Client other(loop.context(),
                 {.name = "other",
                  .place = store::Place{other_server.endpoint(), ""},
                  .notice = [&](int32_t, const std::string &text) { other_notices.push_back(text); }});
    const Card card(0, 1, 0);
    ASSERT_TRUE(client->set(db, *card.message()));
    EXPECT_FALSE(other.exists(db, *card.message()).value);
    EXPECT_THAT(other_server.run(0, {"CLIENT", "LIST"}), HasSubstr("name=other"));

    std::vector<std::string> lost;
    const auto note_loss = [&](const std::string &who) {
        return [&lost, who](const ConnectionEvent &event) {
            if (event.kind == ConnectionEvent::Kind::lost) {
                lost.push_back(who + ": " + event.reason);
            }
        };
    };
    ASSERT_TRUE(client->on_connection(db, note_loss("this")));
    ASSERT_TRUE(other.on_connection(db, note_loss("other")));
    bool in_place = false;
    const auto subscription = client->subscribe(db, card_type, [](const Change &) {});
    const auto other_subscription = other.subscribe(
        db, card_type, [&](const Change &change) { in_place = change.command == VX_MOM_CMD_SUBSCRIBED; });
    serve_until([&] { return in_place; });
    other_server.kill();
    serve_until([&] { return !lost.empty(); });
    EXPECT_THAT(lost, ElementsAre(HasSubstr("other: " + other_server.endpoint())));
    EXPECT_THAT(notices, IsEmpty());
    EXPECT_THAT(other_notices, IsEmpty()) << "an event has said it";
}

TEST_F(ClientTest, AScanBringsRecordsWithRevisionAndWriter)
{
    ASSERT_TRUE(client->set(db, *Card(0, 2, 0).message()));
    ASSERT_TRUE(client->set(db, *Card(0, 1, 0).message()));
    std::map<std::string, uint64_t> found;
    std::vector<uint64_t> numbers;
    const auto scanned = client->scan(db, card_type, [&](const store::Record &record) {
        found[record.key] = record.revision;
        numbers.push_back(record.origin().number);
    });
    EXPECT_TRUE(scanned);
    EXPECT_THAT(scanned.value, IsEmpty());
    EXPECT_THAT(found, ElementsAre(std::pair("p_dev.card_info:0:0:1:0", 2U),
                                   std::pair("p_dev.card_info:0:0:2:0", 1U)));
    EXPECT_THAT(numbers, ElementsAre(1U, 2U));
    EXPECT_THROW(
        (void)client->scan(db, card_type, [](const store::Record &) { throw std::logic_error("x"); }),
        std::logic_error);
}

TEST_F(ClientTest, ASubscriptionDeliversWhatIsThereThenEveryChange)
{
    ASSERT_TRUE(client->set(db, *Card(0, 1, 0).message()));
    const store::Subscription subscription = follow(*client);
    serve_until([&] { return has_event("29"); });
    const int32_t fields[] = {6};
    ASSERT_TRUE(client->set_fields(db, *Card(0, 1, 0, 9).message(), fields));
    ASSERT_TRUE(client->erase(db, *Card(0, 1, 0).message()));
    serve_until([&] { return events.size() == 4; });
    EXPECT_THAT(events, ElementsAre("4 p_dev.card_info:0:0:1:0 at 1 existing", "29",
                                    "6 p_dev.card_info:0:0:1:0 at 2", "3 p_dev.card_info:0:0:1:0 at 3"));
    EXPECT_TRUE(client->last_contact(db));
    EXPECT_FALSE(client->last_contact(2));
}

TEST_F(ClientTest, WhatDoesNotDecodeIsToldToTheSubscriber)
{
    ASSERT_TRUE(client->set(db, *Card(0, 1, 0).message()));
    ASSERT_EQ(server.run(db, {"HSET", "p_dev.card_info:0:0:1:0", "6", "junk"}), "1");
    ASSERT_TRUE(client->set(db, *Card(0, 2, 0).message()));
    ASSERT_EQ(server.run(db, {"HSET", "p_dev.card_info:0:0:2:0", "rev", "junk"}), "0");
    const store::Subscription subscription = follow(*client);
    serve_until([&] { return has_event("29"); });
    EXPECT_THAT(events, UnorderedElementsAre(HasSubstr("4 error -74 field 6"),
                                             "4 error -74 its revision is no number existing", "29"));
    EXPECT_THAT(notices, IsEmpty());
}

TEST_F(ClientTest, ACancelledSubscriptionDeliversNothingUntilItIsAskedForAgain)
{
    ASSERT_TRUE(client->set(db, *Card(0, 1, 0).message()));
    store::Subscription subscription = follow(*client);
    serve_until([&] { return has_event("29"); });
    subscription.cancel();
    subscription.cancel();
    events.clear();
    ASSERT_TRUE(client->set(db, *Card(0, 2, 0).message()));
    bool in_place = false;
    auto acks = client->subscribe(db, p_libpub__app_cg_card_check_ack__descriptor,
                                  [&](const Change &) { in_place = true; });
    serve_until([&] { return in_place; });
    EXPECT_THAT(events, IsEmpty());
    subscription = follow(*client);
    serve_until([&] { return has_event("29"); });
    EXPECT_EQ(events.size(), 3U);
    ASSERT_TRUE(client->set(db, *Card(0, 3, 0).message()));
    serve_until([&] { return has_event("4 p_dev.card_info:0:0:3:0 at 3"); });
}

TEST_F(ClientTest, AHandlerMayEndItsOwnSubscriptionAndAnOldHandleEndsNoNewOne)
{
    for (int slot = 1; slot <= 3; slot++) {
        ASSERT_TRUE(client->set(db, *Card(0, slot, 0).message()));
    }
    int told = 0;
    store::Subscription subscription;
    auto held = std::make_shared<int>();
    const std::weak_ptr<int> watched = held;
    auto asked = client->subscribe(db, card_type, [&, held = std::move(held)](const Change &) {
        told++;
        subscription.cancel();
    });
    subscription = std::move(asked.value);
    serve_until([&] { return told > 0; });
    EXPECT_TRUE(watched.expired()) << "what the handler held is free";
    auto old = client->subscribe(db, card_type, [](const Change &) { FAIL() << "it was replaced"; });
    const store::Subscription present = follow(*client);
    old.value.cancel();
    serve_until([&] { return has_event("29"); });
    EXPECT_EQ(told, 1);
    EXPECT_EQ(events.size(), 4U);
}

TEST_F(ClientTest, WhatAHandlerThrowsEndsTheLoopAndNoHandlerIsCalledAfterwards)
{
    ASSERT_TRUE(client->set(db, *Card(0, 1, 0).message()));
    ASSERT_TRUE(client->set(db, *Card(0, 2, 0).message()));
    int told = 0;
    const auto subscription = client->subscribe(db, card_type, [&](const Change &) {
        told++;
        throw std::range_error("mine");
    });
    EXPECT_THROW(loop.run(), std::range_error);
    EXPECT_EQ(told, 1);
}

TEST_F(ClientTest, TheConnectionIsToldOfFromItsBeginToItsReturn)
{
    using Kind = ConnectionEvent::Kind;
    std::vector<ConnectionEvent> told;
    ASSERT_TRUE(client->on_connection(db, [&](const ConnectionEvent &event) { told.push_back(event); }));
    ASSERT_TRUE(client->open(db));
    serve_until([&] { return told.size() == 1; });
    EXPECT_EQ(told[0].kind, Kind::connected);
    EXPECT_EQ(told[0].database, db);
    ASSERT_TRUE(client->open(db));
    serve_until([&] { return told.size() == 2; });
    EXPECT_EQ(told[1].kind, Kind::connected) << "once for each call";
    (void)server.run(0, {"CLIENT", "KILL", "TYPE", "pubsub"}); // the one with a subscription
    (void)server.run(0, {"CLIENT", "KILL", "TYPE", "normal", "SKIPME", "yes"});
    serve_until([&] { return told.size() == 4; });
    EXPECT_EQ(told[2].kind, Kind::lost);
    EXPECT_THAT(told[2].reason, HasSubstr(server.endpoint()));
    EXPECT_EQ(told[3].kind, Kind::returned);
    EXPECT_TRUE(told[3].same_data);
    EXPECT_THAT(client->open(-1).reason, "there is no database -1");
}

// What is heard ends with the last thing that came, not with the loss, which is noticed later.
TEST_F(ClientTest, OfAServerThatHangsTheLastContactIsTheLastThingHeard)
{
    const ScopedSetting shorter("VX_MOM_DEADLINE_MS", "100");
    client.emplace(loop.context(), options());
    bool is_lost = false;
    ASSERT_TRUE(client->on_connection(
        db, [&](const ConnectionEvent &event) { is_lost = event.kind == ConnectionEvent::Kind::lost; }));
    const store::Subscription subscription = follow(*client);
    serve_until([&] { return has_event("29"); });
    const auto before = client->last_contact(db);
    server.freeze();
    const auto frozen = std::chrono::steady_clock::now();
    serve_until([&] { return is_lost; });
    server.thaw();
    ASSERT_TRUE(before && client->last_contact(db));
    EXPECT_GE(*client->last_contact(db), *before);
    EXPECT_LE(*client->last_contact(db), frozen + milliseconds(1));
}

} // namespace
