// What the modules answered to a card's last request.
#ifndef ADMISSION_ANSWER_LIST_H
#define ADMISSION_ANSWER_LIST_H

#include <map>
#include <string>
#include <vector>

#include "admission/decision.h"

namespace admission
{

class AnswerList
{
public:
    // A module may answer as often as it likes, and strangers under as many names; the last sixteen are kept
    // of each module, and of all strangers together.
    void add(Answer answer);
    // Instead of all that there are.
    void replace(std::vector<Answer> answers);
    // Another request: of the answers to the one before only those count that the daemon has not read. These
    // are those that stand, and it may still read one that was overwritten since: set_read() tells.
    void begin_check();
    // The daemon read the module's answer of this revision, so it counts for this check. In a store that lost
    // its data revisions begin with 1 again: the latest answer that bears it is meant.
    void set_read(const std::string &module, uint64_t revision);

    // The record of an answer was written, and the daemon has not read it; or it was deleted.
    void set_standing(const std::string &module, uint64_t revision) { standing_[module] = revision; }
    void set_gone(const std::string &module) { standing_.erase(module); }
    [[nodiscard]] bool stands(const std::string &module, uint64_t revision) const;
    [[nodiscard]] bool stands(const Answer &answer) const { return stands(answer.module, answer.revision); }

    // The module's answer of this revision; where that is not known, its last PASS or its last denial. Null
    // without one.
    [[nodiscard]] const Answer *find(const std::string &module, uint64_t revision, bool pass) const;
    [[nodiscard]] const std::vector<Answer> &all() const { return answers_; }

    // The first so many were reported; from now on all are.
    [[nodiscard]] std::size_t told() const { return told_; }
    void set_told() { told_ = answers_.size(); }

private:
    std::vector<Answer> answers_{};
    std::vector<Answer> earlier_{}; // the last sixteen that no longer counted when another check began
    std::size_t told_ = 0;
    std::map<std::string, uint64_t> standing_{}; // by module: the record's revision
};

} // namespace admission

#endif
