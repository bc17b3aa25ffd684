// The check-module runner: answers the admission daemon's requests with what a command says about each card.
//
// The loop is never blocked by a command: processes are looked after from a timer every 20 ms, which runs
// only while there is something to look after. SIGCHLD was the alternative; the platform's loop takes no
// signals of ours.
#ifndef CGCTL_CHECK_RUNNER_H
#define CGCTL_CHECK_RUNNER_H

#include <chrono>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "check_job.h"
#include "live.h"
#include "position.h"
#include "session.h"
#include "store.h"

namespace cgctl
{

class CheckRunner
{
public:
    struct Options {
        std::string module;               // the name that the answers carry
        std::vector<std::string> command; // program and arguments
        std::size_t parallel;             // how many commands run at the same time
        std::chrono::duration<double> time_limit;
    };

    CheckRunner(const Session &session, Store &store, Options options);

    // Serves until SIGTERM or SIGINT, then ends what still runs. Throws Failure.
    void run();

private:
    void take(const Change &change);
    void request(const Position &position, const Json &record);
    void withdraw(const Position &position);
    void wake();
    void tick();
    bool advance(const Position &position, CheckJob &job);
    void start(const Position &position, CheckJob &job);
    void look_after(CheckJob &job);
    void enforce_time_limit(CheckJob &job) const;
    bool answer(const Position &position, CheckJob &job);
    bool is_exchanged(const Position &position, CheckJob &job);
    void end(CheckJob &job);
    void reap_ending();
    [[nodiscard]] std::size_t processes() const;

    const Session &session_;
    Store &store_;
    Options options_;
    const RecordType &request_type_;
    const RecordType &answer_type_;
    const RecordType &card_type_;
    Live live_;
    std::map<Position, CheckJob> jobs_;
    std::list<EndingProcess> ending_;
    bool ticking_ = false;
};

} // namespace cgctl

#endif
