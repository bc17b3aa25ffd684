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

    // Writes each check that stands and that was written otherwise or not at all, and deletes the others. One
    // that the file has from before is written again, or ends with its decision.
    void update(const std::vector<const admission::TrackedCard *> &cards);
    // The history has none, since it is a new file.
    void forget() { written_.clear(); }

private:
    Put put_;
    std::map<history::Position, history::OpenCheck> written_;
};

} // namespace recorder

#endif
