// The search for a group's master: with real sentinels, and with peers that are none.
#include "store/connection/sentinel.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

#include "unit/builtin/store/sentinel_group.h"

namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;
using store::Clock;
using store_test::eventually;
using store_test::SentinelGroup;
using testing::HasSubstr;

store::Endpoint endpoint_of(const std::string &text)
{
    std::string why;
    const auto endpoint = store::parse_endpoint(text, why);
    EXPECT_TRUE(endpoint.has_value()) << why;
    return endpoint.value_or(store::Endpoint());
}

// A peer at a sentinel's place that says what a test tells it to.
class Peer
{
public:
    Peer() : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto *general = reinterpret_cast<sockaddr *>(&address);
        if (bind(listener_, general, size) != 0 || listen(listener_, 8) != 0 ||
            getsockname(listener_, general, &size) != 0) {
            throw std::runtime_error("no peer can listen");
        }
        port_ = ntohs(address.sin_port);
    }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;
    ~Peer()
    {
        hang_up();
        (void)close(listener_);
    }

    std::string address() const { return "127.0.0.1:" + std::to_string(port_); }
    void answer() { visitor_ = accept(listener_, nullptr, nullptr); }
    bool say(const std::string &bytes) const
    {
        return send(visitor_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT) > 0;
    }
    void hang_up()
    {
        if (visitor_ >= 0) {
            (void)close(visitor_);
            visitor_ = -1;
        }
    }

private:
    int listener_;
    int visitor_ = -1;
    int port_ = 0;
};

const std::string good_answer = "*6\r\n$2\r\nip\r\n$4\r\nhost\r\n$4\r\nport\r\n$1\r\n7\r\n$12\r\nconfig-"
                                "epoch\r\n$1\r\n2\r\n*2\r\n$4\r\nhost\r\n$1\r\n7\r\n";

// What becomes of a search whose only sentinel says this and hangs up.
std::string problem_after(const std::string &bytes)
{
    Peer peer;
    store::MasterSearch search(endpoint_of("sentinel:card@" + peer.address()), {});
    peer.answer();
    (void)peer.say(bytes);
    peer.hang_up();
    EXPECT_TRUE(eventually([&] { return search.advance(); })) << bytes;
    EXPECT_FALSE(search.found().has_value()) << bytes;
    const std::string place = peer.address() + ": ";
    EXPECT_EQ(search.problem().substr(0, place.size()), place);
    return search.problem().substr(place.size());
}

TEST(MasterSearch, WhatIsNoSentinelIsNamedWithWhatItSaid)
{
    EXPECT_THAT(problem_after("HTTP/1.1 400 Bad Request\r\n\r\n"), HasSubstr("Protocol error"));
    EXPECT_THAT(problem_after("*99999999999999\r\n"), testing::Not(""));
    EXPECT_THAT(problem_after("*1\r\n*1\r\n*1\r\n*1\r\n*1\r\n*1\r\n*1\r\n*1\r\n*1\r\n*1\r\n"),
                testing::Not(""));
    EXPECT_EQ(problem_after("-ERR max number of clients reached\r\n"),
              "refuses: ERR max number of clients reached");
    EXPECT_EQ(problem_after("-NOAUTH Authentication required.\r\n"),
              "refuses: NOAUTH Authentication required. (there is no sentinel-password in the file of "
              "credentials)");
    EXPECT_EQ(problem_after("-ERR No such master\r\n*-1\r\n"), "no group 'card'");
    EXPECT_EQ(problem_after("+OK\r\n+OK\r\n"), "answers with something that is no address");
    EXPECT_NE(problem_after(good_answer.substr(0, good_answer.size() - 4)), "");
}

TEST(MasterSearch, AnAnswerWithoutAnEndIsCutShort)
{
    Peer peer;
    store::MasterSearch search(endpoint_of("sentinel:card@" + peer.address()), {});
    peer.answer();
    ASSERT_TRUE(peer.say("$500000000\r\n"));
    const std::string more(16384, 'x');
    EXPECT_TRUE(eventually([&] {
        (void)peer.say(more);
        return search.advance();
    }));
    EXPECT_THAT(search.problem(), HasSubstr("answers without an end"));
}

TEST(MasterSearch, TheSlowerOnesGetALittleTimeAfterTheFirstAnswer)
{
    Peer quick;
    Peer silent;
    store::MasterSearch search(endpoint_of("sentinel:card@" + silent.address() + "," + quick.address()), {});
    quick.answer();
    const auto begin = Clock::time_point(seconds(1000));
    for (int i = 0; i < 3; i++) {
        EXPECT_FALSE(search.advance(begin + i * seconds(1000))) << "no answer, no end";
    }
    EXPECT_FALSE(search.due().has_value());
    EXPECT_FALSE(search.found().has_value());
    EXPECT_EQ(search.watched().size(), 2U);
    ASSERT_TRUE(quick.say(good_answer));
    const auto answered = begin + seconds(5000);
    EXPECT_TRUE(eventually([&] { return search.advance(answered) || search.due().has_value(); }));
    EXPECT_EQ(search.due(), answered + milliseconds(200));
    EXPECT_EQ(search.watched().size(), 1U);
    EXPECT_FALSE(search.advance(answered + milliseconds(199)));
    EXPECT_TRUE(search.advance(answered + milliseconds(200)));
    EXPECT_TRUE(search.watched().empty());
    EXPECT_FALSE(search.due().has_value());
    ASSERT_TRUE(search.found().has_value());
    EXPECT_EQ(search.found()->place.text, "host:7 of card");
    EXPECT_EQ(search.problem(), silent.address() + ": no answer yet; " + quick.address() +
                                    ": names host:7 (epoch 2, no flags)");
}

