// Which modules the daemon asks, as far as the recorder can determine.
#include "module_list.h"

#include <utility>

#include "base/text.h"
#include "modules/module_folder.h"

namespace recorder
{

ModuleList::ModuleList(std::string folder, Log log) : folder_(std::move(folder)), log_(std::move(log)) {}

bool ModuleList::read()
{
    const cg::ModuleFolder folder = cg::read_module_folder(folder_);
    was_read_ = folder.readable;
    report(folder.problem, folder.missing);
    return (folder.readable || folder.missing) && use(cg::asked_of(folder));
}

bool ModuleList::adopt(const Names &names)
{
    if (names_) {
        return false;
    }
    log_("the list of modules is the one in the history: " +
         (names.empty() ? "none" : cg::visible(cg::joined(names))));
    return use(names);
}

bool ModuleList::use(Names names)
{
    if (names_ == names) {
        return false;
    }
    names_ = std::move(names);
    reported_contradiction_ = false;
    return true;
}

void ModuleList::report(const std::string &problem, bool missing)
{
    if (std::exchange(problem_, problem) == problem) {
        return;
    }
    const char *consequence =
        names_ ? "the list that was read last stands" : "which modules are registered is not known";
    log_("the modules' folder " + folder_ +
         (problem.empty() ? " can be read again"
          : missing       ? " is missing: no module is registered, unless the daemon sees another folder"
                          : " cannot be read: " + problem + "; " + consequence));
}

void ModuleList::report_contradiction()
{
    if (!std::exchange(reported_contradiction_, true)) {
        log_("the modules' folder " + folder_ +
             " has no modules, but the daemon asks some; which are registered is not known");
    }
}

} // namespace recorder
