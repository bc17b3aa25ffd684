// Publishes what is not well with this process (loop/health.h), in a hash of the store: the numbers that were
// noted, and which instance of the program notes them. While nothing was noted there is no hash.
//
// The connection is one of its own, made with the first note: those of the calls wait for answers, and
// nothing may wait for this; the one on the loop subscribes, and may do nothing else.
#ifndef STORE_HEALTH_PUBLISHER_H
#define STORE_HEALTH_PUBLISHER_H

#include <chrono>
#include <optional>
#include <string>

#include "loop/loop.h"
#include "store/calls.h"
#include "store/connection/async_connection.h"
#include "store/status.h"

namespace store
{

class HealthPublisher : private AsyncObserver
{
public:
    // calls  of the database of the hash; they outlive the object.
    explicit HealthPublisher(Calls &calls);
    ~HealthPublisher() override;

    // Deletes what an earlier instance left, and publishes from now on: at most once a second, and again
    // after each loss of the store. A process has one publisher. Waits for the deletion as any call does; its
    // failure changes nothing else.
    Status begin();

private:
    void on_up() override;
    void on_lost(const std::string & /*problem*/) override {}
    void on_failed(const std::string & /*problem*/, bool /*lasting*/) override {}
    void on_subscribed(std::string_view /*watched*/) override {}
    void on_refused(std::string_view /*watched*/, const std::string & /*problem*/) override {}
    void on_message(std::string_view /*watched*/, std::string_view /*channel*/,
                    std::string_view /*payload*/) override
    {
    }
    void on_pong() override {}
    void on_checked() override {}
    void on_reply(const redisReply &reply) override;

    void schedule();
    void publish();

    Server &server_;
    Shared &shared_;
    Calls &calls_;
    std::optional<AsyncConnection> connection_; // since the first note
    platform::Timer timer_;
    Clock::time_point published_at_{};
    bool is_refused_ = false;
};

} // namespace store

#endif
