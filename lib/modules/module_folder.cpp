// The folder of the check modules.
//
// readdir() and not the standard library: the daemon registers entries of any kind in readdir()'s order, so
// that only the same call shows which ones it registers.
#include "modules/module_folder.h"

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

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

std::string folder_problem(const std::string &folder, const std::string &name)
{
    if (folder.empty()) {
        return {};
    }
    const ModuleFolder read = read_module_folder(folder);
    const auto found = std::find_if(read.entries.begin(), read.entries.end(),
                                    [&](const ModuleEntry &entry) { return entry.name == name; });
    if (found == read.entries.end()) {
        return folder + " has no entry " + name + (read.readable ? "" : " (" + read.problem + ')') +
               ": the daemon does not ask this module. Make one, as with `touch " + folder + '/' + name +
               "`, and restart the daemon";
    }
    if (found - read.entries.begin() >= static_cast<std::ptrdiff_t>(most_modules)) {
        return folder + " has the entry " + name + " behind " + std::to_string(most_modules) +
               " others, and the daemon asks no more; remove one of them, and restart the daemon";
    }
    return {};
}

} // namespace cg
