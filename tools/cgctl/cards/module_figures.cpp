// How each check module answers.
#include "cards/module_figures.h"

#include <map>
#include <utility>

namespace cg
{

std::vector<ModuleFigures> module_figures(const ModuleFolder &folder, const history::Reader &reader,
                                          std::optional<admission::Time> since)
{
    std::map<std::string, ModuleFigures> modules;
    for (history::ModuleStatistics &numbers : reader.module_statistics(since)) {
        modules[numbers.module].numbers = std::move(numbers);
    }
    for (const std::string &name : asked_of(folder)) {
        modules[name].numbers.module = name;
        modules[name].registered = true;
    }
    for (const history::ModuleStatistics &ever : reader.module_statistics({})) {
        if (const auto found = modules.find(ever.module); found != modules.end()) {
            found->second.asked = ever.silences > 0 || ever.waited_for > 0 || ever.last;
        }
    }
    std::vector<ModuleFigures> all;
    all.reserve(modules.size());
    for (auto &[name, figures] : modules) {
        all.push_back(std::move(figures));
    }
    return all;
}

} // namespace cg
