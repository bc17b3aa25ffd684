// How a module is made: what is refused, and what is only warned of, before it serves.
//
// Apart from the C functions, so that a command of this project is refused what anybody's module is refused,
// in the same words.
#ifndef KIT_OPENING_H
#define KIT_OPENING_H

#include <memory>
#include <optional>
#include <string>

#include "core/log.h"
#include "core/module.h"
#include "core/name_lock.h"

namespace kit
{

inline constexpr const char *default_lock_folder = "/run/lock";

// What a module is to be; see app_cg_kit_options.
struct Wanted {
    std::string name;
    std::optional<std::string> endpoint{}; // nothing: as the settings have it
    std::string module_folder;             // empty: not read
    std::string lock_folder;               // empty: no lock
};

// A module, and the lock on its name.
struct Opened {
    NameLock lock{};
    std::unique_ptr<Module> module{};
};

// Makes a module. Returns 0 or a negative enum app_cg_kit_error, of which the log has the details; then
// `opened` is not usable. Throws std::bad_alloc, and std::exception when the system refuses something.
int open(const Wanted &wanted, Module::Hooks hooks, const Log &log, Opened &opened);

} // namespace kit

#endif
