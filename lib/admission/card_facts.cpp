// What became of one card and how, in full.
#include "admission/card_facts.h"

#include "admission/card_text.h"
#include "base/text.h"

namespace cg
{

namespace
{

using admission::Answer;
using admission::Decision;
using admission::State;
using admission::TrackedCard;

class Facts
{
public:
    explicit Facts(Time now) : now_(now) {}

    void add(const std::string &name, const std::string &text)
    {
        if (!text.empty()) {
            list_.emplace_back(name, text);
        }
    }

    void add_card(const admission::CardFacts &card)
    {
        add("name", visible(card.name));
        add("type", short_type(card.node_type) + ", configured as " + std::to_string(card.config_dev_type));
        add("serial", card.serial);
    }

    void add_answers(const std::vector<Answer> &given, const std::vector<std::string> &missing)
    {
        std::string name = "answers";
        for (const Answer &answer : given) {
            add(name, answer_text(answer));
            name = "";
        }
        for (const std::string &module : missing) {
            add(name, visible(module) + " has not answered");
            name = "";
        }
    }

    void add_request(const TrackedCard &card)
    {
        add("asked", card.requested_at ? moment(*card.requested_at) : "time unknown");
        add_answers(card.answers, card.waiting_for);
        add_before(card);
    }

    void add_before(const TrackedCard &card)
    {
        if (card.last) {
            add("before", decision_text(*card.last) + ", " + moment(card.last->decided_at));
        }
    }

    // The last check that was heard of need not be the one that left the result.
    void add_end(const TrackedCard &card)
    {
        if (card.last && (card.explained || (card.decider.empty() && card.state != State::passed))) {
            add_last_check(*card.last);
            return;
        }
        add("decided",
            card.decider.empty() ? "" : (card.denied ? "denied by " : "passed by ") + visible(card.decider));
        add_before(card);
    }

    void add_last_check(const Decision &decision)
    {
        add("decided", decision_text(decision) + ", " + moment(decision.decided_at));
        add("asked", decision.requested_at ? moment(*decision.requested_at) : "");
        add_answers(decision.answers, decision.silent);
        add("role", decision.role ? role_word(*decision.role) : "");
        if (!decision.complete) {
            add("", decision.requested_at
                        ? "(not known in full: answers may be missing, or it was not known who was asked)"
                        : "(recording began later: answers may be missing)");
        }
    }

    [[nodiscard]] std::vector<std::pair<std::string, std::string>> take() { return std::move(list_); }

private:
    [[nodiscard]] std::string moment(Time time) const
    {
        const auto ago = std::chrono::duration_cast<std::chrono::milliseconds>(now_ - time);
        return clock_text(time, now_) + " (" + span_text(ago) + " ago)";
    }

    Time now_;
    std::vector<std::pair<std::string, std::string>> list_;
};

} // namespace

std::vector<std::pair<std::string, std::string>>
facts_of_card(const TrackedCard &card, std::optional<std::chrono::milliseconds> left, Time now)
{
    Facts facts(now);
    if (card.state != State::absent) {
        facts.add_card(card.card);
    }
    facts.add("state", state_text(card, left));
    if (card.state == State::passed && card.decider.empty()) {
        facts.add("", "the result does not say: an earlier build or another program wrote it");
    }
    facts.add("since", since_text(card, now));
    if (card.open) {
        facts.add_request(card);
    } else {
        facts.add_end(card);
    }
    if (card.power_off) {
        facts.add("power", "a request to power it off stands");
    }
    if (card.cannot_start) {
        facts.add("status", "marked as unable to start");
    }
    return facts.take();
}

} // namespace cg
