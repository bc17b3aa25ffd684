// One client with databases on two servers: that of database 1 is the host's, the others are on another one.
#include <algorithm>
#include <chrono>

#include "client_fixture.h"
#include "store/connection/errors.h"
#include "store/functions.h"

namespace
{

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using store::Change;
using store::ConnectionEvent;
using store_test::Card;
using store_test::card_type;
using store_test::key_of;
using store_test::ScopedSetting;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class ClientServers : public store_test::ClientFixture
{
protected:
    ClientServers() { restart_client(options()); }

    void restart_client(const store::Options &with)
    {
        client.reset();
        client.emplace(loop.context(), with);
    }
    // Has a connection of a database, and its events in `reports`.
    void follow(int32_t database)
    {
        ASSERT_TRUE(client->on_connection(database, [this](const ConnectionEvent &event) { note(event); }));
        ASSERT_TRUE(client->open(database));
    }
    void follow_all_and_forget()
    {
        for (const int32_t database : {1, 28, 33}) {
            ASSERT_NO_FATAL_FAILURE(follow(database));
        }
        serve_until([this] { return reports.size() == 3; });
        reports.clear();
    }
    void note(const ConnectionEvent &event)
    {
        using Kind = ConnectionEvent::Kind;
        if (event.kind != Kind::connected) {
            EXPECT_EQ(event.server, (event.database == 1 ? host : global).endpoint());
        }
        const std::string number = std::to_string(event.database);
        reports.push_back(event.kind == Kind::connected ? "up " + number
                          : event.kind == Kind::lost
                              ? "lost " + number
                              : "back " + number + " type " + (event.same_data ? "2" : "1"));
    }
    bool has_report(const std::string &report) const
    {
        return std::find(reports.begin(), reports.end(), report) != reports.end();
    }
    store::Status write(int32_t database) { return client->set(database, *Card(0, 1, 0).message()); }
    static milliseconds time(const std::function<void()> &work)
    {
        const auto began = steady_clock::now();
        work();
        return std::chrono::duration_cast<milliseconds>(steady_clock::now() - began);
    }

    cg::StoreServer &host = server;
    cg::StoreServer global;
    ScopedSetting home_of_28{"VX_MOM_ENDPOINT_28", global.endpoint()};
    ScopedSetting home_of_33{"VX_MOM_ENDPOINT_33", global.endpoint()};
    ScopedSetting deadline{"VX_MOM_DEADLINE_MS", "300"};
    std::vector<std::string> reports;
};

TEST_F(ClientServers, ARecordIsOnTheServerOfItsDatabase)
{
    for (const int32_t database : {1, 28, 33}) {
        ASSERT_TRUE(write(database));
        const bool is_hosts = database == 1;
        EXPECT_EQ(host.run(database, {"EXISTS", key_of(1)}), is_hosts ? "1" : "0") << database;
        EXPECT_EQ(global.run(database, {"EXISTS", key_of(1)}), is_hosts ? "0" : "1") << database;
    }
}

TEST_F(ClientServers, AHundredCallsToAnAbsentServerBlockAsOneWhileTheOtherAnswers)
{
    ASSERT_TRUE(write(1));
    ASSERT_TRUE(write(28));
    global.freeze();
    const milliseconds taken = time([&] {
        for (int i = 0; i < 100; i++) {
            EXPECT_TRUE(write(1));
            EXPECT_EQ(write(28).code, store::timed_out);
        }
    });
    global.thaw();
    EXPECT_LT(taken, milliseconds(3000)) << "a hundred deadlines are 30 s, a hundred attempts 5 s";
}

TEST_F(ClientServers, DatabasesOfOneServerShareABudget)
{
    const ScopedSetting longer("VX_MOM_DEADLINE_MS", "1000");
    restart_client(options());
    ASSERT_TRUE(write(28));
    ASSERT_TRUE(write(33));
    global.freeze();
    const milliseconds taken = time([&] {
        EXPECT_EQ(write(28).code, store::timed_out);
        EXPECT_EQ(write(33).code, store::timed_out);
    });
    global.thaw();
    EXPECT_GE(taken, milliseconds(1000));
    EXPECT_LT(taken, milliseconds(2000));
}

TEST_F(ClientServers, TheLossOfOneIsReportedForItsDatabasesOnly)
{
    ASSERT_NO_FATAL_FAILURE(follow_all_and_forget());
    std::vector<int32_t> changes;
    const auto cards =
        client->subscribe(1, card_type, [&](const Change &change) { changes.push_back(change.command); });
    ASSERT_TRUE(cards);
    serve_until([&] { return !changes.empty(); });
    global.kill();
    serve_until([this] { return reports.size() == 2; });
    ASSERT_TRUE(write(1));
    serve_until([&] { return changes.size() == 2; });
    EXPECT_THAT(changes, ElementsAre(VX_MOM_CMD_SUBSCRIBED, VX_MOM_CMD_SET));
    EXPECT_THAT(reports, UnorderedElementsAre("lost 28", "lost 33"));
}

TEST_F(ClientServers, AWriteGivenUpMakesOnlyTheReturnOfItsDatabaseUnbelievable)
{
    ASSERT_NO_FATAL_FAILURE(follow_all_and_forget());
    ASSERT_EQ(global.run(0, {"SAVE"}), "OK");
    global.kill();
    EXPECT_EQ(write(28).code, store::timed_out);
    global.start();
    serve_until([this] { return reports.size() == 4; });
    EXPECT_THAT(reports, UnorderedElementsAre("lost 28", "lost 33", "back 28 type 1", "back 33 type 2"));
    EXPECT_TRUE(write(28));
}

TEST_F(ClientServers, WithoutAWriteTheReturnIsOfTheSameData)
{
    ASSERT_NO_FATAL_FAILURE(follow_all_and_forget());
    ASSERT_EQ(host.run(0, {"SAVE"}), "OK");
    host.kill();
    EXPECT_TRUE(write(28)) << "at the other server";
    host.start();
    serve_until([this] { return reports.size() == 2; });
    EXPECT_THAT(reports, ElementsAre("lost 1", "back 1 type 2"));
}

TEST_F(ClientServers, AnEmptiedServerIsOtherDataForItsDatabasesOnly)
{
    ASSERT_NO_FATAL_FAILURE(follow_all_and_forget());
    global.kill();
    global.start();
    serve_until([this] { return reports.size() == 4; });
    EXPECT_THAT(reports, UnorderedElementsAre("lost 28", "lost 33", "back 28 type 1", "back 33 type 1"));
}

TEST_F(ClientServers, AnAbsentOneHoldsUpNoDatabaseOfAnother)
{
    global.kill();
    for (const int32_t database : {28, 1, 33}) {
        ASSERT_NO_FATAL_FAILURE(follow(database));
    }
    serve_until([this] { return !reports.empty(); });
    EXPECT_THAT(reports, ElementsAre("up 1"));
    global.start();
    serve_until([this] { return reports.size() == 3; });
    EXPECT_THAT(reports, ElementsAre("up 1", "up 28", "up 33")) << "as asked";
}

// The host's database is watched, so that its connection cannot ask.
TEST_F(ClientServers, EachIsGivenItsFunctions)
{
    store::Options keeping = options();
    keeping.keeps_functions = true;
    restart_client(keeping);
    ASSERT_NO_FATAL_FAILURE(follow_all_and_forget());
    const auto cards = client->subscribe(1, card_type, [](const Change &) {});
    ASSERT_TRUE(cards);
    serve_until([this] { return host.run(0, {"CLIENT", "LIST"}).find("psub=1") != std::string::npos; });
    for (cg::StoreServer *each : {&host, &global}) {
        ASSERT_EQ(each->run(0, {"FUNCTION", "FLUSH"}), "OK");
        serve_until([&] {
            return each->run(0, {"FUNCTION", "LIST"}).find(store::set_function) != std::string::npos;
        });
        serve_until([this] { return !notices.empty(); });
        EXPECT_THAT(notices, ElementsAre(AllOf(HasSubstr(" at " + each->endpoint() + ": "),
                                               HasSubstr("the server had lost its functions"))));
        notices.clear();
    }
    EXPECT_THAT(reports, IsEmpty());
}

TEST_F(ClientServers, WhatIsAwayIsInTheHealthAtAnother)
{
    const auto away = [this](const std::string &number) {
        return host.run(1, {"HGET", "@health", "away_" + number});
    };
    ASSERT_TRUE(client->publish_health(1));
    ASSERT_NO_FATAL_FAILURE(follow_all_and_forget());
    global.kill();
    serve_until([&] { return away("28") == "1" && away("33") == "1"; });
    global.start();
    serve_until([&] { return away("28") == "0" && away("33") == "0"; });
    host.kill();
    serve_until([this] { return has_report("lost 1"); });
    host.start();
    serve_until([&] { return away("28") == "0"; });
    EXPECT_EQ(away("1"), "(nil)") << "a server that does not answer says enough";
}

TEST_F(ClientServers, WhatWasNeverThereIsAwayToo)
{
    global.kill();
    ASSERT_TRUE(client->publish_health(1));
    ASSERT_NO_FATAL_FAILURE(follow(28));
    serve_until([this] { return host.run(1, {"HGET", "@health", "away_28"}) == "1"; });
}

TEST_F(ClientServers, AWrongSettingFailsItsDatabaseOnly)
{
    const ScopedSetting wrong("VX_MOM_ENDPOINT_28", "nonsense");
    EXPECT_TRUE(write(1));
    EXPECT_TRUE(write(33));
    for (int i = 0; i < 2; i++) {
        const store::Status status = write(28);
        EXPECT_EQ(status.code, store::invalid);
        EXPECT_THAT(status.reason, HasSubstr("VX_MOM_ENDPOINT_28: endpoint 'nonsense' is none"));
    }
    EXPECT_THAT(notices, ElementsAre(HasSubstr("store client: VX_MOM_ENDPOINT_28: ")));
}

TEST_F(ClientServers, WhatIsWrongForAllIsReportedOnce)
{
    const ScopedSetting all("VX_MOM_AUTH_FILE", "/nonexistent/auth");
    for (const int32_t database : {1, 28, 33}) {
        EXPECT_EQ(write(database).code, store::invalid);
    }
    EXPECT_THAT(notices, ElementsAre(HasSubstr("store client: VX_MOM_AUTH_FILE: /nonexistent/auth: ")));
}

TEST_F(ClientServers, WritesAreCountedOverAll)
{
    std::vector<std::string> numbers;
    for (const int32_t database : {1, 28, 1}) {
        ASSERT_TRUE(write(database));
        const auto found = client->read(database, *Card(0, 1, 0).message());
        ASSERT_TRUE(found && found.value);
        const std::string &mark = found.value->mark;
        const size_t first = mark.find('.');
        numbers.push_back(mark.substr(first, mark.find(' ') - first));
    }
    EXPECT_THAT(numbers, ElementsAre(".1", ".2", ".3"));
}

TEST_F(ClientServers, ReplicasAreWaitedForWhereTheyAreConfigured)
{
    const ScopedSetting replicas("VX_MOM_WAIT_REPLICAS_28", "1");
    const ScopedSetting limit("VX_MOM_WAIT_MS", "20");
    EXPECT_TRUE(write(1));
    EXPECT_THAT(notices, IsEmpty());
    EXPECT_TRUE(write(28));
    EXPECT_THAT(notices, ElementsAre(HasSubstr("a write is confirmed by 0 replicas and not by 1 at " +
                                               global.endpoint())));
}

} // namespace
