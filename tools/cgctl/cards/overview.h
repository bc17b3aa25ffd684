// Every card as an operator wants to know it, put together from whatever source knows something.
//
// The store says what stands now, and whose answer or which timer led to it. The recorder's file says who
// stayed silent, why and since when; the running daemon whom it waits for, whether or not there is a
// recorder. Each of the two may be missing, and then the rest is shown with a word about what is missing.
#ifndef CARDS_OVERVIEW_H
#define CARDS_OVERVIEW_H

#include <optional>
#include <string>
#include <vector>

#include "admission/card_tracker.h"
#include "cards/cards.h"
#include "cards/past.h"
#include "daemon/daemon_view.h"

namespace cg
{

struct Session;

// One position.
struct CardRow {
    admission::TrackedCard tracked{};
    std::optional<std::chrono::milliseconds> left{}; // of the time to answer
    std::string reason{};                            // of a denial that stands
    std::optional<Card> stored{};                    // nothing in State::absent

    [[nodiscard]] const Position &position() const { return tracked.card.position; }
    // Whether the store holds something about the position. Otherwise it is only remembered.
    [[nodiscard]] bool is_present() const;
};

// All cards, and what was asked about them.
struct Overview {
    admission::Time now{};
    DaemonView daemon{};
    Past past{};
    std::vector<CardRow> rows{};    // by position, remembered ones included
    std::vector<AwayServer> away{}; // what could not be read

    // Whether a database could be read.
    [[nodiscard]] bool knows(int32_t db) const;

    // Null when nothing is known of the position.
    [[nodiscard]] const CardRow *find(const Position &position) const;
};

// Reads all of it. Throws Failure when the store of the cards does not answer, and for nothing else.
Overview read_overview(const Session &session, Store &store, const std::string &history_file);

// Tells a new tracker what is known from before: the modules, the checks that are open, the last decisions.
// `requests` are the positions with a check request. For before the records themselves.
void prime(admission::CardTracker &tracker, const DaemonView &daemon, const Past &past,
           const std::vector<Position> &requests, admission::Time now);

// For the end of a verb that showed an overview: returns `done`, or, when a server was away, prints an error
// that names it and what is missing, and returns `failed`.
int report_away(const Session &session, const Overview &overview);

// What it means that the recorder is away since its last heartbeat.
std::string recorder_away_text(const Past &past, admission::Time now);

} // namespace cg

#endif
