// The C functions: they check arguments, and no exception crosses them.
#include "app_cg_kit.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <string>

#include "core/check.h"
#include "core/opening.h"
#include "modules/contract.h"

struct app_cg_kit_module {
    kit::Opened parts;
    bool handle_signals = true;
};

namespace
{

const char *level_name(int level)
{
    switch (level) {
    case APP_CG_KIT_ERROR:
        return "error: ";
    case APP_CG_KIT_WARNING:
        return "warning: ";
    default:
        return "";
    }
}

// One write for a line, so that lines of several threads stay whole.
void print(const std::string &name, int level, const std::string &text)
{
    const std::string line = name + ": " + level_name(level) + text + '\n';
    (void)std::fwrite(line.data(), 1, line.size(), stderr);
}

// An exception of the user's log function stops here: it is called where nothing may throw.
kit::Log log_of(const app_cg_kit_options_t &options)
{
    const std::string name = options.name;
    if (options.log == nullptr) {
        return {[name](int level, const std::string &text) { print(name, level, text); }, options.log_level};
    }
    return {[name, log = options.log, arg = options.arg](int level, const std::string &text) {
                try {
                    log(arg, level, text.c_str());
                } catch (...) {
                    print(name, level, text + " (an exception left the function log)");
                }
            },
            options.log_level};
}

// The user's function, with nothing of C++ leaving it.
template <typename Action>
void call_user(const kit::Log &log, const char *what, const Action &action) noexcept
{
    const auto report = [&](const char *problem) {
        try {
            log(APP_CG_KIT_ERROR, std::string("an exception left the function ") + what + ": " + problem);
        } catch (...) { // memory ran out
        }
    };
    try {
        action();
    } catch (const std::exception &problem) {
        report(problem.what());
    } catch (...) {
        report("not a std::exception");
    }
}

kit::Module::Hooks hooks_of(const app_cg_kit_options_t &options, const kit::Log &log)
{
    kit::Module::Hooks hooks;
    void *arg = options.arg;
    hooks.check = [log, arg, check = options.check](const app_cg_kit_card_t &card, app_cg_kit_check &handle) {
        int verdict = APP_CG_KIT_AGAIN;
        call_user(log, "check", [&] { verdict = check(arg, &card, &handle); });
        return verdict;
    };
    if (options.withdrawn != nullptr) {
        hooks.withdrawn = [log, arg, withdrawn = options.withdrawn](const app_cg_kit_card_t &card,
                                                                    app_cg_kit_check &handle) {
            call_user(log, "withdrawn", [&] { withdrawn(arg, &card, &handle); });
        };
    }
    if (options.card != nullptr) {
        hooks.card = [log, arg, card_changed = options.card](const app_cg_kit_card_t &card, bool present) {
            call_user(log, "card", [&] { card_changed(arg, &card, present ? 1 : 0); });
        };
    }
    return hooks;
}

// The caller's structure may be of an earlier version and shorter than ours.
app_cg_kit_options_t completed(const app_cg_kit_options_t &given)
{
    app_cg_kit_options_t options;
    app_cg_kit_options_init(&options);
    std::memcpy(&options, &given, std::min(given.size, sizeof options));
    return options;
}

int open_module(const app_cg_kit_options_t &options, app_cg_kit_t **kit)
{
    const kit::Log log = log_of(options);
    kit::Wanted wanted{options.name, std::nullopt, options.module_folder, options.lock_folder};
    if (options.endpoint != nullptr) {
        wanted.endpoint = options.endpoint;
    }
    auto opened = std::make_unique<app_cg_kit_module>();
    if (const int error = kit::open(wanted, hooks_of(options, log), log, opened->parts); error != 0) {
        return error;
    }
    opened->handle_signals = (options.flags & APP_CG_KIT_NO_SIGNALS) == 0;
    *kit = opened.release(); // the caller's, until app_cg_kit_close()
    return 0;
}

// Runs what may throw; what is thrown becomes a result.
template <typename Action>
int guarded(const Action &action) noexcept
{
    try {
        return action();
    } catch (const std::bad_alloc &) {
        return APP_CG_KIT_E_MEMORY;
    } catch (...) {
        return APP_CG_KIT_E_SYSTEM;
    }
}

} // namespace

