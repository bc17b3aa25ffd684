// What the tracker knows of a position, for its own files only.
#ifndef ADMISSION_CARD_ENTRY_H
#define ADMISSION_CARD_ENTRY_H

#include "admission/card_tracker.h"
#include "verdicts.h"

namespace admission
{

inline constexpr int32_t main_board = 2; // p_dev.DM_TYPE_MB

// A timer may fire, and its writes arrive, a little beside the time; nobody answers this near to the end by
// chance often enough to matter.
inline constexpr std::chrono::seconds slack{5};

// The first check of a position that was heard of.
struct CardTracker::FirstCheck {
    Time at{};
    bool found = false; // it stood when listening began
    CardFacts card{};
};

// A check as it was when its request was written again: that may turn out to have been the next daemon.
struct CardTracker::Rewrite {
    Time at{};
    std::vector<std::string> list{};
    std::vector<Answer> answers{};
};

struct CardTracker::Entry {
    TrackedCard shown{};
    bool has_card = false;
    std::vector<std::string> list{}; // whom the daemon still waits for
    bool list_known = false;         // false: some of it may have answered before we listened
    bool list_blank = false;         // which modules there are was not known, so the list says nothing
    bool came_online = false;        // since the last request
    bool open = false;               // a request stands that was not decided
    bool seen_whole = false;         // the present check, from its beginning
    std::vector<Time> earlier{};     // requests whose timers the daemon still runs, the present one not
    std::optional<bool> result{};    // that the store holds: whether it says PASS
    std::optional<State> settled{};  // what the last decision left behind, while the result stands
    Verdicts verdicts{};             // that the daemon will come to
    std::size_t told = 0;            // of the answers, so many were told with an earlier decision
    CardFacts asked{};               // the card that the last request was written for
    bool gone = false;               // the request was found to be gone; the result is still to be told
    bool daemon_ended = false;       // since the last request
    bool leftover = false;     // the request may be one that a daemon before the present one left behind
    bool decided_here = false; // the last decision was heard of, not remembered
    std::optional<Rewrite> rewrite{}; // the last one of the present check
    std::optional<FirstCheck> first{};
    std::size_t checks = 0; // that were heard of

    // Whether everybody has answered.
    [[nodiscard]] bool has_all_answers() const { return !list_blank && list.empty(); }
};

// Whether both are facts of one card; a card without facts may be any.
bool is_same_card(const CardFacts &one, const CardFacts &other);

// How a card stands after a check ended so; nothing when the end says nothing of that.
std::optional<State> state_after(Outcome outcome);

} // namespace admission

#endif
