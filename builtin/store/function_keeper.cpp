#include "store/function_keeper.h"

#include <chrono>
#include <utility>

#include "store/functions.h"

namespace store
{

namespace
{

constexpr std::chrono::seconds asked_every{3};

} // namespace

FunctionKeeper::FunctionKeeper(Server &server, int32_t database)
    : server_(server), database_(database), connection_(server.shared.base, server.identity, database,
                                                        server.outage.budget(), server.shared.messages)
{
    connection_.begin(*this);
}

// A function that is called without a key refuses by itself, and that it does is all that counts.
void FunctionKeeper::on_checked()
{
    if (Clock::now() >= asked_at_ + asked_every) {
        asked_at_ = Clock::now();
        connection_.send({"FCALL", set_function, "0"});
    }
}

void FunctionKeeper::on_reply(const redisReply &reply)
{
    if (is_missing_function(&reply)) {
        is_loading_ = true;
        connection_.send(load_functions());
        return;
    }
    if (!std::exchange(is_loading_, false)) {
        return;
    }
    const std::string refusal = is_error(&reply) ? text_of(&reply) : "";
    if (refusal.empty()) {
        LOG_TO(server_.shared.messages, platform::log_warn,
               "database %d%s: the server had lost its functions %s: they are loaded again", database_,
               server_.at(), library_name);
    } else if (refusal != refusal_) {
        LOG_TO(server_.shared.messages, platform::log_error,
               "database %d%s: the server has lost its functions %s, and loading them is refused: %s",
               database_, server_.at(), library_name, refusal.c_str());
    }
    refusal_ = refusal;
}

} // namespace store
