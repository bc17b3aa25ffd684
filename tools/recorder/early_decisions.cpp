// Decisions on checks that the history has the beginning of, made before the history could be opened.
#include "early_decisions.h"

#include <algorithm>
#include <utility>

#include "outbox.h"

namespace recorder
{

void EarlyDecisions::add(std::shared_ptr<history::Decision> decision)
{
    if (decisions_.size() < most_waiting) {
        decisions_.push_back(std::move(decision));
    }
}

bool EarlyDecisions::complete(const history::OpenCheck &check)
{
    bool found = false;
    for (const auto &decision : decisions_) {
        if (admission::is_check(decision->outcome) && is_same(decision->request, check.request)) {
            complete(*decision, check);
            found = true;
        }
    }
    return found;
}

void EarlyDecisions::complete(history::Decision &decision, const history::OpenCheck &check)
{
    decision.requested_at = check.requested_at;
    const std::vector<history::Answer> heard = std::exchange(decision.answers, check.answers);
    std::size_t told = check.answers.size();
    for (std::size_t i = 0; i < heard.size(); ++i) {
        if (!admission::was_heard(decision.answers, heard[i])) { // else it stood, and was delivered again
            decision.answers.push_back(heard[i]);
            told += i < decision.told_before ? 1 : 0;
        }
    }
    decision.told_before = told;
    std::erase_if(decision.silent, [&](const std::string &module) {
        return std::find(check.waiting_for.begin(), check.waiting_for.end(), module) ==
               check.waiting_for.end();
    });
}

} // namespace recorder
