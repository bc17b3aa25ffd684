// All that the tracker wants to hear of, followed in a store that this file stands in for.
#include "admission/follower.h"

#include <gmock/gmock.h>

#include <cerrno>

#include "base/failure.h"
#include "p_dev.pb-c.h"

using namespace admission;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

// What was asked of the client, and the handlers that it was given.
struct FakeStore {
    std::vector<std::string> calls;
    std::map<int32_t, store::ConnectionHandler> connections;
    std::map<const ProtobufCMessageDescriptor *, store::ChangeHandler> changes;
    store::Status answer;
} fake;

} // namespace

namespace store
{

struct Client::Parts {
};
struct Subscription::Parts {
};

Client::Client(vx_global_t *, Options) {}
Client::~Client() = default;
Subscription::Subscription() = default;
Subscription::~Subscription() = default;
Subscription::Subscription(Subscription &&) noexcept = default;
Subscription &Subscription::operator=(Subscription &&) noexcept = default;

Status Client::connect(int32_t db)
{
    fake.calls.push_back("connect " + std::to_string(db));
    return fake.answer;
}
Status Client::on_connection(int32_t db, ConnectionHandler handler)
{
    fake.connections[db] = std::move(handler);
    return {};
}
Status Client::open(int32_t db)
{
    fake.calls.push_back("open " + std::to_string(db));
    return fake.answer;
}
Result<Subscription> Client::subscribe(int32_t db, const ProtobufCMessageDescriptor &type,
                                       ChangeHandler handler)
{
    fake.calls.push_back("subscribe " + std::to_string(db) + ' ' + type.short_name);
    fake.changes[&type] = std::move(handler);
    Result<Subscription> result;
    static_cast<Status &>(result) = fake.answer;
    return result;
}

} // namespace store

namespace
{

using Kind = store::ConnectionEvent::Kind;

class FollowerTest : public testing::Test
{
protected:
    FollowerTest() { fake = {}; }
    static void connection(Kind kind, int32_t db) { fake.connections.at(db)({kind, db}); }
    static void subscribed(const TrackedType &type)
    {
        fake.changes.at(type.descriptor)({VX_MOM_CMD_SUBSCRIBED, type.db, type.descriptor});
    }
    void follow()
    {
        follower_.start(false);
        for (const int32_t db : tracked_databases()) {
            connection(Kind::connected, db);
        }
    }
    void notify(int32_t command = VX_MOM_CMD_SET, bool existing = false)
    {
        store::Change change{command, 1, card_.base.descriptor, &card_.base};
        change.existing = existing;
        change.revision = 7;
        const std::string mark = store::text_of({"daemon", 3, {store::Cause::Kind::timer}});
        change.mark = mark;
        fake.changes.at(card_.base.descriptor)(change);
    }
    void hear(const ProtobufCMessage &record, bool deleted, const Change &change)
    {
        EXPECT_EQ(&record, &card_.base);
        events_.emplace_back(deleted ? "deleted" : "written");
        changes_.push_back(change);
    }
    // Whether the last change was said to be news.
    [[nodiscard]] bool is_news() const { return !changes_.back().existing; }
    static int calls(const std::string &what)
    {
        return static_cast<int>(std::count_if(fake.calls.begin(), fake.calls.end(),
                                              [&](const auto &call) { return call.starts_with(what); }));
    }

