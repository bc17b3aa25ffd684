// How a module is made.
#include "core/opening.h"

#include <mutex>
#include <stdexcept>
#include <utility>

#include "core/records.h"
#include "loop/settings.h"
#include "modules/module_folder.h"
#include "store/connection/configuration.h"

namespace kit
{

namespace
{

// Settings are read without locks, and mistakes in them go to one listener of the process.
class SettingsLock
{
public:
    explicit SettingsLock(const Log &log) : lock_(mutex())
    {
        platform::on_setting_mistake([log](const std::string &text) { log(APP_CG_KIT_WARNING, text); });
    }
    ~SettingsLock() { platform::on_setting_mistake({}); }
    SettingsLock(const SettingsLock &) = delete;
    SettingsLock &operator=(const SettingsLock &) = delete;

private:
    static std::mutex &mutex()
    {
        static std::mutex one;
        return one;
    }

    std::lock_guard<std::mutex> lock_;
};

std::optional<store::Place> place_of(const Wanted &wanted)
{
    if (!wanted.endpoint) {
        return std::nullopt;
    }
    return store::Place{*wanted.endpoint, store::configured_credentials(database).value};
}

std::string problem_of(const std::optional<store::Place> &place)
{
    if (!place) {
        return store::configuration_problem({database});
    }
    std::string problem;
    (void)store::place_of(place->endpoint, place->credential_file, problem);
    return problem;
}

int lock_name(const Wanted &wanted, const Log &log, NameLock &lock)
{
    const std::string warning = cg::folder_problem(wanted.module_folder, wanted.name);
    if (!warning.empty()) {
        log(APP_CG_KIT_WARNING, warning);
    }
    std::string why;
    switch (lock.acquire(wanted.lock_folder, wanted.name,
                         wanted.endpoint.value_or(store::configured_endpoint(database).value), why)) {
    case NameLock::Outcome::taken:
        log(APP_CG_KIT_ERROR, why);
        return APP_CG_KIT_E_TAKEN;
    case NameLock::Outcome::unknown:
        log(APP_CG_KIT_WARNING, why);
        break;
    case NameLock::Outcome::held:
        break;
    }
    return 0;
}

} // namespace

int open(const Wanted &wanted, Module::Hooks hooks, const Log &log, Opened &opened)
{
    if (const std::string problem = cg::name_problem(wanted.name); !problem.empty()) {
        log(APP_CG_KIT_ERROR, problem);
        return APP_CG_KIT_E_NAME;
    }
    const SettingsLock settings(log);
    const std::optional<store::Place> place = place_of(wanted);
    if (const std::string problem = problem_of(place); !problem.empty()) {
        log(APP_CG_KIT_ERROR, problem);
        return APP_CG_KIT_E_SETTINGS;
    }
    if (const int error = lock_name(wanted, log, opened.lock); error != 0) {
        return error;
    }
    try {
        opened.module = std::make_unique<Module>(wanted.name, place, std::move(hooks), log);
    } catch (const std::runtime_error &refused) {
        log(APP_CG_KIT_ERROR, std::string("cannot be set up: ") + refused.what());
        return APP_CG_KIT_E_SYSTEM;
    }
    return 0;
}

} // namespace kit
