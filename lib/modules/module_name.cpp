// A module's name.
#include "modules/module_name.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace cg
{

std::string name_problem(const std::string &name)
{
    const std::string right =
        "; a module has the name of an entry of the folder of check modules, 1 to 15 bytes";
    if (name.empty()) {
        return "the module has no name" + right;
    }
    if (name.size() > longest_module_name) {
        return "the name " + name + " has " + std::to_string(name.size()) +
               " bytes; the daemon would cut it to " + name.substr(0, longest_module_name) +
               " and wait for answers of that name" + right;
    }
    const auto is_control = [](char byte) { return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7f; };
    if (name == "." || name == ".." || name.find('/') != std::string::npos ||
        std::any_of(name.begin(), name.end(), is_control)) {
        return "a file cannot have the module's name, or it has control characters" + right;
    }
    return {};
}

// The daemon reads the first entries in the folder's own order, and cuts their names.
std::string folder_problem(const std::string &folder, const std::string &name)
{
    if (folder.empty()) {
        return {};
    }
    std::error_code error;
    std::size_t place = 0;
    bool is_there = false;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end && !is_there;
         entry.increment(error)) {
        ++place;
        is_there = entry->path().filename().string().substr(0, longest_module_name) == name;
    }
    if (is_there && place <= most_modules) {
        return {};
    }
    if (is_there) {
        return folder + " has the entry " + name + " behind " + std::to_string(most_modules) +
               " others, and the daemon asks no more; remove one of them, and restart the daemon";
    }
    return folder + " has no entry " + name + (error ? " (" + error.message() + ')' : "") +
           ": the daemon does not ask this module. Make one, as with `touch " + folder + '/' + name +
           "`, and restart the daemon";
}

} // namespace cg
