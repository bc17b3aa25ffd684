// The checks that stand, as the history has them: only what differs from it is written.
#ifndef RECORDER_OPEN_CHECKS_H
#define RECORDER_OPEN_CHECKS_H

#include <functional>
#include <map>
#include <vector>

#include "admission/card_tracker.h"
#include "outbox.h"

namespace recorder
{

class OpenChecks
{
public:
    using Put = std::function<void(Outbox::Write)>;

    // `put` is given what is to be written.
    explicit OpenChecks(Put put);

    // Writes each check that stands and that the history has otherwise or not at all, and deletes the others.
    void update(const std::vector<const admission::TrackedCard *> &cards);
    // The history has a check of this position: the next update() writes or deletes it.
    void found(const history::Position &position);
    // The history has none, since it is a new file.
    void forget() { written_.clear(); }

private:
    // What can change of a check while it stands.
    struct Written {
        std::optional<history::Time> requested_at{};
        std::size_t answers = 0;
        std::optional<history::Time> last_answer{};
        std::vector<std::string> waiting_for{};
        bool any_will_do = false;
        std::string request{};
        friend bool operator==(const Written &, const Written &) = default;
    };
    static Written content_of(const admission::TrackedCard &card);

    Put put_;
    std::map<history::Position, std::optional<Written>> written_; // nothing: there, with unknown content
};

} // namespace recorder

#endif
