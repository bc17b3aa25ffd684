// A client that sees to it that the server has the functions, while nobody writes.
#include <algorithm>
#include <chrono>

#include "client_fixture.h"
#include "store/functions.h"

namespace
{

using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class FunctionKeeper : public store_test::ClientFixture
{
protected:
    FunctionKeeper()
    {
        store::Options keeping = options();
        keeping.keeps_functions = true;
        client.reset();
        client.emplace(loop.context(), keeping);
        EXPECT_TRUE(client->on_connection(28, [this](const store::ConnectionEvent &event) {
            is_up = event.kind != store::ConnectionEvent::Kind::lost;
            losses += is_up ? 0 : 1;
        }));
        EXPECT_TRUE(client->open(28));
        EXPECT_EQ(server.run(0, {"ACL", "SETUSER", "admin", "on", "nopass", "+@all"}), "OK");
        serve_until([this] { return is_up; });
    }
    void flush() { EXPECT_EQ(server.run_as("admin", "x", {"FUNCTION", "FLUSH"}), "OK"); }
    // What the server has counted; 0 for what it has not.
    std::size_t figure(const std::string &section, const std::string &name)
    {
        const std::string figures = server.run_as("admin", "x", {"INFO", section});
        const std::size_t at = figures.find(name);
        return at == std::string::npos ? 0 : std::stoul(figures.substr(at + name.size()));
    }
    std::size_t asked() { return figure("commandstats", "cmdstat_fcall:calls="); }
    std::size_t refused_loads() { return figure("errorstats", "errorstat_NOPERM:count="); }

    bool is_up = false;
    int losses = 0;
};

// Everything but what watches channels is cut: the calls' connection is found dead by the next call only.
TEST_F(FunctionKeeper, TheLossOfItsConnectionIsNoOutage)
{
    const auto cards = client->subscribe(28, store_test::card_type, [](const store::Change &) {});
    ASSERT_TRUE(cards);
    ASSERT_TRUE(client->set(28, *store_test::Card(0, 1, 0).message()));
    serve_until([this] {
        return server.run_as("admin", "x", {"CLIENT", "LIST"}).find("psub=1") != std::string::npos &&
               asked() > 1;
    });
    EXPECT_EQ(server.run_as("admin", "x", {"CLIENT", "KILL", "TYPE", "normal", "SKIPME", "yes"}), "2");
    const std::size_t before = asked();
    serve_until([&] { return asked() > before; });
    EXPECT_TRUE(client->set(28, *store_test::Card(0, 2, 0).message()));
    EXPECT_THAT(notices, IsEmpty());
    EXPECT_EQ(losses, 0);
}

TEST_F(FunctionKeeper, TheyAreLoadedWhenTheServerHasLostThem)
{
    flush();
    serve_until([this] {
        return server.run_as("admin", "x", {"FUNCTION", "LIST"}).find(store::set_function) !=
               std::string::npos;
    });
    serve_until([this] { return !notices.empty(); });
    const std::size_t before = asked();
    serve_until([&] { return asked() > before; });
    EXPECT_THAT(notices,
                ElementsAre("database 28: the server had lost its functions vx_mom2: they are loaded again"));
    EXPECT_EQ(losses, 0);
}

TEST_F(FunctionKeeper, ARefusalIsReportedOnceAndHoldsNothingUp)
{
    EXPECT_EQ(server.run(0, {"ACL", "SETUSER", "default", "-function"}), "OK");
    flush();
    seconds longest{0};
    auto last = std::chrono::steady_clock::now();
    serve_until([&] {
        const auto now = std::chrono::steady_clock::now();
        longest = std::max(longest, std::chrono::duration_cast<seconds>(now - last));
        last = now;
        return refused_loads() >= 2;
    });
    EXPECT_LT(longest, seconds(2)) << "the loop stood still";
    ASSERT_EQ(notices.size(), 1U);
    EXPECT_THAT(notices.front(), HasSubstr("and loading them is refused: NOPERM"));
    EXPECT_EQ(losses, 0);
}

TEST_F(FunctionKeeper, AServerThatTakesNoWritesNowIsAskedWithoutAnOutage)
{
    EXPECT_EQ(server.run(0, {"CONFIG", "SET", "min-replicas-to-write", "1"}), "OK");
    serve_until([this] { return figure("errorstats", "errorstat_NOREPLICAS:count=") >= 2; });
    EXPECT_THAT(notices, IsEmpty());
    EXPECT_EQ(losses, 0);
}

} // namespace
