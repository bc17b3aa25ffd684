// What the daemon does with each card, concluded from what it and the modules write into the store.
//
// The daemon tells nobody who decided: it deletes each answer as it reads it, and the result says PASS
// whether every module passed the card or none of them spoke. Whoever hears all changes can tell the
// difference, by keeping the list of modules waited for as the daemon keeps it. That is done here, for all
// who need it: the recorder, the live view, the list and the player. No clock and no store: times and changes
// are handed in.
//
// "existing" says of a change that it is no news: a record was found in the store when listening began, or
// began again.
#ifndef ADMISSION_CARD_TRACKER_H
#define ADMISSION_CARD_TRACKER_H

#include <functional>
#include <map>
#include <memory>

#include "admission/decision.h"
#include "modules/contract.h"

namespace admission
{

using cg::check_timeout;

// What an operator wants to know of a position first.
enum class State {
    absent,    // no card information: only other records name the position, or it was remembered
    offline,   // a card that is not on line
    undecided, // on line, with neither a request nor a result
    waiting,
    passed,
    silence, // passed by silence
    denied,
    exempt,
    unasked, // passed, there was no module to ask
};

// "absent", "off line", "undecided", "waiting", "passed", "passed by silence", "denied", "exempt", "unasked".
const char *text_of(State state);
// The same in one word: "offline", "silence", ...
const char *word_of(State state);

struct TrackedCard {
    CardFacts card{}; // only its position counts in State::absent
    State state = State::absent;
    std::optional<Time> since{}; // when it came to be so; nothing when that was before we listened
    bool request = false;        // a check request stands
    bool open = false;           // a check was not decided; its request may outlast that by a moment
    std::optional<Time> requested_at{};
    std::vector<std::string> waiting_for{}; // in the order of the modules' folder
    bool any_will_do = false;               // the PASS of any module admits it: nobody is left on the list
    std::vector<Answer> answers{};          // to the last request
    std::optional<Decision> last{};         // the last check that ended
    bool denied = false;                    // now, or when it went off line; the denial stands
    bool power_off = false;                 // a request to power it off stands
    bool cannot_start = false;              // the daemon marked it as unable to start
};

class CardTracker
{
public:
    using Listener = std::function<void(const Decision &)>;
    using LateListener = std::function<void(const Position &, const Answer &)>;

    // `on_decision` is called for each check that ends, when it is known how; it may be empty. `timeout` is
    // for those whose clock runs differently.
    explicit CardTracker(Listener on_decision = {}, std::chrono::milliseconds timeout = check_timeout);
    ~CardTracker();
    CardTracker(const CardTracker &) = delete;
    CardTracker &operator=(const CardTracker &) = delete;

    // The modules that the daemon asks from now on, in the folder's order. Before the first call they are not
    // known: then every answer counts as a module's, nobody is named as silent, and checks that begin count
    // as not seen whole. A request that stands proves that somebody is asked: from then on an empty list is
    // taken for one that is not known.
    void set_modules(std::vector<std::string> modules);
    // Has `told` called when a request shows that the daemon was started afresh, before its list is taken:
    // the daemon has read the modules' folder anew, so it may call set_modules().
    void on_fresh_daemon(std::function<void()> told) { fresh_daemon_ = std::move(told); }
    // Has `told` called for each answer that comes when its check has ended. It is not told again with a
    // later decision: see Decision::told_before.
    void on_late_answer(LateListener told) { late_answer_ = std::move(told); }
    // Whether somebody tells of each end of the daemon, by daemon_ended(). A daemon writes a request again
    // only when it knows nothing of the first one; but others may write it, so what is known of the daemon's
    // life goes before what the records look like.
    void set_daemon_watched(bool watched) { daemon_watched_ = watched; }
    // The daemon ended: a check that stands will be begun anew by the next one. It counts as cut off when
    // that is heard of.
    void daemon_ended();
    // A daemon was started at this time, and nobody told of the end of the one before. What it asked may have
    // been heard of before its start: a request that was written again shortly before it begins a new check.
    void daemon_started_again(Time at);
    // This device's global role; nothing when it is not known.
    void set_role(std::optional<int32_t> role) { role_ = role; }

    void card_written(const CardFacts &card, Time at, bool existing);
    void card_deleted(const Position &position, Time at);
    void request_written(const Position &position, Time at, bool existing);
    void request_deleted(const Position &position, Time at, bool existing);
    void answered(const Position &position, Answer answer, bool existing);
    void result_written(int32_t tipc_nodeid, bool pass, Time at, bool existing);
    void result_deleted(int32_t tipc_nodeid, Time at);
    void power_off_written(const Position &position, bool off);
    void cannot_start_written(const Position &position, bool cannot_start);