class SteadyGroup : public testing::Test
{
protected:
    // Calls for the master with more time than a loaded machine needs.
    std::optional<store::Master> find(const std::string &endpoint, const store::Credentials &credentials = {})
    {
        problem.clear();
        return store::find_master(endpoint_of(endpoint), credentials, Clock::now() + seconds(60), problem);
    }
    // Nothing is to be replaced here, however slow a server is.
    static SentinelGroup::Options steady()
    {
        SentinelGroup::Options options;
        options.replicas = 0;
        options.down_after = seconds(600);
        return options;
    }

    std::string problem;
};

TEST_F(SteadyGroup, TheMasterIsFoundAsLongAsOneSentinelAnswers)
{
    SentinelGroup group(steady());
    const auto expect_master = [&] {
        const auto master = find(group.endpoint());
        ASSERT_TRUE(master.has_value()) << problem;
        EXPECT_EQ(master->place.text, group.server_address(0) + " of card");
        EXPECT_EQ(master->place.port, group.server_port(0));
        EXPECT_THAT(group.run(0, {"INFO", "server"}), HasSubstr("run_id:" + master->run_id + "\r\n"));
        EXPECT_EQ(master->run_id.size(), 40U);
        EXPECT_TRUE(master->is_agreed);
    };
    expect_master();
    group.freeze_sentinel(0);
    expect_master();
    group.kill_sentinel(1);
    expect_master();
    group.freeze_sentinel(2);
    problem.clear();
    EXPECT_FALSE(
        store::find_master(endpoint_of(group.endpoint()), {}, Clock::now() + milliseconds(100), problem)
            .has_value());
    EXPECT_EQ(problem, "no master of 'card' is known: " + group.sentinel_address(0) + ": no answer yet; " +
                           group.sentinel_address(1) + ": Connection refused; " + group.sentinel_address(2) +
                           ": no answer yet");
    group.kill_sentinel(0);
    group.kill_sentinel(2);
    EXPECT_FALSE(find(group.endpoint()).has_value());
    EXPECT_THAT(problem, HasSubstr(group.sentinel_address(2) + ": Connection refused"));
}

TEST_F(SteadyGroup, AnUnknownGroupIsNamed)
{
    SentinelGroup::Options options = steady();
    options.sentinels = 1;
    SentinelGroup group(options);
    EXPECT_FALSE(find("sentinel:dacr@" + group.sentinel_address(0)).has_value());
    EXPECT_EQ(problem, "no master of 'dacr' is known: " + group.sentinel_address(0) + ": no group 'dacr'");
    EXPECT_FALSE(find("sentinel:card@" + group.server_address(0)).has_value()) << "no sentinel but a server";
    EXPECT_THAT(problem, HasSubstr(group.server_address(0) + ": refuses: ERR unknown command"));
}

TEST_F(SteadyGroup, SentinelsWithUsersOfTheirOwnAreSatisfied)
{
    SentinelGroup::Options options = steady();
    options.sentinels = 1;
    options.sentinel_password = "guarded";
    options.sentinel_users = {"gate on >secret +sentinel|master +sentinel|get-master-addr-by-name"};
    SentinelGroup group(options);
    store::Credentials credentials;
    credentials.user = "store";
    credentials.password = "another";
    EXPECT_FALSE(find(group.endpoint(), credentials).has_value());
    EXPECT_THAT(problem, HasSubstr("refuses: NOAUTH"));
    EXPECT_THAT(problem, HasSubstr("no sentinel-password"));
    credentials.sentinel_password = "guarded";
    EXPECT_TRUE(find(group.endpoint(), credentials).has_value()) << problem;
    credentials.sentinel_user = "gate";
    EXPECT_FALSE(find(group.endpoint(), credentials).has_value());
    EXPECT_THAT(problem, HasSubstr("refuses: WRONGPASS"));
    EXPECT_THAT(problem, testing::Not(HasSubstr("guarded")));
    credentials.sentinel_password = "secret";
    EXPECT_TRUE(find(group.endpoint(), credentials).has_value()) << problem;
}

TEST(FailOver, ThePromotedServerIsFoundAndTheOldOneNoMore)
{
    SentinelGroup group;
    const store::Endpoint endpoint = endpoint_of(group.endpoint());
    std::string problem;
    std::optional<store::Master> master;
    const auto settles_on_another = [&] {
        master = store::find_master(endpoint, {}, Clock::now() + seconds(10), problem);
        const auto promoted = group.master();
        return master && master->is_agreed && promoted && *promoted != 0 &&
               master->place.port == group.server_port(*promoted);
    };
    // One sentinel sleeps through it all and knows nothing of it afterwards.
    group.freeze_sentinel(0);
    group.kill_server(0);
    ASSERT_TRUE(eventually(settles_on_another)) << problem;
    group.start_server(0);
    group.thaw_sentinel(0);
    master = store::find_master(endpoint, {}, Clock::now() + seconds(10), problem);
    ASSERT_TRUE(master.has_value()) << problem;
    EXPECT_NE(master->place.port, group.server_port(0)) << "it is empty, and master by its own word";
}

} // namespace
