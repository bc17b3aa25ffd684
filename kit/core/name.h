// A module's name: whether the daemon can know it, and whether somebody else has it.
#ifndef KIT_NAME_H
#define KIT_NAME_H

#include <optional>
#include <string>

#include "builtin/descriptor.h"

namespace kit
{

// Returns one line that says what is wrong with the name and what would be right; empty when nothing is.
std::string name_problem(const std::string &name);

// Returns one line that says that the folder of the check modules has no such entry, and what to do; empty
// when it has, or when `folder` is empty.
std::string folder_problem(const std::string &folder, const std::string &name);

// Keeps a name on one store from being used twice on this host, as long as it lives. The kernel releases it
// however the process ends.
class NameLock
{
public:
    enum class Outcome { held, taken, cannot_tell };

    // An empty folder: none is wanted, and the outcome is `held`.
    // `why` receives a line when the outcome is another one.
    Outcome take(const std::string &folder, const std::string &name, const std::string &endpoint,
                 std::string &why);

private:
    platform::Descriptor file_;
};

} // namespace kit

#endif
