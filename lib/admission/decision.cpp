// What is computed from a decision alone, so that every view of it says the same.
#include "admission/decision.h"

#include <algorithm>

namespace admission
{

bool was_heard(const std::vector<Answer> &answers, const Answer &again)
{
    const auto last = std::find_if(answers.rbegin(), answers.rend(),
                                   [&](const Answer &answer) { return answer.module == again.module; });
    return last != answers.rend() && last->ret == again.ret && last->reason == again.reason;
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
