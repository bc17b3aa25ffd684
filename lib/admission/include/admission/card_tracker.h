// What the daemon does with each card, from what it and the modules write into the store.
//
// A subscriber to all changes knows it, since each says who made it and why: which answer or timer a result
// is due to, and which life of the daemon asked. Whom the daemon waits for stands in no record; that list is
// kept here as the daemon keeps it. For all who need it: the recorder, the live view, the list and the
// player. No clock and no store: times and changes are handed in.
#ifndef ADMISSION_CARD_TRACKER_H
#define ADMISSION_CARD_TRACKER_H

#include <functional>
#include <map>
#include <memory>
#include <set>

#include "admission/tracked_card.h"
#include "modules/contract.h"

namespace admission
{

class Card;
struct Result;
struct Shared;

using cg::check_timeout;

class CardTracker
{
public:
    using Listener = std::function<void(const Decision &)>;
    using AnswerListener = std::function<void(const Position &, const Answer &, bool late)>;
    using DaemonListener = std::function<void(const std::string &instance, bool started)>;

    // `on_decision` is called for each check that ends, when it is known how; it may be empty. `timeout` is
    // for those whose clock runs differently.
    explicit CardTracker(Listener on_decision = {}, std::chrono::milliseconds timeout = check_timeout);
    ~CardTracker();
    CardTracker(const CardTracker &) = delete;
    CardTracker &operator=(const CardTracker &) = delete;

    // The modules that the daemon asks from now on, in the folder's order. Before the first call they are not
    // known: then every answer counts as a module's, nobody is named as silent, and checks that begin count
    // as not seen whole. A request proves that somebody is asked: from then on an empty list is taken for one
    // that is not known. Without `exact` the daemon may ask others: then no check that begins counts as seen
    // whole.
    void set_modules(std::vector<std::string> modules, bool exact = true);
    // Has `called` called for each daemon that is heard of, by what it asked or by a write, before its lists
    // are filled: so it may call set_modules(). `started`: it began to write while we listened, for the first
    // time as far as is known.
    void on_daemon(DaemonListener called) { daemon_listener_ = std::move(called); }
    // Has `called` called for each answer that is heard of, before the decision that it may bring about;
    // once, although it may be found again. `late`: it came when its check had ended. Such a one is not
    // reported again with a later decision: see Decision::told_before.
    void on_answer(AnswerListener called);
    // This device's global role; nothing when it is not known.
    void set_role(std::optional<int32_t> role);

    // The changes of records. Those of results are about a TIPC node.
    void card_written(const CardFacts &card, const Change &change);
    void card_deleted(const Position &position, const Change &change);
    void request_written(const Position &position, const Change &change);
    void request_deleted(const Position &position, const Change &change);
    void answer_written(const Position &position, const Answer &answer, const Change &change);
    // The answer is as it last was.
    void answer_deleted(const Position &position, const Answer &answer, const Change &change);
    // node_type  of the card that the daemon decided on: a newer one may have its slot by now.
    void result_written(int32_t tipc_nodeid, bool pass, int32_t node_type, const Change &change);
    void result_deleted(int32_t tipc_nodeid, const Change &change);
    void power_off_written(const Position &position, bool off);
    void cannot_start_written(const Position &position, bool cannot_start);
    // All existing records were notified of, at first or again: checks that were known as open and are not
    // have ended.
    void snapshot_done(Time at);

    // The last decision on a card, remembered from before. It explains the result that stands when it led to
    // that very one, and does not count at all when one was heard of.
    void remember_decision(const Decision &decision);
    // Whom the daemon itself says that it waits for; with `any_will_do` for the PASS of any module. For
    // before the records.
    void remember_list(const Position &position, std::vector<std::string> names, bool any_will_do);
    // A check that is remembered from before, also for after the records were notified of: it goes on when
    // its request is the one that stands. When that was decided meanwhile, nothing is reported; else it has
    // ended, and what was heard of is not changed by it.
    void take_up(const OpenCheck &check, Time at);

    // Every position, in order. Valid until the next change.
    [[nodiscard]] std::vector<const TrackedCard *> cards() const;
    // Null when nothing is known of the position.
    [[nodiscard]] const TrackedCard *find(const Position &position) const;
    // Whether the daemon takes answers by this name, as far as is known: while the modules are not, any.
    [[nodiscard]] bool is_module(const std::string &name) const;
    [[nodiscard]] bool knows_modules() const;
    [[nodiscard]] std::chrono::milliseconds timeout() const;

    // What is left of the time to answer, never more than all of it; nothing when the card does not wait or
    // its beginning was not seen.
    [[nodiscard]] std::optional<std::chrono::milliseconds> time_left(const TrackedCard &card, Time now) const;

private:
    Card &card(const Position &position);
    Card *find_card(const Position &position);
    Card *card_of(int32_t tipc_nodeid, const Result &result);
    void forget_that_there_are_no_modules();
    void hear_daemon(const Change &change);
    void forget_if_empty(const Position &position);

    std::unique_ptr<Shared> shared_;
    DaemonListener daemon_listener_;
    std::string daemon_{};          // the instance that wrote last
    std::set<std::string> found_{}; // the instances whose writes were found
    std::map<Position, std::unique_ptr<Card>> cards_;
    std::map<int32_t, Result> results_; // by TIPC node
};

} // namespace admission

#endif
