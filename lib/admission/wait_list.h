// Whom the daemon waits for at one position.
//
// The daemon fills the list when it first meets a card, not when it asks again; a PASS that it reads takes
// its module off, and a time-out everybody. A PASS admits a card only with nobody left on it, so the daemon
// that has admitted a card has an empty list: from then on the PASS of any module admits it.
#ifndef ADMISSION_WAIT_LIST_H
#define ADMISSION_WAIT_LIST_H

#include <optional>
#include <string>
#include <vector>

#include "admission/decision.h"

namespace admission
{

// The modules that the daemon asks, in the folder's order; nothing: not known.
using Modules = std::optional<std::vector<std::string>>;

class WaitList
{
public:
    // A card is met. `exact`: nobody can have answered yet.
    void fill(const Modules &modules, bool exact);
    // Which modules there were when the card was met is known now.
    void learn(const std::vector<std::string> &modules);
    // What is known from elsewhere; where any of them will do, the daemon's list is empty.
    void set(std::vector<std::string> names, bool any_will_do, const Modules &modules);
    // The daemon has read a module's PASS. Of two modules with one name it clears only the first, however
    // often it answers.
    void passed(const std::string &module, const Modules &modules);
    // The daemon has admitted the card: it waits for nobody in particular any more.
    void clear();

    // Who has not answered: of those on the list, or with nobody left on it of all; nobody where the list is
    // not known. Of two with one name one is waited for in vain whatever they answer.
    [[nodiscard]] std::vector<std::string> waiting(const std::vector<Answer> &answers,
                                                   const Modules &modules) const;
    [[nodiscard]] bool is_known() const { return known_; }
    // Known, and nothing was missed since it was filled.
    [[nodiscard]] bool is_exact() const { return known_ && exact_; }
    [[nodiscard]] bool is_set() const { return set_; }
    // The PASS of any module is enough.
    [[nodiscard]] bool any_will_do() const { return known_ && names_.empty(); }

private:
    std::vector<std::string> names_{};
    bool known_ = false;
    bool exact_ = false;
    bool set_ = false; // by set()
};

} // namespace admission

#endif
