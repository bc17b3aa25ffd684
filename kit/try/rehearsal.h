// A check module alone with a store of its own, and us in the daemon's place.
//
// Every answer is taken out of the store as the daemon takes it. The store counts the writes of answers, so
// that one that is overwritten before it was taken is known of, too.
#ifndef TRY_REHEARSAL_H
#define TRY_REHEARSAL_H

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "access/store.h"
#include "base/output.h"
#include "process/child_process.h"
#include "process/private_store.h"
#include "records/position.h"
#include "records/record_text.h"

namespace cg
{

// A card to examine.
struct TrialCard {
    Position position{};
    int32_t type = 0;
    std::string node_type = "lc"; // as node_type_value() takes it
    int32_t node_id = 0;
    std::string name{};
    std::string serial{}; // hexadecimal
};

// Reads "name=fan 3,type=230,slot=3" with blanks or commas between; also devid, sslot, node-type, nodeid and
// serial. What is not said has a default. Throws Failure (wrong usage).
TrialCard parse_trial_card(const std::string &text);

// What the module wrote.
struct GivenAnswer {
    Position position{};
    std::string module{};
    int32_t ret = 0;
    std::string reason{};
    double took_s = 0; // since the card was last asked about
};

class Rehearsal
{
public:
    using Clock = std::chrono::steady_clock;
    using Span = std::chrono::duration<double>;

    // Makes the store; starts nothing yet. Throws Failure.
    Rehearsal(const Output &output, std::vector<std::string> command);
    ~Rehearsal() = default;
    Rehearsal(const Rehearsal &) = delete;
    Rehearsal &operator=(const Rehearsal &) = delete;

    // Starts the module. Throws Failure when the command cannot be executed.
    void start_module();
    // What it has printed so far, the first few kilobytes: "; it said: ...".
    std::string said();
    // Whether it runs; when it does not, ending() says how it ended: "exit status 3; it said: ...".
    bool runs();
    [[nodiscard]] const std::string &ending() const { return ending_; }
    // Sends SIGTERM and waits. Returns whether it ended with status 0 in time; by force after that. ending()
    // is set.
    bool stop_module(Span limit);

    // The device manager's part, and the daemon's.
    void plug(const TrialCard &card);
    void pull(const TrialCard &card);
    void ask(const TrialCard &card);
    void withdraw(const TrialCard &card);
    void restart_store();

    // Waits for an answer to the last request for the card that has not been given out yet, under whatever
    // name. Nothing after the limit, or when the module has ended.
    std::optional<GivenAnswer> answer(const TrialCard &card, Span limit);
    // Takes answers for so long; or less, when the module ends.
    void listen(Span span);
    // Every answer that was taken, in the order of their arrival.
    [[nodiscard]] const std::vector<GivenAnswer> &answers() const { return answers_; }
    // Answers that nobody waited for, those included that were overwritten before they could be taken.
    int64_t surplus();

private:
    void take();
    void pause();
    void note_ending(int wait_status);
    std::optional<int64_t> counted();

    // Has signals ask for an end in place of being one, so that the server below never outlives us.
    struct Interruptible {
        Interruptible();
        ~Interruptible();
        Interruptible(const Interruptible &) = delete;
        Interruptible &operator=(const Interruptible &) = delete;
    };

    Interruptible interruptible_;
    std::ostringstream unheard_; // the store client's notices: that it was away is our own doing
    PrivateStore server_;
    Output output_;
    std::vector<std::string> command_;
    std::unique_ptr<Store> store_;
    std::unique_ptr<ChildProcess> module_;
    std::string ending_;
    std::map<Position, Clock::time_point> asked_;
    std::map<Position, std::size_t> wanted_from_; // the first of answers_ that may be to the last request
    std::vector<GivenAnswer> answers_;
    std::vector<bool> given_out_;
};

} // namespace cg

#endif
