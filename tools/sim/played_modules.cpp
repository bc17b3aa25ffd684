// The check modules that a scenario plays.
#include "played_modules.h"

#include <algorithm>

namespace cg
{

using scenario::Manner;
using scenario::ModuleRule;

std::vector<DueAnswer> PlayedModules::set_rule(const ModuleRule &rule)
{
    const auto [place, is_new] = modules_.try_emplace(rule.module);
    Behaviour &behaviour = place->second;
    if (is_new) {
        behaviour.general.manner = Manner::silent; // until a statement says how it behaves towards all
    }
    if (rule.position || rule.type) {
        if (behaviour.general.manner == Manner::away) {
            behaviour.general.manner = Manner::silent; // to answer one card it has to listen
        }
        behaviour.exceptions.push_back(rule);
    } else {
        behaviour = {rule, {}};
    }
    std::vector<DueAnswer> due;
    for (auto &[position, request] : requests_) {
        hear(rule.module, behaviour, position, request, due);
    }
    return due;
}

std::vector<DueAnswer> PlayedModules::requested(const Position &position, int32_t type, bool again)
{
    std::vector<DueAnswer> due;
    if (again && requests_.contains(position)) {
        return due;
    }
    Request &request = requests_[position] = {++last_number_, type, {}};
    for (const auto &[module, behaviour] : modules_) {
        hear(module, behaviour, position, request, due);
    }
    return due;
}

// What a module does when it hears of a request; it hears of each once.
void PlayedModules::hear(const std::string &module, const Behaviour &behaviour, const Position &position,
                         Request &request, std::vector<DueAnswer> &due)
{
    if (behaviour.general.manner == Manner::away || !request.heard_by.insert(module).second) {
        return;
    }
    const ModuleRule &rule = rule_for(behaviour, position, request.type);
    if (rule.manner == Manner::answers) {
        due.push_back({position, module, rule.pass, rule.reason, rule.after, request.number});
    }
}

// A rule for a position goes before one for a type, and that before the one for all.
const ModuleRule &PlayedModules::rule_for(const Behaviour &behaviour, const Position &position, int32_t type)
{
    const auto &exceptions = behaviour.exceptions;
    auto found = std::find_if(exceptions.rbegin(), exceptions.rend(),
                              [&](const ModuleRule &rule) { return rule.position == position; });
    if (found == exceptions.rend()) {
        found = std::find_if(exceptions.rbegin(), exceptions.rend(),
                             [&](const ModuleRule &rule) { return rule.type == type; });
    }
    return found == exceptions.rend() ? behaviour.general : *found;
}

bool PlayedModules::is_wanted(const DueAnswer &answer) const
{
    const auto found = requests_.find(answer.position);
    return found != requests_.end() && found->second.number == answer.request;
}

} // namespace cg
