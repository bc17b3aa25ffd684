// The folder whose entries name the check modules, read as the daemon reads it.
#ifndef MODULES_MODULE_FOLDER_H
#define MODULES_MODULE_FOLDER_H

#include <cstddef>
#include <string>
#include <vector>

#include "modules/module_name.h"

namespace cg
{

inline constexpr const char *default_module_folder = "/etc/app_cg/deny_check";

struct ModuleEntry {
    std::string file_name;
    std::string name; // what the daemon calls the module: the file's name, cut
};

struct ModuleFolder {
    bool readable = false;
    bool missing = false; // not readable, because it does not exist
    std::string problem;  // why not
    // All entries, in the order in which the daemon reads them; it registers the first `most_modules`.
    std::vector<ModuleEntry> entries;
};

ModuleFolder read_module_folder(const std::string &path);

// The names of the modules that the daemon registers.
std::vector<std::string> asked_of(const ModuleFolder &folder);

// What is wrong with a module's name, and what would be right; empty when it is one that the daemon can know.
std::string module_name_mistake(const std::string &name);

} // namespace cg

#endif
