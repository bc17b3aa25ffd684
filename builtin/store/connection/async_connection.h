// The connection on the event loop: carries the subscriptions and notices loss and return.
//
// It is kept even without a subscription. While it is down it tries again, with growing pauses. Nothing here
// calls the user of the store: events go to the database, which acts on them from the loop later, so that
// dropping the connection is safe everywhere.
#ifndef CONNECTION_ASYNC_CONNECTION_H
#define CONNECTION_ASYNC_CONNECTION_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "log/messages.h"
#include "loop/libevent_handles.h"
#include "store/connection/endpoint.h"
#include "store/connection/sentinel.h"
#include "store/connection/stream.h"
#include "store/connection/sync_connection.h"

namespace store
{

// Receives the events of an asynchronous connection.
class AsyncObserver
{
public:
    AsyncObserver() = default;
    AsyncObserver(const AsyncObserver &) = delete;
    AsyncObserver &operator=(const AsyncObserver &) = delete;
    virtual ~AsyncObserver() = default;

    // The connection stands.
    virtual void on_up() = 0;
    // A connection that stood is lost.
    virtual void on_lost(const std::string &problem) = 0;
    // A connection could not be made; `lasting` when trying again will hardly help.
    virtual void on_failed(const std::string &problem, bool lasting) = 0;
    // What was asked for is in place: a channel, or a pattern of channels.
    virtual void on_subscribed(std::string_view watched) = 0;
    // The server refuses what was asked for.
    virtual void on_refused(std::string_view watched, const std::string &problem) = 0;
    // A message on a channel that belongs to what is watched.
    virtual void on_message(std::string_view watched, std::string_view channel, std::string_view payload) = 0;
    // The answer to a ping(); they come in the order sent, after all messages published before.
    virtual void on_pong() = 0;
    // The connection was found alive; comes every second or so.
    virtual void on_checked() = 0;
    // The answer to a send(); they come in the order sent. It ends with the call.
    virtual void on_reply(const redisReply & /*reply*/) {}
};

class AsyncConnection
{
public:
    AsyncConnection(event_base *base, const ClientIdentity &identity, int32_t database,
                    std::chrono::milliseconds handshake_limit, platform::Messages &messages);

    // Connects from the loop, and again whenever the connection is lost, and notifies the observer, which
    // outlives it. Does nothing when already begun.
    void begin(AsyncObserver &observer);
    bool is_begun() const { return state_ != State::idle; }
    bool is_up() const { return state_ == State::up; }
    // Of the present connection, or the last: the server run, and the data's identity (empty when it had none
    // yet).
    const std::string &run() const { return run_; }
    const std::string &data_set_id() const { return data_set_id_; }
    // Cuts the connection, as if it had been lost.
    void drop(const std::string &problem);
    // Watches one channel, or all that match a pattern.
    void subscribe(const std::string &channel);
    void subscribe_all(const std::string &pattern);
    // Returns its number on the present connection, from 1.
    uint64_t ping();
    // Sends a command, when the connection is up. The server refuses most on a connection that watches
    // channels.
    void send(const Command &command);

private:
    enum class State { idle, pausing, searching, connecting, handshake, up };

    static void timer_cb(int fd, short what, void *self);
    static void io_cb(int fd, short what, void *self);
    template <typename Work>
    void guarded(const Work &work) noexcept;
    void on_timer();
    void on_io(short what);
    void connect();
    void search();
    void connect_to(const Endpoint &place);
    void check_health();
    void begin_handshake();
    void read_replies();
    void on_handshake_reply(Reply reply);
    void finish_handshake();
    void dispatch(const redisReply &reply);
    void retry(const std::string &problem, bool lasting);
    void ask_for(const char *command, const std::string &watched);
    void watch();
    void arm_timer(std::chrono::milliseconds pause);

    event_base *base_;
    const ClientIdentity &identity_;
    int32_t database_;
    std::chrono::milliseconds handshake_limit_;
    AsyncObserver *observer_ = nullptr; // not null once begun
    platform::Messages &messages_;
    State state_ = State::idle;
    std::chrono::milliseconds pause_;
    std::chrono::steady_clock::time_point up_since_;
    size_t handshake_commands_ = 0;        // commands of the handshake
    size_t questions_ = 0;                 // commands that follow it
    std::vector<Reply> handshake_replies_; // to both, as far as they have come
    std::optional<MasterSearch> search_;
    std::chrono::steady_clock::time_point search_limit_;
    std::string run_;
    std::string data_set_id_;
    std::deque<std::string> asked_; // what to watch, as long as the server has not answered
    uint64_t pings_ = 0;
    size_t replies_due_ = 0; // to commands of send()
    int unanswered_ = 0;     // checks of the connection's health since the last one that was answered
    platform::Event timer_;
    std::optional<Stream> stream_;
    platform::Event io_; // watches the link's descriptor: declared after it, gone before it
};

} // namespace store

#endif
