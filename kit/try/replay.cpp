// What another build of a module says to the cards of a history.
#include "try/replay.h"

#include <algorithm>
#include <utility>

#include "base/failure.h"
#include "base/text.h"

namespace cg
{

namespace
{

using admission::Decision;
using admission::Outcome;

constexpr std::size_t most_unanswered = 3; // cards, before the module is given up

bool was_decided(const Decision &decision)
{
    return decision.outcome == Outcome::passed || decision.outcome == Outcome::silence ||
           decision.outcome == Outcome::denied;
}

TestCard test_card(const Decision &decision)
{
    TestCard card;
    card.position = decision.card.position;
    card.type = decision.card.config_dev_type;
    card.node_type = std::to_string(decision.card.node_type);
    card.node_id = decision.card.nodeid;
    card.name = decision.card.name;
    card.serial = decision.card.serial;
    return card;
}

class Replay
{
public:
    Replay(Harness &module, const ReplayOptions &options)
        : module_(module), name_(options.name), limit_(options.limit)
    {
    }

    // Has one recorded card examined. Throws Failure when the module is of no use.
    ReplayedCard examine(const Decision &decision);
    // Plugs or pulls a card whose check was not decided.
    void follow(const Decision &decision);
    [[nodiscard]] const std::string &name() const { return name_; }

private:
    void recall(ReplayedCard &card) const;
    void require_service(const TestCard &card, bool answered);
    void require_name(const std::string &module);

    Harness &module_;
    std::string name_;
    Harness::Span limit_;
    std::size_t answered_ = 0;
    std::size_t unanswered_ = 0;
};

ReplayedCard Replay::examine(const Decision &decision)
{
    const TestCard card = test_card(decision);
    module_.plug(card);
    module_.request(card);
    const auto answer = module_.wait_for_answer(card, limit_);
    module_.withdraw(card);
    require_service(card, answer.has_value());
    ReplayedCard result{decision};
    if (answer) {
        require_name(answer->module);
        result.now = answer->verdict;
    }
    recall(result);
    if (decision.outcome == Outcome::denied) {
        module_.pull(card); // it was powered off
    }
    return result;
}

void Replay::follow(const Decision &decision)
{
    if (decision.outcome == Outcome::withdrawn && !admission::was_cut_off(decision)) {
        module_.pull(test_card(decision));
    } else if (decision.card.online) {
        module_.plug(test_card(decision)); // it was admitted without a check, and is there all the same
    }
}

void Replay::require_name(const std::string &module)
{
    if (name_.empty()) {
        name_ = module;
    }
    if (module != name_) {
        throw Failure(failed, "the module answers as " + in_quotes(module) + " and not as " +
                                  in_quotes(name_) + "; give it that name, or use --name");
    }
}

// A module that does not answer at all costs the time limit for each card.
void Replay::require_service(const TestCard &card, bool answered)
{
    (answered ? answered_ : unanswered_)++;
    if (!answered && !module_.is_running()) {
        throw Failure(failed, "the module ended at " + card.position.text() + ": " + module_.exit_text());
    }
    if (answered_ == 0 && unanswered_ >= most_unanswered) {
        throw Failure(failed, "the module answered none of the first " + std::to_string(unanswered_) +
                                  " cards; `cgctl module test` shows why");
    }
}

// The last answer counts, as it did for the daemon.
void Replay::recall(ReplayedCard &card) const
{
    for (const admission::Answer &answer : card.decision.answers) {
        if (answer.module == name_ && answer.registered) {
            card.then = kit::Answer{answer.ret == 0, answer.reason};
        }
    }
    const std::vector<std::string> &silent = card.decision.silent;
    card.was_silent = std::find(silent.begin(), silent.end(), name_) != silent.end();
}

} // namespace

// Compared with the module's own recorded verdict, else with whether the card was admitted; with nothing when
// others denied the card before this module answered.
bool ReplayedCard::differs() const
{
    if (!now) {
        return true;
    }
    return then ? now->pass != then->pass : decision.admitted == true && !now->pass;
}

ReplaySummary replay(Harness &module, const std::vector<Decision> &decisions, const ReplayOptions &options,
                     const std::function<void(const ReplayedCard &)> &report)
{
    module.start_module();
    Replay player(module, options);
    ReplaySummary summary;
    for (const Decision &decision : decisions) {
        if (!was_decided(decision)) {
            player.follow(decision);
            continue;
        }
        const ReplayedCard card = player.examine(decision);
        summary.replayed++;
        summary.answered_then += card.then ? 1 : 0;
        summary.differing += card.differs() ? 1 : 0;
        report(card);
    }
    if (summary.replayed == 0) {
        throw Failure(failed, "the history has no check that was decided; there is nothing to compare");
    }
    summary.name = player.name();
    return summary;
}

} // namespace cg
