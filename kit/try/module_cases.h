// What a check module must keep to, case by case.
#ifndef TRY_MODULE_CASES_H
#define TRY_MODULE_CASES_H

#include <functional>
#include <string>
#include <vector>

#include "try/rehearsal.h"

namespace cg
{

struct CaseResult {
    enum class State { ok, failed, skipped };

    std::string name;
    State state = State::ok;
    std::string found;
    std::string mend; // what to do; empty unless it failed
    double took_s = 0;
};

struct CaseOptions {
    std::string name;             // that the answers must carry; empty: the one of the first answer
    std::vector<TrialCard> cards; // two at least
    Rehearsal::Span limit;        // for an answer
    Rehearsal::Span quiet;        // how long a second answer is listened for
};

// Goes through all cases and tells each result at once. Returns whether none failed; one that rests on a
// failed one is skipped. Throws Failure when the cases cannot be tried at all.
bool try_module(Rehearsal &rehearsal, const CaseOptions &options,
                const std::function<void(const CaseResult &)> &tell);

} // namespace cg

#endif
