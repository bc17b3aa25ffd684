// The folder whose entries name the check modules, read as the daemon reads it.
#ifndef MODULES_MODULE_FOLDER_H
#define MODULES_MODULE_FOLDER_H

#include <cstddef>
#include <string>
#include <vector>

#include "modules/module_name.h"

namespace cg
{

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

// Reads the folder at a path. What keeps it from being read is in `problem`; the entries before that stay.
ModuleFolder read_module_folder(const std::string &path);

// The names of the modules that the daemon registers.
std::vector<std::string> asked_of(const ModuleFolder &folder);

// Returns one line that says why the daemon does not ask this module, as far as the folder of the check
// modules tells, and what to do; empty when it does, or when `folder` is empty.
std::string folder_problem(const std::string &folder, const std::string &name);

} // namespace cg

#endif
