// Which modules the daemon asks, as far as the recorder can tell.
//
// To the daemon a folder that it cannot open is one without modules. But the recorder has other rights, and
// may see another folder: of one that it cannot read it concludes nothing, and goes on with the list that was
// read last.
#include <utility>

#include "base/text.h"
#include "modules/module_folder.h"
#include "recorder.h"

namespace recorder
{

void Recorder::read_modules()
{
    const cg::ModuleFolder folder = cg::read_module_folder(settings_.modules);
    tell_of_folder(folder.problem, folder.missing);
    if (!folder.readable && !folder.missing) {
        return;
    }
    const std::vector<std::string> modules = cg::asked_of(folder);
    know_modules(modules);
    if (folder.readable && noted_modules_ != modules) {
        noted_modules_ = modules;
        write([modules](history::Writer &writer) { writer.set_modules_note(modules); });
    }
}

void Recorder::take_up_modules(const std::vector<std::string> &modules)
{
    noted_modules_ = modules;
    know_modules(modules);
    std::string names;
    for (const std::string &module : modules) {
        names += (names.empty() ? "" : ", ") + cg::visible(module);
    }
    tell_("the modules are taken from the history: " + (names.empty() ? "none" : names));
}

void Recorder::know_modules(std::vector<std::string> modules)
{
    if (modules_ == modules) {
        return;
    }
    modules_ = modules;
    told_of_contradiction_ = false;
    metrics_.set_modules(modules);
    tracker_.set_modules(std::move(modules));
}

void Recorder::tell_of_folder(const std::string &problem, bool missing)
{
    if (problem == folder_problem_) {
        return;
    }
    folder_problem_ = problem;
    const char *consequence =
        modules_ ? "the list that was read last stands" : "which modules are registered is not known";
    tell_("the modules' folder " + settings_.modules +
          (problem.empty() ? " is read again"
           : missing       ? " is missing: no module is registered, unless the daemon sees another folder"
                           : " cannot be read: " + problem + "; " + consequence));
}

void Recorder::tell_of_contradiction()
{
    if (modules_ && !tracker_.knows_modules() && !std::exchange(told_of_contradiction_, true)) {
        tell_("the modules' folder " + settings_.modules +
              " has no modules, but the daemon asks some; which are registered is not known");
    }
}

} // namespace recorder
