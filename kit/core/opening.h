// How a module comes into being: what is refused, and what is only warned of, before it serves.
//
// Apart from the C functions, for whoever makes a module within this project: a command of ours is refused
// what a module of somebody else's is refused, in the same words.
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

// What a module is to be; as app_cg_kit_options has it.
struct Wanted {
    std::string name;
    std::optional<std::string> endpoint{}; // nothing: the setting decides
    std::string module_folder;             // empty: not looked at
    std::string lock_folder;               // empty: no lock
};

// A module, and the lock on its name.
struct Opened {
    NameLock lock{};
    std::unique_ptr<Module> module{};
};

// Makes a module. Returns 0 or a negative enum app_cg_kit_error; then the log has told why, and `opened` is
// of no use. Throws std::bad_alloc, and std::exception when the system refuses something.
int open(const Wanted &wanted, Module::Hooks hooks, const Log &log, Opened &opened);

} // namespace kit

#endif
