// The connection that calls go through: signing in, databases, and what a server refuses.
#include "store/connection/sync_connection.h"

#include <sys/stat.h>

#include <fstream>

#include "unit/builtin/store/store_client_fixture.h"

namespace
{

using store_test::Card;
using store_test::ScopedSetting;
using testing::HasSubstr;

class SyncConnectionTest : public store_test::StoreClientTest
{
protected:
    void write_file(const std::string &text)
    {
        std::ofstream(path) << text;
        ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    }

    std::string path = server.folder().path("auth");
};

TEST_F(SyncConnectionTest, TheClientSignsInOnBothConnections)
{
    write_file("user gate\npassword secret\n");
    ASSERT_EQ(server.run(0, {"ACL", "SETUSER", "gate", "on", ">secret", "allkeys", "allchannels", "+@all"}),
              "OK");
    const ScopedSetting file("VX_MOM_AUTH_FILE", path);
    restart_client();
    EXPECT_EQ(vx_mom_client_connect_sync(global.get(), 1), 0);
    connect(1);
    EXPECT_THAT(server.run(0, {"CLIENT", "LIST"}), testing::ContainsRegex("user=gate.*user=gate"));
}

TEST_F(SyncConnectionTest, AWrongPasswordFailsAtOnce)
{
    write_file("user gate\npassword wrong\n");
    const ScopedSetting file("VX_MOM_AUTH_FILE", path);
    restart_client();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(vx_mom_client_connect_sync(global.get(), 1), store::denied);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
    EXPECT_THAT(log_text(), HasSubstr("WRONGPASS"));
    EXPECT_THAT(log_text(), testing::Not(HasSubstr("wrong\n")));
}

TEST_F(SyncConnectionTest, AServerWithTooFewDatabasesIsNamed)
{
    cg::StoreServer small(16);
    const ScopedSetting other("VX_MOM_ENDPOINT", small.endpoint());
    restart_client();
    EXPECT_EQ(vx_mom_client_connect_sync(global.get(), 1), 0);
    EXPECT_EQ(vx_mom_client_connect_sync(global.get(), 33), store::invalid);
    EXPECT_THAT(log_text(), HasSubstr("database 33"));
    EXPECT_THAT(log_text(), HasSubstr("databases 64"));
}

TEST_F(SyncConnectionTest, ADatabaseBeyondTheUsualOnesNeedsMore)
{
    EXPECT_EQ(vx_mom_client_connect_sync(global.get(), 99), store::invalid);
    EXPECT_THAT(log_text(), HasSubstr("'databases 100'"));
}

TEST_F(SyncConnectionTest, TheStoreIsReachedOverTcp)
{
    // A port of our own choice could be taken: tries until the server gets one.
    std::string port;
    for (int candidate = 20000; candidate < 60000; candidate += 37) {
        port = std::to_string(candidate);
        if (server.run(0, {"CONFIG", "SET", "port", port}) == "OK") {
            break;
        }
    }
    EXPECT_EQ(server.run(0, {"CONFIG", "GET", "bind"}), "bind\n127.0.0.1\n") << "open to other machines";
    const ScopedSetting tcp("VX_MOM_ENDPOINT", "tcp:127.0.0.1:" + port);
    restart_client();
    EXPECT_EQ(vx_mom_set_sync(global.get(), 1, Card(0, 1, 0, 7).message()), 0);
    connect(1);
    ASSERT_EQ(subscribe_cards(), 0);
    EXPECT_TRUE(run_until_event("29"));
    EXPECT_EQ(events.front(), "4 0/1/0 type 7");
}

} // namespace