void app_cg_kit_options_init_size(app_cg_kit_options_t *options, size_t size)
{
    if (options == nullptr || size < sizeof options->size) {
        return;
    }
    app_cg_kit_options_t defaults{};
    defaults.size = size;
    defaults.log_level = APP_CG_KIT_INFO;
    defaults.module_folder = cg::default_module_folder;
    defaults.lock_folder = kit::default_lock_folder;
    std::memset(static_cast<void *>(options), 0, size);
    std::memcpy(static_cast<void *>(options), &defaults, std::min(size, sizeof defaults));
}

int app_cg_kit_open(const app_cg_kit_options_t *given, app_cg_kit_t **kit)
{
    if (given == nullptr || kit == nullptr || given->size == 0) {
        return APP_CG_KIT_E_ARGUMENT;
    }
    const app_cg_kit_options_t options = completed(*given);
    if (options.name == nullptr || options.check == nullptr || options.module_folder == nullptr ||
        options.lock_folder == nullptr) {
        return APP_CG_KIT_E_ARGUMENT;
    }
    return guarded([&] { return open_module(options, kit); });
}

int app_cg_kit_run(app_cg_kit_t *kit)
{
    if (kit == nullptr) {
        return APP_CG_KIT_E_ARGUMENT;
    }
    return guarded([&] { return kit->parts.module->run(kit->handle_signals); });
}

int app_cg_kit_stop(app_cg_kit_t *kit)
{
    if (kit == nullptr) {
        return APP_CG_KIT_E_ARGUMENT;
    }
    kit->parts.module->stop();
    return 0;
}

void app_cg_kit_close(app_cg_kit_t *kit)
{
    const std::unique_ptr<app_cg_kit_module> owned{kit};
}

int app_cg_kit_answer(app_cg_kit_check_t *check, int verdict, const char *reason)
{
    if (check == nullptr || (verdict != APP_CG_KIT_PASS && verdict != APP_CG_KIT_DENY)) {
        return APP_CG_KIT_E_ARGUMENT;
    }
    return guarded(
        [&] { return check->answer(verdict == APP_CG_KIT_PASS, reason == nullptr ? "" : reason); });
}

int app_cg_kit_deny(app_cg_kit_check_t *check, const char *reason)
{
    if (check != nullptr && reason != nullptr) {
        (void)guarded([&] { return check->note(reason), 0; });
    }
    return APP_CG_KIT_DENY;
}

app_cg_kit_check_t *app_cg_kit_hold(app_cg_kit_check_t *check)
{
    if (check != nullptr) {
        (void)guarded([&] { return check->hold(), 0; });
    }
    return check;
}

void app_cg_kit_release(app_cg_kit_check_t *check)
{
    if (check != nullptr) {
        (void)guarded([&] { return check->release(), 0; });
    }
}

int app_cg_kit_is_open(app_cg_kit_check_t *check)
{
    return check != nullptr && guarded([&] { return check->is_open() ? 1 : 0; }) == 1 ? 1 : 0;
}

const char *app_cg_kit_error_text(int error)
{
    switch (error) {
    case 0:
        return "done";
    case APP_CG_KIT_E_ARGUMENT:
        return "an argument is missing or out of its range";
    case APP_CG_KIT_E_NAME:
        static_assert(cg::longest_module_name == 15);
        return "not a module's name; 1 to 15 bytes that are possible for a file";
    case APP_CG_KIT_E_TAKEN:
        return "another running module has this name";
    case APP_CG_KIT_E_SETTINGS:
        return "the settings of the store cannot be used";
    case APP_CG_KIT_E_MEMORY:
        return "memory ran out";
    case APP_CG_KIT_E_SYSTEM:
        return "the operating system refused";
    case APP_CG_KIT_E_ANSWERED:
        return "the card has a verdict already; this one is dropped";
    case APP_CG_KIT_E_WITHDRAWN:
        return "the request was withdrawn; the verdict is dropped";
    case APP_CG_KIT_E_STOPPED:
        return "the module has ended";
    default:
        return "unknown error";
    }
}

const char *app_cg_kit_version(void)
{
    return APP_CG_KIT_VERSION;
}
