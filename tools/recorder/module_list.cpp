// Which modules the daemon asks, as far as the recorder can determine.
#include "module_list.h"

#include <utility>

#include "base/text.h"
#include "modules/module_folder.h"

namespace recorder
{

ModuleList::ModuleList(std::string folder, Log log) : folder_(std::move(folder)), log_(std::move(log)) {}

void ModuleList::read()
{
    const cg::ModuleFolder folder = cg::read_module_folder(folder_);
    was_read_ = folder.readable;
    report(folder.problem, folder.missing);
    const std::vector<std::string> names = cg::asked_of(folder);
    if ((folder.readable || folder.missing) && (!list_ || list_->names != names)) {
        list_ = {names, ""};
        reported_contradiction_ = false;
    }
}

void ModuleList::read_for(const std::string &daemon, bool started)
{
    if (list_ && list_->daemon == daemon) {
        return;
    }
    read();
    if (list_) {
        list_->daemon = was_read_ && (started || !list_->daemon.empty()) ? daemon : "";
    }
}

void ModuleList::adopt(const history::Modules &remembered, const std::string &daemon)
{
    const bool is_certain = !remembered.daemon.empty();
    const bool is_its = is_certain && (daemon.empty() || daemon == remembered.daemon);
    if (list_ && list_->names == remembered.names) {
        if (is_certain && list_->daemon.empty()) {
            list_->daemon = is_its ? remembered.daemon : daemon;
        }
        return;
    }
    if (list_ && !is_its) {
        return;
    }
    log_("the list of modules is the one in the history: " +
         (remembered.names.empty() ? "none" : cg::visible(cg::joined(remembered.names))));
    list_ = {remembered.names, is_its ? remembered.daemon : ""};
    reported_contradiction_ = false;
}

void ModuleList::report(const std::string &problem, bool missing)
{
    if (std::exchange(problem_, problem) == problem) {
        return;
    }
    const char *consequence =
        list_ ? "the list read last is still used" : "which modules are registered is not known";
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
