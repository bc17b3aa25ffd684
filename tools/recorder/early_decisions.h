// Decisions on checks that the history has the beginning of, made before the history could be opened.
#ifndef RECORDER_EARLY_DECISIONS_H
#define RECORDER_EARLY_DECISIONS_H

#include <memory>
#include <vector>

#include "history/history.h"

namespace recorder
{

class EarlyDecisions
{
public:
    // Remembers a decision that waits to be written; of too many, the first ones.
    void add(std::shared_ptr<history::Decision> decision);
    // Completes the decisions on this very check: when it began, and what was answered before, is known from
    // the history. Returns whether there is one.
    bool complete(const history::OpenCheck &check);
    // The history is open: there are no more early ones.
    void clear() { decisions_.clear(); }

private:
    static void complete(history::Decision &decision, const history::OpenCheck &check);

    std::vector<std::shared_ptr<history::Decision>> decisions_;
};

} // namespace recorder

#endif
