// What another build of a module says to the cards of a history.
//
// The cards come in the order in which they were decided and stay plugged, as far as the history tells: until
// another one comes at the position, or the one there was denied or pulled. So a module that keeps account of
// all cards sees about the chassis that the recorded one saw.
#ifndef TRY_REPLAY_H
#define TRY_REPLAY_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "admission/decision.h"
#include "try/harness.h"

namespace cg
{

// A card's verdicts, as recorded and of the module on trial.
struct ReplayedCard {
    const admission::Decision &decision;
    std::optional<kit::Answer> then{}; // nothing: the module was not asked or did not answer
    bool was_silent = false;
    std::optional<kit::Answer> now{}; // nothing: no answer in time

    [[nodiscard]] bool differs() const;
};

struct ReplayOptions {
    std::string name;    // of the module, then and now; empty: the one of its first answer
    Harness::Span limit; // for an answer
};

struct ReplaySummary {
    std::string name;
    std::size_t replayed = 0;
    std::size_t differing = 0;
    std::size_t answered_then = 0; // those for which the history has the module's own answer
};

// Starts the module and has it examine the checks that were decided; reports each card as it is answered.
// Throws Failure when the module ends, answers under another name or not at all, and when no check was
// decided.
ReplaySummary replay(Harness &module, const std::vector<admission::Decision> &decisions,
                     const ReplayOptions &options, const std::function<void(const ReplayedCard &)> &report);

} // namespace cg

#endif