    PDev__CardInfo card_ = P_DEV__CARD_INFO__INIT;
    std::vector<Change> changes_;
    std::vector<std::string> events_;
    store::Client client_{nullptr};
    Follower follower_{client_,
                       {[this](const ProtobufCMessage &record, bool deleted, const Change &change) {
                            hear(record, deleted, change);
                        },
                        [this](int32_t db, const std::string &key, const std::string &reason) {
                            events_.push_back(std::to_string(db) + ' ' + key + ": " + reason);
                        },
                        [this](int32_t db) { events_.push_back("snapshot " + std::to_string(db)); },
                        [this](const store::ConnectionEvent &event) { events_.push_back(text_of(event)); }}};
};

TEST_F(FollowerTest, EachDatabaseIsOpenedAndItsTypesSubscribedToWhenItIsThere)
{
    follower_.start(false);
    EXPECT_THAT(fake.calls, ElementsAre("open 1", "open 33"));
    connection(Kind::connected, 33);
    EXPECT_THAT(fake.calls, SizeIs(4));
    EXPECT_EQ(calls("subscribe 33 "), 2);
    connection(Kind::connected, 1);
    EXPECT_EQ(calls("subscribe 1 "), 5);
    EXPECT_THAT(events_, IsEmpty());
}

TEST_F(FollowerTest, AStoreThatHasToBeThereIsAskedFirst)
{
    follower_.start(true);
    EXPECT_THAT(fake.calls, ElementsAre("connect 1", "open 1", "connect 33", "open 33"));
    fake.answer = {-EIO, "gone\n"};
    try {
        follower_.start(true);
        FAIL();
    } catch (const cg::Failure &failure) {
        EXPECT_STREQ(failure.what(), "cannot use database 1 of the store: gone\\n");
        EXPECT_EQ(failure.status(), cg::failed);
    }
    fake.answer = {-EINVAL, "no endpoint"};
    try {
        follower_.start(false);
        FAIL();
    } catch (const cg::Failure &failure) {
        EXPECT_EQ(failure.status(), cg::wrong_usage);
    }
}

TEST_F(FollowerTest, ASubscriptionThatFailsIsAFailure)
{
    follower_.start(false);
    fake.answer = {-EIO, "full"};
    try {
        connection(Kind::connected, 1);
        FAIL();
    } catch (const cg::Failure &failure) {
        EXPECT_STREQ(failure.what(), "cannot subscribe to p_dev.dp_lib_grole in database 1: full");
    }
}

TEST_F(FollowerTest, AChangeIsNewsWhenAllTypesOfItsDatabaseWereReported)
{
    follow();
    notify();
    EXPECT_FALSE(is_news());
    EXPECT_EQ(changes_.back().write.revision, 7U);
    EXPECT_EQ(changes_.back().write.origin.instance, "daemon");
    EXPECT_EQ(changes_.back().write.origin.cause.kind, store::Cause::Kind::timer);
    for (const TrackedType &type : tracked_types()) {
        subscribed(type);
    }
    notify(VX_MOM_CMD_DELETED);
    EXPECT_TRUE(is_news());
    notify(VX_MOM_CMD_SET, true); // what was missed
    EXPECT_FALSE(is_news());
    EXPECT_THAT(events_, ElementsAre("written", "snapshot 1", "snapshot 33", "deleted", "written"));
}

TEST_F(FollowerTest, ADatabaseThatComesLaterHoldsUpNoOther)
{
    follower_.start(false);
    connection(Kind::connected, 1);
    for (const TrackedType &type : tracked_types()) {
        if (type.db == 1) {
            subscribed(type);
        }
    }
    notify();
    EXPECT_TRUE(is_news());
    connection(Kind::connected, 33);
    for (const TrackedType &type : tracked_types()) {
        if (type.db == 33) {
            subscribed(type);
        }
    }
    EXPECT_THAT(events_, ElementsAre("snapshot 1", "written", "snapshot 33"));
}

TEST_F(FollowerTest, AfterAnOutageEverythingOfTheDatabaseIsReportedAgain)
{
    follow();
    for (const TrackedType &type : tracked_types()) {
        subscribed(type);
    }
    events_.clear();
    fake.calls.clear();
    connection(Kind::lost, 1);
    EXPECT_FALSE(follower_.in_place().is_complete(1));
    EXPECT_TRUE(follower_.in_place().is_complete(33));
    EXPECT_THAT(fake.calls, IsEmpty());
    connection(Kind::returned, 1);
    EXPECT_EQ(calls("subscribe 1 "), 5);
    EXPECT_EQ(calls("subscribe 33 "), 0);
    notify();
    EXPECT_FALSE(is_news());
    EXPECT_THAT(events_,
                ElementsAre("lost the store, database 1: ; reconnecting",
                            "the store is back, database 1, with other data than before", "written"));
}

TEST_F(FollowerTest, WhatDoesNotDecodeIsReportedAsText)
{
    follow();
    store::Change change{VX_MOM_CMD_SET, 1, card_.base.descriptor};
    change.error = -EIO;
    change.key = "p_dev.card_info:\n";
    change.reason = "field 3\t";
    fake.changes.at(card_.base.descriptor)(change);
    EXPECT_THAT(events_, ElementsAre("1 p_dev.card_info:\\n: field 3\\t"));
}

TEST(ConnectionEvents, AreSaidInOneLine)
{
    EXPECT_EQ(text_of(store::ConnectionEvent{Kind::lost, 33, "reset\n"}),
              "lost the store, database 33: reset\\n; reconnecting");
    EXPECT_EQ(text_of(store::ConnectionEvent{Kind::returned, 1, "", true}), "the store is back, database 1");
    EXPECT_EQ(text_of(store::ConnectionEvent{Kind::returned, 33, "", false, "tcp:a\n"}),
              "the store is back, database 33 at tcp:a\\n, with other data than before");
}

} // namespace
