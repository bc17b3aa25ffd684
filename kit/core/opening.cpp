// How a module comes into being.
#include "core/opening.h"
#include "modules/module_name.h"

#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "loop/settings.h"
#include "store/connection/configuration.h"

namespace kit
{

namespace
{

constexpr const char *endpoint_setting = "VX_MOM_ENDPOINT";
constexpr const char *usual_endpoint = "tcp:127.0.0.1:6379";

int check_settings(const Wanted &wanted, const Log &log)
{
    if (wanted.endpoint && setenv(endpoint_setting, wanted.endpoint->c_str(), 1) != 0) {
        return APP_CG_KIT_E_SYSTEM;
    }
    const std::string problem = vx_mom::configuration_problem();
    if (!problem.empty()) {
        log(APP_CG_KIT_ERROR, problem);
        return APP_CG_KIT_E_SETTINGS;
    }
    return 0;
}

int take_name(const Wanted &wanted, const Log &log, NameLock &lock)
{
    const std::string warning = cg::folder_problem(wanted.module_folder, wanted.name);
    if (!warning.empty()) {
        log(APP_CG_KIT_WARNING, warning);
    }
    std::string why;
    const NameLock::Outcome outcome =
        lock.take(wanted.lock_folder, wanted.name, platform::setting(endpoint_setting, usual_endpoint), why);
    if (outcome == NameLock::Outcome::taken) {
        log(APP_CG_KIT_ERROR, why);
        return APP_CG_KIT_E_TAKEN;
    }
    if (outcome == NameLock::Outcome::cannot_tell) {
        log(APP_CG_KIT_WARNING, why);
    }
    return 0;
}

} // namespace

int open(const Wanted &wanted, Module::Hooks hooks, const Log &log, Opened &opened)
{
    const std::string problem = cg::name_problem(wanted.name);
    if (!problem.empty()) {
        log(APP_CG_KIT_ERROR, problem);
        return APP_CG_KIT_E_NAME;
    }
    if (const int error = check_settings(wanted, log); error != 0) {
        return error;
    }
    if (const int error = take_name(wanted, log, opened.lock); error != 0) {
        return error;
    }
    try {
        opened.module = std::make_unique<Module>(wanted.name, std::move(hooks), log);
    } catch (const std::runtime_error &refused) {
        log(APP_CG_KIT_ERROR, refused.what());
        return APP_CG_KIT_E_SYSTEM;
    }
    return 0;
}

} // namespace kit
