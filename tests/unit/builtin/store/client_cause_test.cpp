// Each write says who made it, and what he was handling then.
#include "cause_fixture.h"
#include "loop/platform_context.h"

namespace
{

using std::chrono::milliseconds;
using store::Cause;
using store::Change;
using store::ConnectionEvent;
using store::Origin;
using store_test::Card;
using store_test::card_type;
using store_test::CauseTest;
using store_test::db;
using store_test::key_of;

Cause because_of(uint64_t revision, int32_t slot)
{
    return {Cause::Kind::record, revision, key_of(slot)};
}

TEST_F(CauseTest, OfAWriteOfTheProgramsOwnIsNone)
{
    listen();
    write(1);
    EXPECT_EQ(kept(1), Cause{Cause::Kind::none});
    const Origin published = origin_heard(VX_MOM_CMD_SET, 1);
    EXPECT_EQ(published.cause, Cause{Cause::Kind::none});
    EXPECT_EQ(published.instance.size(), 8U);
    EXPECT_EQ(published.number, 1U);
}

TEST_F(CauseTest, OfAWriteOfATimerIsTheTimer)
{
    const auto timer = loop.after(milliseconds(0), [&] {
        write(1);
        loop.stop();
    });
    loop.run();
    EXPECT_EQ(kept(1), Cause{Cause::Kind::timer});
    write(2);
    EXPECT_EQ(kept(2), Cause{Cause::Kind::none}) << "it has ended with the timer";
}

TEST_F(CauseTest, OfAWriteOfATimerIsTheTimerInTheDaemonsInterfaceToo)
{
    struct Fired {
        CauseTest *test;
        static int32_t write(vx_thread_t *timer)
        {
            auto *test = static_cast<Fired *>(timer->arg)->test;
            EXPECT_EQ(vx_mom_set_sync(test->loop.context(), db, Card(0, 1, 0).message()), 0);
            test->loop.stop();
            return 0;
        }
    } fired{this};
    ASSERT_NE(vx_thread_add_timer_timeval(loop.context(), Fired::write, &fired, {0, 0}), nullptr);
    loop.run();
    EXPECT_EQ(kept(1), Cause{Cause::Kind::timer});
}

TEST_F(CauseTest, OfAWriteOfANotificationIsTheRecordAndItsChange)
{
    listen();
    write(1);
    auto asked = client->subscribe(db, card_type, [&](const Change &change) {
        if (change.key == key_of(1) && !has_heard(VX_MOM_CMD_SET, change.existing ? 10 : 20)) {
            write(change.existing ? 10 : 20);
        }
        if (change.command == VX_MOM_CMD_SUBSCRIBED) {
            write(30);
        }
    });
    serve_until([&] { return has_heard(VX_MOM_CMD_SET, 30); });
    EXPECT_EQ(kept(10), because_of(1, 1)) << "an existing record";
    EXPECT_EQ(kept(30), Cause{Cause::Kind::connection}) << "being in place";
    write(1, 2);
    EXPECT_EQ(origin_heard(VX_MOM_CMD_SET, 20).cause, because_of(4, 1)) << "a live change";
    EXPECT_EQ(kept(20), because_of(4, 1));
    EXPECT_EQ(kept(1), Cause{Cause::Kind::none});
}

TEST_F(CauseTest, OfAWriteOfAScanWithinANotificationIsTheRecordScannedAndThenTheNotificationAgain)
{
    write(1);
    write(2);
    bool is_done = false;
    auto asked = client->subscribe(db, card_type, [&](const Change &change) {
        if (is_done || change.key != key_of(1)) {
            return;
        }
        is_done = true;
        (void)client->scan(db, card_type, [&](const store::Record &record) {
            if (record.key == key_of(2)) {
                write(12);
            }
        });
        write(11);
        EXPECT_THROW((void)client->scan(db, card_type, [](const store::Record &) { throw 1; }), int);
        write(13);
    });
    serve_until([&] { return is_done; });
    EXPECT_EQ(kept(12), because_of(2, 2));
    EXPECT_EQ(kept(11), because_of(1, 1));
    EXPECT_EQ(kept(13), because_of(1, 1)) << "an exception leaves nothing behind";
}

TEST_F(CauseTest, OfAWriteWhenTheConnectionReturnsIsThat)
{
    using Kind = ConnectionEvent::Kind;
    std::map<Kind, int32_t> slots{{Kind::connected, 1}, {Kind::lost, 2}, {Kind::returned, 3}};
    std::vector<Kind> told;
    ASSERT_TRUE(client->on_connection(db, [&](const ConnectionEvent &event) {
        write(slots[event.kind]);
        told.push_back(event.kind);
    }));
    ASSERT_TRUE(client->open(db));
    serve_until([&] { return !told.empty(); });
    (void)server.run(0, {"CLIENT", "KILL", "TYPE", "normal", "SKIPME", "yes"});
    serve_until([&] { return told.size() == 3; });
    for (const auto &[kind, slot] : slots) {
        EXPECT_EQ(kept(slot), Cause{Cause::Kind::connection}) << slot;
    }
}

TEST_F(CauseTest, OfARecordThatVanishedUnheardIsTheReturn)
{
    write(1);
    bool is_told = false;
    auto asked = client->subscribe(db, card_type, [&](const Change &change) {
        if (change.command == VX_MOM_CMD_DELETED) {
            EXPECT_EQ(change.revision, 0U);
            EXPECT_TRUE(change.mark.empty());
            write(2);
            is_told = true;
        }
        in_place = in_place || change.command == VX_MOM_CMD_SUBSCRIBED;
    });
    serve_until([&] { return in_place; });
    (void)server.run(0, {"CLIENT", "KILL", "TYPE", "pubsub"});
    ASSERT_EQ(client->erase(db, *Card(0, 1, 0).message()).code, 0);
    serve_until([&] { return is_told; });
    EXPECT_EQ(kept(2), Cause{Cause::Kind::connection});
}

TEST_F(CauseTest, DeletionsSayItToo)
{
    for (int32_t slot = 1; slot <= 3; slot++) {
        write(slot);
    }
    listen();
    ASSERT_TRUE(client->erase(db, *Card(0, 1, 0).message()));
    EXPECT_EQ(origin_heard(VX_MOM_CMD_DELETED, 1).cause, Cause{Cause::Kind::none});
    const auto timer = loop.after(
        milliseconds(0), [&] { EXPECT_TRUE(client->erase_matching(db, *Card(0, 0, 0).message(), 1)); });
    const Origin second = origin_heard(VX_MOM_CMD_DELETED, 2);
    EXPECT_EQ(second.cause, Cause{Cause::Kind::timer});
    EXPECT_EQ(second.number, 5U) << "each write has its number";
    EXPECT_EQ(origin_heard(VX_MOM_CMD_DELETED, 3), second) << "one call";
}

TEST_F(CauseTest, AFieldWrittenSaysItWithTheWholeRecord)
{
    write(1, 7);
    listen();
    const int32_t fields[] = {12};
    Card named(0, 1, 0);
    std::string name = "n";
    named.record.name = name.data();
    const auto timer =
        loop.after(milliseconds(0), [&] { EXPECT_TRUE(client->set_fields(db, *named.message(), fields)); });
    EXPECT_EQ(origin_heard(VX_MOM_CMD_HMSET, 1).cause, Cause{Cause::Kind::timer});
    EXPECT_EQ(kept(1), Cause{Cause::Kind::timer});
}

TEST_F(CauseTest, AnotherClientIsAnotherInstance)
{
    write(1);
    const auto first = client->read(db, *Card(0, 1, 0).message()).value->origin();
    client.emplace(loop.context());
    write(1);
    const auto second = client->read(db, *Card(0, 1, 0).message()).value->origin();
    EXPECT_NE(first.instance, second.instance);
    EXPECT_EQ(second.number, 1U);
}

} // namespace
