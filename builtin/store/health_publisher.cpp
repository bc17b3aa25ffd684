// Publishes what is not well with this process; see the header.
#include "store/health_publisher.h"

#include <algorithm>
#include <utility>

#include "loop/health.h"
#include "store/codec/names.h"

namespace store
{

namespace
{

constexpr std::chrono::milliseconds period{1000};

}

HealthPublisher::HealthPublisher(Calls &calls)
    : server_(calls.server()), shared_(server_.shared), calls_(calls)
{
}

HealthPublisher::~HealthPublisher()
{
    platform::on_health_noted({});
}

Status HealthPublisher::begin()
{
    const Answer answer = calls_.ask({{"DEL", health_key}}, Purpose::write);
    if (!answer.replies.empty()) {
        on_reply(*answer.replies.front());
    }
    shared_.health_at = &server_;
    platform::on_health_noted([this] { schedule(); });
    if (!platform::noted_health().empty()) {
        schedule();
    }
    return answer.status;
}

void HealthPublisher::schedule()
{
    if (!timer_.is_armed()) {
        const auto since =
            std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - published_at_);
        timer_ =
            platform::Timer(shared_.global, std::clamp(period - since, std::chrono::milliseconds(0), period),
                            [this] { publish(); });
    }
}

void HealthPublisher::publish()
{
    if (!connection_) {
        connection_.emplace(shared_.base, server_.identity, calls_.number(), server_.outage.budget(),
                            shared_.messages);
        connection_->begin(*this);
    }
    if (!connection_->is_up()) {
        return; // published when it is
    }
    Command command{"HSET", health_key, "instance", shared_.instance};
    for (const auto &[field, number] : platform::noted_health()) {
        command.push_back(field);
        command.push_back(std::to_string(number));
    }
    published_at_ = Clock::now();
    connection_->send(command);
}

// The data may be other data by now, without what was published before.
void HealthPublisher::on_up()
{
    publish();
}

void HealthPublisher::on_reply(const redisReply &reply)
{
    if (std::exchange(is_refused_, is_error(&reply)) || !is_refused_) {
        return;
    }
    LOG_TO(shared_.messages, platform::log_warn, "%s cannot be published: %s", health_key,
           text_of(&reply).c_str());
}

} // namespace store
