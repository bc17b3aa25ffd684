// The calls on one database; see the header.
#include "store/calls.h"

#include <poll.h>

#include <algorithm>
#include <cstdarg>
#include <utility>

#include "log/text.h"
#include "loop/platform_context.h"
#include "store/codec/names.h"
#include "store/codec/number.h"
#include "store/functions.h"
#include "store/origin.h"

namespace store
{

namespace
{

using std::chrono::milliseconds;

constexpr milliseconds longest_retry_pause{50};
constexpr size_t first_key = 3; // of a function's call
constexpr size_t longest_number = 22;
constexpr const char *other_data = "the store came back with other data";

void pause_for(milliseconds span)
{
    (void)poll(nullptr, 0, static_cast<int>(span.count()));
}

const redisReply *first_passing(const std::vector<Reply> &replies)
{
    const auto found = std::find_if(replies.begin(), replies.end(),
                                    [](const Reply &reply) { return is_passing(reply.get()); });
    return found == replies.end() ? nullptr : found->get();
}

Cause::Kind cause_of(platform::Activity::Kind activity)
{
    using From = platform::Activity::Kind;
    using To = Cause::Kind;
    switch (activity) {
    case From::record:
        return To::record;
    case From::timer:
        return To::timer;
    case From::connection:
        return To::connection;
    case From::none:
        break;
    }
    return To::none;
}

} // namespace

Calls::Calls(Server &server, int32_t number, AsyncConnection &loop)
    : server_(server), shared_(server.shared), number_(number), loop_(loop), sync_(server.identity, number),
      replicas_(configured_replicas(number)), channel_prefix_(channel_prefix(number))
{
}

Status Calls::connect()
{
    const Answer answer = ask({{"PING"}}, Purpose::read);
    if (answer.status && is_error(answer.replies[0].get())) {
        const std::string problem = "the store answers PING with: " + text_of(answer.replies[0].get());
        notify_starter(problem);
        return failure(refused, "database %d%s: %s", number_, server_.at(), problem.c_str());
    }
    if (!answer.status) {
        notify_starter(sync_.problem());
    }
    return answer.status;
}

Status Calls::failure(int32_t code, const char *format, ...) const
{
    va_list values;
    va_start(values, format);
    const std::string reason = platform::log_text(format, values);
    va_end(values);
    if (shared_.messages.go_to_log()) {
        LOG_TO(shared_.messages, platform::log_error, "%s", reason.c_str());
    }
    return {code, reason};
}

void Calls::notify(const Status &failure) const
{
    if (!shared_.messages.go_to_log()) {
        LOG_TO(shared_.messages, platform::log_error, "%s", failure.reason.c_str());
    }
}

void Calls::notify_starter(const std::string &problem)
{
    if (problem != server_.starter_problem) {
        server_.starter_problem = problem;
        shared_.messages.notify_starter("store client: " + server_.identity.endpoint.text + ": " + problem);
    }
}

Answer Calls::ask(const std::vector<Command> &commands, Purpose purpose)
{
    if (data_ == Data::doubted) {
        return {{other_data_set, other_data}, {}};
    }
    const Clock::time_point began = Clock::now();
    const Clock::time_point deadline = server_.outage.deadline();
    const bool only_once = server_.outage.is_exhausted();
    // With another server, what that one reports goes on to make calls here.
    if (only_once && shared_.servers > 1) {
        if (const auto problem = server_.outage.resting()) {
            return give_up(purpose, *problem);
        }
    }
    milliseconds pause{1};
    for (;;) {
        Answer answer;
        Outcome result = attempt(commands, deadline, answer.replies);
        std::string problem = sync_.problem();
        if (result == Outcome::answered) {
            const redisReply *passing = first_passing(answer.replies);
            if (passing == nullptr) {
                end_outage(purpose);
                return answer;
            }
            writes_refused_ = writes_refused_ || purpose == Purpose::write;
            result = Outcome::lost;
            problem = text_of(passing);
            sync_.close();
        }
        if (result == Outcome::rejected) {
            write_given_up_ = write_given_up_ || purpose == Purpose::write;
            return refuse();
        }
        server_.outage.begin(result == Outcome::timed_out ? began : Clock::now(),
                             server_.identity.endpoint.text + ": " + problem);
        if (result == Outcome::timed_out || only_once || Clock::now() + pause >= deadline) {
            server_.outage.rest(problem);
            return give_up(purpose, problem);
        }
        pause_for(pause);
        pause = std::min(pause * 2, longest_retry_pause);
    }
}

Status Calls::change(Command &&call, const std::string &type)
{
    std::vector<Command> commands;
    commands.push_back(std::move(call));
    if (replicas_.count > 0) {
        // Once they did not confirm, no call waits for them again until they do.
        const auto left =
            std::chrono::duration_cast<milliseconds>(server_.outage.deadline() - Clock::now()) / 2;
        const auto limit = misses_replicas_ ? milliseconds(1) : std::min(replicas_.limit, left);
        commands.push_back({"WAIT", std::to_string(replicas_.count),
                            std::to_string(std::max(limit, milliseconds(1)).count())});
    }
    Answer answer = ask(commands, Purpose::write);
    if (answer.status && is_missing_function(answer.replies[0].get())) {
        answer = load_and_call(commands);
    }
    if (!answer.status) {
        return answer.status;
    }
    const std::string text = text_of(answer.replies[0].get());
    if (is_error(answer.replies[0].get())) {
        return failure(refused, "database %d%s: write of %s refused: %s", number_, server_.at(),
                       commands[0][first_key].c_str(), text.c_str());
    }
    uint64_t revision = 0;
    if (!parse_number(text, revision)) { // by no functions of ours; the log has no text for it
        return {internal_failure, "the store answers a write with what is no revision"};
    }
    if (commands.size() > 1) {
        note_replicas(answer.replies[1].get());
    }
    const bool is_behind = revision != 0 && revision < data_set_.learned(type);
    if (revision != 0) {
        learn(type, revision);
    }
    // A server that was emptied while it ran is noticed by its counting from 1 again; one that recognised a
    // repetition may answer an old number, too.
    if (is_behind && loop_.is_begun()) {
        (void)confirm_data_set();
    }
    return {};
}

bool Calls::confirm_data_set()
{
    const Answer answer = ask(data_set_.questions(), Purpose::read);
    DataSet::Answers answers;
    std::string problem = answer.status.reason;
    if (!answer.status || !data_set_.read(answer.replies, answers, problem)) {
        loop_.drop("the store's data cannot be identified: " + problem);
        return false;
    }
    if (!data_set_.is_same(answers, false)) {
        data_ = Data::doubted;
        loop_.drop("the store holds other data");
        return false;
    }
    return true;
}

Calls::Returned Calls::examine_returned()
{
    bool other = data_ == Data::doubted;
    data_ = Data::examined;
    const std::string problem = identify_returned(other);
    if (!problem.empty()) {
        data_ = other ? Data::doubted : Data::believed;
        // Nobody knows yet that the connection was back, so its loss is no event: this is all that a handler
        // of messages hears of it.
        if (!shared_.messages.go_to_log() && std::exchange(unidentified_, problem) != problem) {
            LOG_TO(shared_.messages, platform::log_error, "database %d%s: %s", number_, server_.at(),
                   problem.c_str());
        }
        loop_.drop(problem);
        return Returned::unidentified;
    }
    unidentified_.clear();
    data_ = Data::believed;
    const bool is_same = !other && !write_given_up_;
    write_given_up_ = false;
    return is_same ? Returned::same : Returned::other;
}

// Compares the data that came back with the known data and adopts it. `other` becomes true when it differs.
// Returns why it cannot be: the store did not answer, or both connections do not see the same data. Empty
// when it was.
std::string Calls::identify_returned(bool &other)
{
    Answer answer = ask(data_set_.questions(), Purpose::read);
    if (answer.status.code == other_data_set || other) {
        other = true;
        data_ = Data::examined;
        data_set_ = DataSet();
        sync_.close();
        answer = ask(data_set_.questions(), Purpose::read);
    }
    DataSet::Answers answers;
    std::string problem = answer.status ? "the connection is lost again" : answer.status.reason;
    if (!answer.status || !loop_.is_up() || !data_set_.read(answer.replies, answers, problem)) {
        return "the store's data cannot be identified: " + problem;
    }
    // The identity may have been given after the connection on the loop asked for it.
    if (loop_.run() != answers.server.run() ||
        (!loop_.data_set_id().empty() && loop_.data_set_id() != answers.id)) {
        sync_.close();
        return "the connections reach different data";
    }
    if (!data_set_.is_same(answers)) {
        other = true;
        data_set_.adopt(answers);
    }
    return {};
}

std::string Calls::new_mark()
{
    using platform::Activity;
    const Activity &activity = platform::activity_of(shared_.global);
    std::string mark;
    mark.reserve(shared_.instance.size() + activity.key.size() + 2 * longest_number);
    mark = shared_.instance;
    mark += '.';
    mark += std::to_string(++shared_.writes);
    append_cause(cause_of(activity.kind), activity.revision, activity.key, mark);
    return mark;
}

// The server has lost its functions. One who may loads them; who may not waits for one who may.
Answer Calls::load_and_call(const std::vector<Command> &call)
{
    for (;;) {
        const Answer loaded = ask({load_functions()}, Purpose::write);
        if (!loaded.status) {
            return {loaded.status, {}};
        }
        Answer answer = ask(call, Purpose::write);
        if (!answer.status || !is_missing_function(answer.replies[0].get())) {
            server_.lacks_functions_since.reset();
            return answer;
        }
        // As in an outage, the time counts from its beginning, for all calls together.
        if (!server_.lacks_functions_since) {
            server_.lacks_functions_since = Clock::now();
            LOG_TO(shared_.messages, platform::log_warn,
                   "database %d%s: the server has no functions %s, and loading them is refused: %s", number_,
                   server_.at(), library_name, text_of(loaded.replies[0].get()).c_str());
        }
        if (Clock::now() + longest_retry_pause >= *server_.lacks_functions_since + server_.outage.budget()) {
            return answer;
        }
        pause_for(longest_retry_pause);
    }
}

void Calls::end_outage(Purpose purpose)
{
    // A server that answers reads may refuse writes still.
    if (purpose == Purpose::read && writes_refused_) {
        return;
    }
    writes_refused_ = false;
    server_.outage.end(server_.at());
    logged_problem_.clear();
}

void Calls::note_replicas(const redisReply *reply)
{
    const bool missed = reply->type != REDIS_REPLY_INTEGER || reply->integer < replicas_.count;
    if (missed && !misses_replicas_) {
        LOG_TO(shared_.messages, platform::log_warn,
               "a write is confirmed by %lld replicas and not by %d%s %s",
               reply->type == REDIS_REPLY_INTEGER ? reply->integer : 0, replicas_.count, server_.at(),
               text_of(reply).c_str());
    } else if (!missed && misses_replicas_) {
        LOG_TO(shared_.messages, platform::log_notice, "writes are confirmed by %d replicas again%s",
               replicas_.count, server_.at());
    }
    misses_replicas_ = missed;
}

Outcome Calls::attempt(const std::vector<Command> &commands, Clock::time_point deadline,
                       std::vector<Reply> &replies)
{
    if (!sync_.is_open()) {
        const Outcome opened = open(deadline);
        if (opened != Outcome::answered) {
            return opened;
        }
    }
    return sync_.exchange(commands, deadline, replies);
}

Outcome Calls::open(Clock::time_point deadline)
{
    const Outcome opened = sync_.open(deadline);
    if (opened != Outcome::answered) {
        return opened;
    }
    DataSet::Answers answers;
    Outcome identified = identify(deadline, answers);
    std::string problem;
    if (identified == Outcome::answered && sync_.master() &&
        !data_set_.is_believable(*sync_.master(), answers, problem)) {
        return sync_.put_off(problem);
    }
    if (identified == Outcome::answered && !is_registered(answers)) {
        identified = register_run(deadline, answers);
    }
    if (identified != Outcome::answered) {
        return identified;
    }
    if (loop_.is_up() && loop_.run() != answers.server.run()) {
        loop_.drop("calls reach another server by now");
    }
    if (!data_set_.is_known() || data_set_.is_same(answers)) {
        data_set_.adopt(answers);
        return Outcome::answered;
    }
    // The call that found out fails in any case: it was meant for the data that is gone.
    if (loop_.is_begun()) {
        const bool is_examined = data_ == Data::examined;
        data_ = Data::doubted;
        if (!is_examined) {
            loop_.drop("the store holds other data");
        }
    } else {
        data_set_.adopt(answers);
    }
    if (shared_.messages.go_to_log()) {
        log_once(other_data);
    }
    return Outcome::rejected;
}

// Asks the open connection for the data's identity.
Outcome Calls::identify(Clock::time_point deadline, DataSet::Answers &answers)
{
    std::vector<Reply> replies;
    const Outcome result = sync_.exchange(data_set_.questions(), deadline, replies);
    if (result != Outcome::answered) {
        return result;
    }
    if (const redisReply *passing = first_passing(replies)) {
        return sync_.put_off(text_of(passing));
    }
    std::string problem;
    if (!data_set_.read(replies, answers, problem)) {
        return sync_.reject(problem);
    }
    if (answers.oddity != logged_oddity_) {
        logged_oddity_ = answers.oddity;
        if (!logged_oddity_.empty()) {
            LOG_TO(shared_.messages, platform::log_error,
                   "database %d%s: somebody spoilt what tells whose data it is: %s", number_, server_.at(),
                   logged_oddity_.c_str());
        }
    }
    return Outcome::answered;
}

// The server process is new, or has none of the present functions: registers it, with them. A user without
// the right to that leaves it to those who have.
Outcome Calls::register_run(Clock::time_point deadline, DataSet::Answers &answers)
{
    std::vector<Reply> replies;
    const Outcome result =
        sync_.exchange({load_functions(), registration(answers.server)}, deadline, replies);
    if (result != Outcome::answered) {
        return result;
    }
    if (const redisReply *passing = first_passing(replies)) {
        return sync_.put_off(text_of(passing));
    }
    return identify(deadline, answers);
}

Answer Calls::give_up(Purpose purpose, const std::string &problem)
{
    if (purpose == Purpose::write) {
        write_given_up_ = true;
        // One that is being made will be examined anyway, and is not to be cut by each call until it stands.
        if (loop_.is_up()) {
            loop_.drop("a write was given up");
        }
    }
    return {failure(timed_out, "database %d: %s given up: %s: %s", number_,
                    purpose == Purpose::write ? "write" : "read", server_.identity.endpoint.text.c_str(),
                    problem.c_str()),
            {}};
}

Answer Calls::refuse()
{
    if (data_ == Data::doubted || sync_.is_open()) {
        sync_.close();
        return {{other_data_set, other_data}, {}};
    }
    if (shared_.messages.go_to_log()) {
        log_once(sync_.problem());
    }
    return {{sync_.rejection(), platform::visible(server_.identity.endpoint.text + ": " + sync_.problem())},
            {}};
}

void Calls::log_once(const std::string &problem)
{
    if (problem != logged_problem_) {
        logged_problem_ = problem;
        LOG_TO(shared_.messages, platform::log_error, "database %d at %s: %s", number_,
               server_.identity.endpoint.text.c_str(), problem.c_str());
    }
}

} // namespace store