    // What is remembered of a card, for the case that it is gone by now. Before remember_open().
    void remember_card(const CardFacts &card);
    // A check that is remembered from before: its request was seen at `requested_at`, when that is known, and
    // the modules waited for had not answered; of its card only the position counts. For before the existing
    // records are told. When a request is found that is younger, as the time tells, it ends unseen.
    void remember_open(const OpenCheck &check);
    // The last decision on a card, remembered from before. It counts as long as the store does not say
    // otherwise, and not at all when one was heard of.
    void remember_decision(const Decision &decision);
    // A check that is remembered from before, also for after the records were told. What was heard of is
    // never changed by it: it is joined with a request that was found standing when listening began, when
    // that can be the same one; when that was decided meanwhile, nothing is to be told; else it has ended
    // unseen. `daemon_ended`: between the time that is remembered and the time when listening began.
    void take_up(const OpenCheck &check, bool daemon_ended, Time at);
    // All existing records were told, at first or anew: checks that were remembered or known as open and are
    // not have ended unseen.
    void snapshot_done(Time at);

    // Every position, in order. Valid until the next change.
    [[nodiscard]] std::vector<const TrackedCard *> cards() const;
    // Null when nothing is known of the position.
    [[nodiscard]] const TrackedCard *find(const Position &position) const;
    // Whether the daemon takes answers by this name, as far as is known: while the modules are not, any.
    [[nodiscard]] bool is_module(const std::string &name) const;
    [[nodiscard]] bool knows_modules() const { return modules_known_; }
    [[nodiscard]] std::chrono::milliseconds timeout() const { return timeout_; }

    // From the last request to an answer at this time; nothing when the request was not seen, or the time
    // cannot be: a clock was set, or it is an afterthought.
    [[nodiscard]] std::optional<std::chrono::milliseconds> time_to_answer(const TrackedCard &card,
                                                                          Time at) const;
    // What is left of the time to answer, never more than all of it; nothing when no request stands or its
    // beginning was not seen.
    [[nodiscard]] std::optional<std::chrono::milliseconds> time_left(const TrackedCard &card, Time now) const;

private:
    struct FirstCheck;
    struct Rewrite;
    struct Entry;
    // How a standing check ends by a request that takes its place.
    enum class Replaced { unseen, returned, cut_off, unknown };

    Entry &entry(const Position &position);
    Entry *entry_by_tipc(int32_t tipc_nodeid);
    void begin_check(Entry &entry, Time at, bool existing, bool fresh_daemon);
    [[nodiscard]] Replaced replaced_how(const Entry &entry, bool existing) const;
    void end_replaced(Entry &entry, Replaced how, Time at);
    void cut_off_at_rewrite(Entry &entry);
    void decide(Entry &entry, bool pass, Time at);
    [[nodiscard]] Decision passed(const Entry &entry, Time at) const;
    [[nodiscard]] Decision passed_unrequested(const Entry &entry, Time at) const;
    [[nodiscard]] bool is_time_up(const Entry &entry, Time at) const;
    [[nodiscard]] bool goes_on(const Entry &entry, Time at, bool existing) const;
    [[nodiscard]] std::vector<std::string> silent_ones(const Entry &entry) const;
    void take_list(Entry &entry, bool existing) const;
    void take_off_list(Entry &entry, const std::string &module) const;
    static void add_answer(Entry &entry, Answer answer);
    void remember_list(Entry &entry, const OpenCheck &check) const;
    void join(Entry &entry, const OpenCheck &check, Time at);
    void tell_unseen(Entry &entry, const OpenCheck &check, Time at);
    void finish(Entry &entry, Decision decision);
    void end_withdrawn(Entry &entry, Time at, bool cut_off);
    void end_unseen(Entry &entry, Time at, std::optional<bool> admitted);
    void settle(Entry &entry, Time at, bool existing);
    [[nodiscard]] static State state_of(const Entry &entry);
    [[nodiscard]] static bool agrees(const Entry &entry, const Decision &last);
    void forget_if_empty(const Position &position);

    Listener on_decision_;
    std::function<void()> fresh_daemon_;
    LateListener late_answer_;
    std::chrono::milliseconds timeout_;
    std::vector<std::string> modules_;
    bool modules_known_ = false;
    std::optional<int32_t> role_;
    bool daemon_watched_ = false;
    std::optional<Time> complete_since_; // all existing records were told, for the first time
    std::map<Position, std::unique_ptr<Entry>> entries_;
    std::map<int32_t, bool> results_; // by TIPC node id: whether it says PASS
};

} // namespace admission

#endif
