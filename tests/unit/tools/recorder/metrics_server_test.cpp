// Metrics over HTTP, and clients that mean no good.
#include "metrics_server.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include "unit/support/child.h"

namespace recorder
{

namespace
{

using namespace std::chrono_literals;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char *scrape = "GET /metrics HTTP/1.1\r\nHost: here\r\n\r\n";

class Client
{
public:
    explicit Client(uint16_t port) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(connect(socket_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    }
    void send(const std::string &text) const
    {
        (void)::send(socket_.get(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    }
    // Without waiting.
    const std::string &received()
    {
        char bytes[4096];
        ssize_t count = 0;
        while ((count = recv(socket_.get(), bytes, sizeof bytes, MSG_DONTWAIT)) > 0) {
            received_.append(bytes, static_cast<std::size_t>(count));
        }
        ended_ = ended_ || count == 0 || errno == ECONNRESET;
        return received_;
    }
    bool has_ended()
    {
        (void)received();
        return ended_;
    }

private:
    platform::Descriptor socket_;
    std::string received_;
    bool ended_ = false;
};

class MetricsServerTest : public testing::Test
{
protected:
    void serve(const MetricsServer::Limits &limits = {})
    {
        server_ = std::make_unique<MetricsServer>(
            loop_.context(), "127.0.0.1:0", [this] { return page_; }, limits);
    }
    Client client(const std::string &text = "")
    {
        Client client(server_->port());
        client.send(text);
        return client;
    }
    // Runs the loop until this is so; false when it does not become so in 20 s.
    bool until(const std::function<bool()> &condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + 20s;
        bool is_so = false;
        platform::Timer timer;
        std::function<void()> look = [&] {
            is_so = condition();
            if (is_so || std::chrono::steady_clock::now() > deadline) {
                loop_.stop();
            } else {
                timer = loop_.after(1ms, look);
            }
        };
        timer = loop_.after(0ms, look);
        loop_.run(platform::Loop::Signals::leave);
        return is_so;
    }
    std::string answer_to(const std::string &request)
    {
        Client asking = client(request);
        EXPECT_TRUE(until([&] { return asking.has_ended(); })) << request;
        return asking.received();
    }

    platform::Loop loop_{"metrics_server_test"};
    std::string page_ = "cg_gaps 1\n";
    std::unique_ptr<MetricsServer> server_;
};

} // namespace

TEST_F(MetricsServerTest, AnswersWithThePageAndEndsTheConnection)
{
    serve();
    for (const char *request : {scrape, "GET /metrics?name=up HTTP/1.0\n\n"}) {
        const std::string answer = answer_to(request);
        EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\n"));
        EXPECT_THAT(answer, HasSubstr("\r\nContent-Type: text/plain; version=0.0.4; charset=utf-8\r\n"));
        EXPECT_THAT(answer, HasSubstr("\r\nContent-Length: 10\r\n"));
        EXPECT_THAT(answer, EndsWith("\r\n\r\ncg_gaps 1\n"));
    }
    EXPECT_THAT(answer_to("HEAD /metrics HTTP/1.1\r\n\r\n"), EndsWith("\r\nConnection: close\r\n\r\n"));
    EXPECT_EQ(server_->connections(), 0U);
}

TEST_F(MetricsServerTest, RefusesWhatItDoesNotServe)
{
    serve();
    EXPECT_THAT(answer_to("GET / HTTP/1.1\r\n\r\n"), StartsWith("HTTP/1.1 404 Not Found\r\n"));
    EXPECT_THAT(answer_to("POST /metrics HTTP/1.1\r\n\r\n"), StartsWith("HTTP/1.1 405 "));
    for (const char *request : {"\r\n\r\n", "GET /metrics\r\n\r\n", "GET /metrics SPDY/3\r\n\r\n"}) {
        EXPECT_THAT(answer_to(request), StartsWith("HTTP/1.1 400 ")) << request;
    }
}

TEST_F(MetricsServerTest, ARequestMayComeInPieces)
{
    serve();
    Client slow = client("GET /met");
    ASSERT_TRUE(until([&] { return server_->connections() == 1; }));
    slow.send("rics HTTP/1.1\r\n\r");
    slow.send("\n");
    ASSERT_TRUE(until([&] { return slow.has_ended(); }));
    EXPECT_THAT(slow.received(), EndsWith("cg_gaps 1\n"));
}

TEST_F(MetricsServerTest, AHundredSlowClientsKeepNobodyWaiting)
{
    serve();
    std::vector<Client> slow;
    slow.reserve(100);
    for (int i = 0; i < 100; ++i) {
        slow.push_back(client("GET /metrics HTTP/1.1\r\nHo"));
    }
    EXPECT_THAT(answer_to(scrape), StartsWith("HTTP/1.1 200 OK\r\n"));
    for (Client &one : slow) {
        ASSERT_FALSE(one.has_ended());
    }
    EXPECT_EQ(server_->connections(), 100U);
}

TEST_F(MetricsServerTest, OfTooManyTheOldestGivesWay)
{
    MetricsServer::Limits limits;
    limits.connections = 4;
    serve(limits);
    std::vector<Client> idle;
    idle.reserve(limits.connections);
    for (std::size_t i = 0; i < limits.connections; ++i) {
        idle.push_back(client());
        ASSERT_TRUE(until([&] { return server_->connections() == i + 1; }));
    }
    EXPECT_THAT(answer_to(scrape), StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_TRUE(idle[0].has_ended());
    for (std::size_t i = 1; i < limits.connections; ++i) {
        EXPECT_FALSE(idle[i].has_ended()) << i;
    }
}

TEST_F(MetricsServerTest, ARequestHasALimitAndADeadlineForAllOfIt)
{
    MetricsServer::Limits limits;
    limits.request_bytes = 100;
    limits.request = 50ms;
    serve(limits);
    EXPECT_THAT(answer_to("GET /metrics HTTP/1.1\r\nCookie: " + std::string(90, 'x')),
                StartsWith("HTTP/1.1 431 "));
    Client dripping = client("GET ");
    EXPECT_TRUE(until([&] {
        dripping.send("/");
        return dripping.has_ended();
    })) << "each byte would begin the time again";
    EXPECT_EQ(dripping.received(), "");
}

TEST_F(MetricsServerTest, AnAnswerThatNobodyReadsIsGivenUp)
{
    MetricsServer::Limits limits;
    limits.answer = 50ms;
    page_.assign(32U << 20U, 'x'); // more than sockets hold
    serve(limits);
    const Client deaf = client(scrape);
    ASSERT_TRUE(until([&] { return server_->connections() == 1; }));
    EXPECT_TRUE(until([&] { return server_->connections() == 0; }));
}

TEST_F(MetricsServerTest, ALongAnswerArrivesWhole)
{
    page_.assign(8U << 20U, 'x');
    serve();
    const std::string answer = answer_to(scrape);
    EXPECT_EQ(answer.size() - answer.find("\r\n\r\n") - 4, page_.size());
}

TEST_F(MetricsServerTest, WithoutADescriptorItWaitsForOne)
{
    serve();
    Client waiting = client(scrape);
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const int next = dup(STDERR_FILENO);
    ASSERT_GE(next, 0);
    close(next);
    const rlimit none{static_cast<rlim_t>(next), before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    int turns = 0;
    EXPECT_TRUE(until([&] { return ++turns > 5; }));
    EXPECT_EQ(server_->connections(), 0U);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_TRUE(until([&] { return waiting.has_ended(); }));
    EXPECT_THAT(waiting.received(), StartsWith("HTTP/1.1 200 OK\r\n"));
}

TEST_F(MetricsServerTest, SaysWhyItCannotServe)
{
    serve();
    const auto problem = [&](const std::string &address) -> std::string {
        try {
            const MetricsServer second(loop_.context(), address, {}, {});
            return "none";
        } catch (const std::runtime_error &error) {
            return error.what();
        }
    };
    EXPECT_EQ(problem("127.0.0.1:" + std::to_string(server_->port())), "Address already in use");
    EXPECT_EQ(problem("127.0.0.1"), "not an address");
    EXPECT_EQ(problem("127.0.0.1.1:0"), "not an address");
    EXPECT_EQ(problem("127.0.0.1:65536"), "not an address");
}

} // namespace recorder
