// How each check module answers, from the folder that registers them and the recorder's file.
#ifndef CARDS_MODULE_FIGURES_H
#define CARDS_MODULE_FIGURES_H

#include <optional>
#include <string>
#include <vector>

#include "history/reader.h"
#include "modules/module_folder.h"

namespace cg
{

// One module.
struct ModuleFigures {
    history::ModuleStatistics numbers{};
    bool registered = false;
    bool asked = false; // some check waited for it, at any time

    [[nodiscard]] bool never_answered() const { return registered && !numbers.last; }
    // The first checks that wait for it still stand: it may be about to answer.
    [[nodiscard]] bool may_yet_answer() const
    {
        return never_answered() && numbers.silences_since == 0 && numbers.waited_for > 0;
    }
    // It answered once, and all checks that waited for it since then ended by the time.
    [[nodiscard]] bool fell_silent() const
    {
        return registered && numbers.last && numbers.silences_since > 0;
    }
    [[nodiscard]] bool is_stranger() const { return !registered && numbers.last; }
};

// All modules.
struct ModuleTable {
    admission::Time now{};
    std::string file{};
    std::string folder{};
    std::optional<admission::Time> recorded_until{};
    std::optional<admission::Time> since{}; // the figures count from then on
    std::vector<ModuleFigures> modules{};   // by name
};

// The figures of each module that is registered or was heard of, by name. Throws history::Error.
std::vector<ModuleFigures> module_figures(const ModuleFolder &folder, const history::Reader &reader,
                                          std::optional<admission::Time> since);

} // namespace cg

#endif
