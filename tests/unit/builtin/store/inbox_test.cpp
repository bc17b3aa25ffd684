// What the connection on the loop brings: its loss and return, and changes in one order.
#include "store/inbox.h"

#include <poll.h>

#include <atomic>
#include <new>
#include <optional>

#include "loop/loop.h"
#include "loop/platform_context.h"
#include "scripted_server.h"
#include "store/client.h"
#include "store/database.h"
#include "store_client_fixture.h"

namespace
{

using store_test::Ack;
using store_test::array;
using store_test::bulk;
using store_test::Card;
using testing::ElementsAre;

class InboxTest : public store_test::StoreClientTest
{
};

int32_t note_confirmed(void *arg, vx_mom_pmsg_t *pmsg)
{
    if (pmsg->cmd == VX_MOM_CMD_SUBSCRIBED) {
        auto *note = static_cast<std::pair<std::string *, std::string> *>(arg);
        *note->first += note->second;
    }
    return 0;
}

int32_t note_name(void *arg, vx_mom_pmsg_t * /*pmsg*/)
{
    auto *note = static_cast<std::pair<std::vector<std::string> *, std::string> *>(arg);
    note->first->push_back(note->second);
    return 0;
}

TEST_F(InboxTest, AConnectionIsWaitedForUntilTheServerComesUp)
{
    server.kill();
    ASSERT_EQ(vx_mom_client_connect(global.get(), 1, note_connect, this), 0);
    EXPECT_FALSE(run_until([&] { return !reports.empty(); }, 100));
    server.start();
    EXPECT_TRUE(run_until_report("up"));
}

TEST_F(InboxTest, ACutConnectionComesBackWithTheSameData)
{
    subscribe_and_forget();
    cut_loop_connections();
    ASSERT_TRUE(run_until_report("back 1 type 2"));
    EXPECT_THAT(reports, ElementsAre("lost 1", "back 1 type 2"));
}

TEST_F(InboxTest, EveryDatabaseIsReportedAndOnlyOnce)
{
    connect(1);
    connect(28);
    reports.clear();
    cut_all_connections();
    ASSERT_TRUE(run_until([&] { return reports.size() >= 4; }));
    EXPECT_THAT(reports,
                testing::UnorderedElementsAre("lost 1", "lost 28", "back 1 type 2", "back 28 type 2"));
}

TEST_F(InboxTest, WhatHappenedDuringTheOutageIsDelivered)
{
    ASSERT_EQ(write(1, 1), 0);
    ASSERT_EQ(write(2, 1), 0);
    ASSERT_EQ(write(3, 1), 0);
    subscribe_and_forget();
    cut_loop_connections();
    ASSERT_EQ(vx_mom_del(global.get(), 1, Card(0, 1, 0).message(), nullptr, nullptr), 0);
    ASSERT_EQ(write(2, 2), 0);
    ASSERT_EQ(write(4, 1), 0);
    ASSERT_TRUE(run_until_event("4 0/4/0 type 1"));
    ASSERT_EQ(write(5, 1), 0);
    ASSERT_TRUE(run_until_event("4 0/5/0 type 1"));
    EXPECT_THAT(events, ElementsAre("3 0/1/0 type 1", "4 0/2/0 type 2", "4 0/4/0 type 1", "4 0/5/0 type 1"));
}

TEST_F(InboxTest, SubscriptionsAreServedInTheOrderAsked)
{
    for (int32_t slot = 0; slot < 300; slot++) {
        ASSERT_EQ(write(slot, 1), 0);
    }
    connect(1);
    std::string order;
    std::pair<std::string *, std::string> first{&order, "cards "};
    std::pair<std::string *, std::string> second{&order, "acks "};
    ASSERT_EQ(vx_mom_subscribe(global.get(), 1, Card(0, 0, 0).message(), 0, note_confirmed, &first), 0);
    ASSERT_EQ(vx_mom_subscribe(global.get(), 1, Ack(0, 0, 0, "").message(), 0, note_confirmed, &second), 0);
    ASSERT_TRUE(run_until([&] { return order.find("acks") != std::string::npos; }));
    EXPECT_EQ(order, "cards acks ");
}

TEST_F(InboxTest, ChangesOfDifferentTypesComeInTheOrderMade)
{
    subscribe_and_forget();
    std::pair<std::vector<std::string> *, std::string> acks{&events, "ack"};
    ASSERT_EQ(vx_mom_subscribe(global.get(), 1, Ack(0, 0, 0, "").message(), 0, note_name, &acks), 0);
    ASSERT_TRUE(run_until_event("ack"));
    events.clear();
    std::vector<std::string> expected;
    for (int32_t slot = 0; slot < 200; slot++) {
        ASSERT_EQ(vx_mom_set_sync(global.get(), 1, Ack(0, slot, 0, "alarm").message()), 0);
        ASSERT_EQ(write(slot, 1), 0);
        expected.emplace_back("ack");
        expected.push_back("4 0/" + std::to_string(slot) + "/0 type 1");
    }
    ASSERT_TRUE(run_until_event(expected.back()));
    EXPECT_EQ(events, expected);
}

TEST_F(InboxTest, ASubscriberThatTheServerCutsOffForBeingSlowMissesNothing)
{
    ASSERT_EQ(server.run(0, {"CONFIG", "SET", "client-output-buffer-limit", "pubsub 1mb 1mb 1"}), "OK");
    subscribe_and_forget();
    const std::string long_name(4000, 'x');
    Card card(0, 1, 0, 1);
    std::string name = long_name;
    card.record.name = name.data();
    for (int32_t slot = 0; slot < 1000; slot++) {
        card.index.slotid = slot;
        ASSERT_EQ(vx_mom_set_sync(global.get(), 1, card.message()), 0);
    }
    ASSERT_TRUE(run_until_report("back 1 type 2"));
    ASSERT_TRUE(run_until_event("4 0/999/0 type 1"));
    EXPECT_EQ(events.size(), 1000U);
    for (int32_t slot = 0; slot < 1000; slot++) {
        EXPECT_EQ(count("4 0/" + std::to_string(slot) + "/0 type 1"), 1) << slot;
    }
}

// Memory runs out within a step of a subscription.
TEST_F(InboxTest, ATurnThatThrewIsNotTheLast)
{
    std::atomic<bool> is_away = true;
    store_test::ScriptedServer scripted([&](const std::vector<std::string> &command) {
        if (command[0] == "PSUBSCRIBE") {
            return std::optional(array({bulk("psubscribe"), bulk(command[1]), ":1\r\n"}));
        }
        if (command[0] == "PING") {
            return std::optional(array({bulk("pong"), bulk(command.size() == 1 ? "" : command[1])}));
        }
        if (command[0] == "SSCAN") {
            return is_away ? std::nullopt : std::optional(array({bulk("0"), "*0\r\n"}));
        }
        return std::optional(store_test::ordinary_answer(command));
    });
    bool is_memory_out = false;
    int thrown = 0;
    store::Shared shared{
        global.get(), platform::event_base_of(global.get()),
        platform::Messages([&](int32_t, const std::string &) { is_memory_out = thrown == 0; }),
        std::chrono::milliseconds(100), [&] {
            if (is_memory_out) {
                throw std::bad_alloc();
            }
        }};
    store::Server server_of_it(shared, {scripted.endpoint(), {}});
    store::Database database(server_of_it, 1);
    bool in_place = false;
    (void)database.inbox.subscribe(p_dev__card_info__descriptor,
                                   [&](const store::Change &) { in_place = true; });
    EXPECT_TRUE(run_until([&] {
        try {
            (void)database.inbox.turn();
        } catch (const std::bad_alloc &) {
            thrown++;
            is_memory_out = false;
            is_away = false;
        }
        return in_place;
    }));
    EXPECT_EQ(thrown, 1);
}

// Finding out what came back takes several round trips, which a store that is far away, or busy, does not
// answer in the short time that a call gets once the budget of an outage is used up.
TEST(SlowReturn, AfterALongOutageASlowStoreIsStillReadmitted)
{
    std::atomic<bool> is_away = false;
    std::atomic<bool> is_slow = false;
    store_test::ScriptedServer server([&](const std::vector<std::string> &command) {
        if (is_slow) {
            (void)poll(nullptr, 0, 8);
        }
        return is_away ? std::nullopt : std::optional(store_test::ordinary_answer(command));
    });
    const store_test::ScopedSetting deadline("VX_MOM_DEADLINE_MS", "600");
    platform::Loop loop("inbox_test");
    store::Client client(loop.context(), {.place = store::Place{server.endpoint().text, ""},
                                          .notice = [](int32_t, const std::string &) {}});
    using Kind = store::ConnectionEvent::Kind;
    std::vector<Kind> reports;
    ASSERT_TRUE(client.on_connection(1, [&](const store::ConnectionEvent &event) {
        reports.push_back(event.kind);
        loop.stop();
    }));
    ASSERT_TRUE(client.open(1));
    const auto late = loop.after(std::chrono::seconds(20), [&] { loop.stop(); });
    loop.run();
    is_away = true;
    EXPECT_FALSE(client.set(1, *Card(0, 1, 0).message()));
    loop.run();
    is_slow = true;
    is_away = false;
    loop.run();
    EXPECT_THAT(reports, ElementsAre(Kind::connected, Kind::lost, Kind::returned));
}

} // namespace
