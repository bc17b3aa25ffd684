// What is computed from a decision alone, so that every view of it says the same.
#include "admission/decision.h"

#include <algorithm>

#include "records/card_identity.h"

namespace admission
{

bool is_check(Outcome outcome)
{
    return outcome != Outcome::exempt && outcome != Outcome::unasked;
}

bool was_heard(const std::vector<Answer> &answers, const Answer &again)
{
    const auto last = std::find_if(answers.rbegin(), answers.rend(),
                                   [&](const Answer &answer) { return answer.module == again.module; });
    if (last == answers.rend()) {
        return false;
    }
    if (last->revision != 0 && again.revision != 0) {
        return last->revision == again.revision;
    }
    return last->ret == again.ret && last->reason == again.reason;
}

bool is_same_card(const CardFacts &one, const CardFacts &other)
{
    const auto is_blank = [](const CardFacts &card) { return card.name.empty() && card.serial.empty(); };
    return is_blank(one) || is_blank(other) || cg::has_same_identity(one, other);
}

std::optional<std::chrono::milliseconds> duration_of(const Decision &decision)
{
    if (!decision.requested_at || decision.decided_at < *decision.requested_at) {
        return std::nullopt;
    }
    return std::chrono::duration_cast<std::chrono::milliseconds>(decision.decided_at -
                                                                 *decision.requested_at);
}

bool was_cut_off(const Decision &decision)
{
    return decision.outcome == Outcome::withdrawn && !decision.reason.empty();
}

} // namespace admission
