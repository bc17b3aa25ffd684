// Every card as an operator wants to know it, put together from whoever knows something.
//
// The store says what stands now, and nothing of how it came to that. The recorder's file says who decided,
// who stayed silent and since when; the running daemon whom it waits for, whether or not there is a recorder.
// Each of the two may be missing, and then the rest is shown with a word about what is missing.
#ifndef CARDS_OVERVIEW_H
#define CARDS_OVERVIEW_H

#include <map>
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

class Overview
{
public:
    // Reads all of it. Throws Failure when the store does not answer, and for nothing else.
    Overview(const Session &session, Store &store, const std::string &history_file);

    // By position, remembered ones included.
    [[nodiscard]] const std::vector<CardRow> &rows() const { return rows_; }
    // Null when nobody knows anything of the position.
    [[nodiscard]] const CardRow *find(const Position &position) const;
    [[nodiscard]] admission::Time now() const { return now_; }

    // Says on standard error, in one line each, which source was missing and what is not known for that.
    void tell_what_is_missing(const Session &session) const;
    // The member "sources" of the JSON forms.
    [[nodiscard]] Json sources() const;

private:
    void add_row(const admission::CardTracker &tracker, const admission::TrackedCard &card,
                 std::map<Position, Card> &stored);

    admission::Time now_;
    DaemonView daemon_;
    Past past_;
    std::vector<CardRow> rows_;
};

// Tells a new tracker what is known from before: the modules, the checks that are open, the last decisions.
// `requests` are the positions with a check request. For before the records themselves.
void prime(admission::CardTracker &tracker, const DaemonView &daemon, const Past &past,
           const std::vector<Position> &requests, admission::Time now);

// What it means that the recorder is away since its last sign of life.
std::string recorder_away_text(const Past &past, admission::Time now);

// The object of one card in the JSON forms: what the records say, and what is known of its admission.
Json card_json(const CardRow &row);

} // namespace cg

#endif
