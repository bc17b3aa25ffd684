// Sees to it that a server has the functions that writes are made with, while nobody writes: who may not load
// them waits for somebody who may.
//
// It has a connection of its own, since one that watches channels may not ask, and a loss of that connection
// is nobody's outage.
#ifndef STORE_FUNCTION_KEEPER_H
#define STORE_FUNCTION_KEEPER_H

#include <cstdint>
#include <string>
#include <string_view>

#include "store/connection/async_connection.h"
#include "store/server.h"

namespace store
{

class FunctionKeeper : private AsyncObserver
{
public:
    // Asks from now on, every few seconds. The server outlives the object; `database` is one of its
    // databases.
    FunctionKeeper(Server &server, int32_t database);

    const Server &server() const { return server_; }

private:
    void on_up() override {}
    void on_lost(const std::string & /*problem*/) override { is_loading_ = false; }
    void on_failed(const std::string & /*problem*/, bool /*lasting*/) override {}
    void on_subscribed(std::string_view /*watched*/) override {}
    void on_refused(std::string_view /*watched*/, const std::string & /*problem*/) override {}
    void on_message(std::string_view /*watched*/, std::string_view /*channel*/,
                    std::string_view /*payload*/) override
    {
    }
    void on_pong() override {}
    void on_checked() override;
    void on_reply(const redisReply &reply) override;

    Server &server_;
    int32_t database_;
    AsyncConnection connection_;
    Clock::time_point asked_at_{};
    bool is_loading_ = false;
    std::string refusal_{}; // why they could not be loaded, as it was logged
};

} // namespace store

#endif
