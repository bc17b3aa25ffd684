// The folder of the check modules.
//
// readdir() and not the standard library: the daemon registers entries of any kind in readdir()'s order, so
// that only the same call shows which ones it registers.
#include "modules/module_folder.h"

#include <dirent.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "base/text.h"

namespace cg
{

namespace
{

struct CloseFolder {
    void operator()(DIR *folder) const noexcept { (void)closedir(folder); }
};

} // namespace

ModuleFolder read_module_folder(const std::string &path)
{
    ModuleFolder result;
    const std::unique_ptr<DIR, CloseFolder> folder(opendir(path.c_str()));
    if (folder == nullptr) {
        result.missing = errno == ENOENT;
        result.problem = std::strerror(errno);
        return result;
    }
    errno = 0;
    // No other thread has this stream.
    for (const dirent *entry = readdir(folder.get()); entry != nullptr; entry = readdir(folder.get())) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            result.entries.push_back({name, name.substr(0, longest_module_name)});
        }
    }
    result.readable = errno == 0;
    result.problem = result.readable ? "" : std::strerror(errno);
    return result;
}

std::vector<std::string> asked_of(const ModuleFolder &folder)
{
    std::vector<std::string> names;
    for (const ModuleEntry &module : folder.entries) {
        if (names.size() < most_modules) {
            names.push_back(module.name);
        }
    }
    return names;
}

std::string module_name_mistake(const std::string &name)
{
    if (!name_problem(name).empty() || !is_utf8(name) || visible(name) != name) {
        return in_quotes(name) + " is not a module name; 1 to 15 characters, the name of an entry of " +
               default_module_folder;
    }
    return "";
}

} // namespace cg
