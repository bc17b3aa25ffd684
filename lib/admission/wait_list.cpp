// Whom the daemon waits for at one position.
#include "wait_list.h"

#include <algorithm>

namespace admission
{

void WaitList::fill(const Modules &modules, bool exact)
{
    names_ = modules.value_or(std::vector<std::string>{});
    known_ = modules.has_value();
    exact_ = exact;
    set_ = false;
}

void WaitList::learn(const std::vector<std::string> &modules)
{
    names_ = modules;
    known_ = true;
}

void WaitList::set(std::vector<std::string> names, bool any_will_do, const Modules &modules)
{
    names_ = any_will_do ? std::vector<std::string>{} : std::move(names);
    known_ = modules.has_value() || !names_.empty();
    exact_ = false;
    set_ = true;
}

void WaitList::passed(const std::string &module, const Modules &modules)
{
    const auto asked = modules ? std::count(modules->begin(), modules->end(), module) : 0;
    if (std::count(names_.begin(), names_.end(), module) >= asked) {
        const auto first = std::find(names_.begin(), names_.end(), module);
        if (first != names_.end()) {
            names_.erase(first);
        }
    }
}

void WaitList::clear()
{
    names_.clear();
    known_ = true;
    exact_ = true;
}

std::vector<std::string> WaitList::waiting(const std::vector<Answer> &answers, const Modules &modules) const
{
    if (!known_) {
        return {};
    }
    const std::vector<std::string> all = modules.value_or(std::vector<std::string>{});
    const bool anyone = names_.empty();
    std::vector<std::string> missing = anyone ? all : names_;
    std::erase_if(missing, [&](const std::string &module) {
        const bool answered = std::any_of(answers.begin(), answers.end(),
                                          [&](const Answer &answer) { return answer.module == module; });
        return answered && (anyone || std::count(all.begin(), all.end(), module) < 2);
    });
    return missing;
}

} // namespace admission
