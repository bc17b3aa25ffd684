// The connection on the event loop; see the header.
#include "store/connection/async_connection.h"

#include <algorithm>
#include <cassert>
#include <exception>
#include <utility>

#include "store/codec/names.h"
#include "store/connection/server_info.h"

namespace store
{

namespace
{

using std::chrono::milliseconds;

constexpr milliseconds first_pause{20};
constexpr milliseconds longest_pause{1000};
// A connection that stood this long was a good one: the next loss begins with the shortest pause again.
constexpr milliseconds proven_after{1000};
constexpr milliseconds search_step{5};
constexpr milliseconds health_period{1000};
constexpr const char *health_mark = "health";

timeval timeval_of(milliseconds span)
{
    return {static_cast<time_t>(span.count() / 1000), static_cast<suseconds_t>(span.count() % 1000 * 1000)};
}

bool is_kind(const redisReply &reply, const char *kind, size_t elements)
{
    return reply.type == REDIS_REPLY_ARRAY && reply.elements == elements && view_of(reply.element[0]) == kind;
}

} // namespace

AsyncConnection::AsyncConnection(event_base *base, const ClientIdentity &identity, int32_t database,
                                 milliseconds handshake_limit, platform::Messages &messages)
    : base_(base), identity_(identity), database_(database), handshake_limit_(handshake_limit),
      messages_(messages), pause_(first_pause), timer_(event_new(base, -1, 0, timer_cb, this))
{
}

void AsyncConnection::begin(AsyncObserver &observer)
{
    assert(observer_ == nullptr || observer_ == &observer); // one connection, one observer
    if (state_ == State::idle) {
        observer_ = &observer;
        state_ = State::pausing;
        arm_timer(milliseconds(0));
    }
}

void AsyncConnection::drop(const std::string &problem)
{
    if (state_ != State::idle && state_ != State::pausing) {
        retry(problem, false);
    }
}

void AsyncConnection::subscribe(const std::string &channel)
{
    ask_for("SUBSCRIBE", channel);
}

void AsyncConnection::subscribe_all(const std::string &pattern)
{
    ask_for("PSUBSCRIBE", pattern);
}

void AsyncConnection::ask_for(const char *command, const std::string &watched)
{
    if (is_up()) {
        asked_.push_back(watched);
        stream_->append({command, watched});
        watch();
    }
}

uint64_t AsyncConnection::ping()
{
    if (is_up()) {
        stream_->append({"PING"});
        watch();
    }
    return ++pings_;
}

void AsyncConnection::send(const Command &command)
{
    if (is_up()) {
        stream_->append(command);
        replies_due_++;
        watch();
    }
}

// No exception may reach the loop, which is C.
template <typename Work>
void AsyncConnection::guarded(const Work &work) noexcept
{
    try {
        work();
    } catch (const std::exception &failure) {
        LOG_TO(messages_, platform::log_error, "store connection: %s", failure.what());
    }
}

void AsyncConnection::timer_cb(int /*fd*/, short /*what*/, void *self)
{
    auto *connection = static_cast<AsyncConnection *>(self);
    connection->guarded([connection] { connection->on_timer(); });
}

void AsyncConnection::io_cb(int /*fd*/, short what, void *self)
{
    auto *connection = static_cast<AsyncConnection *>(self);
    connection->guarded([connection, what] { connection->on_io(what); });
}

void AsyncConnection::on_timer()
{
    switch (state_) {
    case State::pausing:
        connect();
        break;
    case State::searching:
        search();
        break;
    case State::up:
        check_health();
        break;
    default:
        retry("no connection in time", false);
        break;
    }
}

void AsyncConnection::on_io(short what)
{
    if (state_ == State::connecting) {
        begin_handshake();
        return;
    }
    if ((what & EV_READ) != 0 && !stream_->read_some()) {
        retry(stream_->problem(), false);
        return;
    }
    if ((what & EV_WRITE) != 0 && stream_->has_output() && !stream_->send_some()) {
        retry(stream_->problem(), false);
        return;
    }
    read_replies();
    if (stream_.has_value()) {
        watch();
    }
}

void AsyncConnection::connect()
{
    if (identity_.endpoint.group.empty()) {
        connect_to(identity_.endpoint);
        return;
    }
    search_.emplace(identity_.endpoint, identity_.credentials);
    search_limit_ = std::chrono::steady_clock::now() + handshake_limit_;
    state_ = State::searching;
    search();
}

// Searches for the master of a group, a little at a time.
void AsyncConnection::search()
{
    const bool is_over = search_->advance() || std::chrono::steady_clock::now() >= search_limit_;
    if (!is_over) {
        arm_timer(search_step);
        return;
    }
    const std::optional<Master> master = search_->found();
    const std::string problem = search_->problem();
    search_.reset();
    if (master) {
        connect_to(master->place);
    } else {
        retry("no master of '" + identity_.endpoint.group + "' is known: " + problem, false);
    }
}

void AsyncConnection::connect_to(const Endpoint &place)
{
    stream_.emplace(place);
    if (stream_->failed()) {
        retry(stream_->problem(), false);
        return;
    }
    state_ = State::connecting;
    io_.reset(event_new(base_, stream_->fd(), EV_WRITE, io_cb, this));
    (void)event_add(io_.get(), nullptr);
    arm_timer(handshake_limit_);
}

// A server that is gone without a word, or stands still, is noticed only by asking. Checks are counted and
// not timed: a process that was itself stopped for a while has not asked in that time.
void AsyncConnection::check_health()
{
    if (unanswered_ * health_period > handshake_limit_ + health_period) {
        retry("no answer in time", false);
        return;
    }
    unanswered_++;
    stream_->append({"PING", health_mark});
    watch();
    arm_timer(health_period);
}

void AsyncConnection::begin_handshake()
{
    if (!stream_->finish_connecting()) {
        retry(stream_->problem(), false);
        return;
    }
    state_ = State::handshake;
    std::vector<Command> commands = handshake(identity_, database_);
    handshake_commands_ = commands.size();
    handshake_replies_.clear();
    commands.insert(commands.end(), info_questions.begin(), info_questions.end());
    commands.push_back({"GET", data_set_key});
    questions_ = commands.size() - handshake_commands_;
    for (const Command &command : commands) {
        stream_->append(command);
    }
    watch();
}

void AsyncConnection::read_replies()
{
    while (stream_.has_value()) {
        Reply reply = stream_->next_reply();
        if (reply == nullptr) {
            if (stream_->failed()) {
                retry(stream_->problem(), false);
            }
            return;
        }
        if (state_ == State::handshake) {
            on_handshake_reply(std::move(reply));
        } else {
            dispatch(*reply);
        }
    }
}

void AsyncConnection::on_handshake_reply(Reply reply)
{
    const size_t at = handshake_replies_.size();
    if (is_passing(reply.get()) ||
        (at < handshake_commands_ && is_turned_away(reply.get(), at, handshake_commands_))) {
        retry(explain_refusal(reply.get(), database_), !is_passing(reply.get()));
        return;
    }
    handshake_replies_.push_back(std::move(reply));
    if (handshake_replies_.size() == handshake_commands_ + questions_) {
        finish_handshake();
    }
}

void AsyncConnection::finish_handshake()
{
    ServerInfo server;
    std::string problem;
    const Reply *answers = &handshake_replies_[handshake_commands_];
    if (!read_server_info(answers[0].get(), answers[1].get(), server, problem)) {
        retry(problem, true);
        return;
    }
    if (server.is_replica && !identity_.endpoint.group.empty()) {
        retry("the server that the sentinels name is no master", false);
        return;
    }
    run_ = server.run();
    data_set_id_ = is_error(answers[2].get()) ? "" : text_of(answers[2].get());
    pings_ = 0;
    replies_due_ = 0;
    handshake_replies_.clear();
    state_ = State::up;
    up_since_ = std::chrono::steady_clock::now();
    unanswered_ = 0;
    arm_timer(health_period);
    observer_->on_up();
}

void AsyncConnection::dispatch(const redisReply &reply)
{
    if (is_kind(reply, "pmessage", 4)) {
        observer_->on_message(view_of(reply.element[1]), view_of(reply.element[2]),
                              view_of(reply.element[3]));
    } else if (is_kind(reply, "message", 3)) {
        observer_->on_message(view_of(reply.element[1]), view_of(reply.element[1]),
                              view_of(reply.element[2]));
    } else if (is_kind(reply, "subscribe", 3) || is_kind(reply, "psubscribe", 3)) {
        if (!asked_.empty()) {
            asked_.pop_front();
        }
        observer_->on_subscribed(view_of(reply.element[1]));
    } else if (view_of(&reply) == health_mark ||
               (is_kind(reply, "pong", 2) && view_of(reply.element[1]) == health_mark)) {
        unanswered_ = 0;
        observer_->on_checked();
    } else if (is_kind(reply, "pong", 2)) {
        observer_->on_pong();
    } else if (replies_due_ > 0) {
        replies_due_--;
        observer_->on_reply(reply);
    } else if (is_error(&reply) && !asked_.empty()) {
        // Who sends commands does not watch, and a ping is never refused. Answers come in the order asked.
        const std::string watched = std::move(asked_.front());
        asked_.pop_front();
        observer_->on_refused(watched, text_of(&reply));
    }
}

void AsyncConnection::retry(const std::string &problem, bool lasting)
{
    const bool was_up = is_up();
    if (was_up && std::chrono::steady_clock::now() - up_since_ >= proven_after) {
        pause_ = first_pause;
    }
    io_.reset();
    stream_.reset();
    search_.reset();
    asked_.clear();
    state_ = State::pausing;
    arm_timer(pause_);
    pause_ = std::min(pause_ * 2, longest_pause);
    if (was_up) {
        observer_->on_lost(problem);
    } else {
        observer_->on_failed(problem, lasting);
    }
}

void AsyncConnection::watch()
{
    const auto wanted = static_cast<short>(EV_READ | EV_PERSIST | (stream_->has_output() ? EV_WRITE : 0));
    if (io_ != nullptr && (event_get_events(io_.get()) & (EV_READ | EV_WRITE)) == (wanted & ~EV_PERSIST)) {
        return;
    }
    io_.reset(event_new(base_, stream_->fd(), wanted, io_cb, this));
    (void)event_add(io_.get(), nullptr);
}

void AsyncConnection::arm_timer(milliseconds pause)
{
    const timeval span = timeval_of(pause);
    (void)event_add(timer_.get(), &span);
}

} // namespace store
