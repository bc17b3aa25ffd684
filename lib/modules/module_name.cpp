// A module's name.
#include "modules/module_name.h"

#include <algorithm>

#include "base/text.h"

namespace cg
{

std::string name_problem(const std::string &name)
{
    const std::string right = "; a module has the name of an entry of the folder of check modules, 1 to " +
                              std::to_string(longest_module_name) + " bytes";
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

std::string module_name_mistake(const std::string &name)
{
    if (!name_problem(name).empty() || !is_utf8(name) || visible(name) != name) {
        return in_quotes(name) + " is not a module name; 1 to " + std::to_string(longest_module_name) +
               " characters, the name of an entry of " + default_module_folder;
    }
    return "";
}

} // namespace cg
