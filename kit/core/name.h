// A module's name: whether the daemon can know it, and whether somebody else has it.
#ifndef KIT_NAME_H
#define KIT_NAME_H

#include <string>

#include <sys/types.h>

#include "builtin/descriptor.h"

namespace kit
{

// Returns one line that says what is wrong with the name and what would be right; empty when nothing is.
std::string name_problem(const std::string &name);

// Returns one line that says why the daemon does not ask this module, as far as the folder of the check
// modules tells, and what to do; empty when it does, or when `folder` is empty.
std::string folder_problem(const std::string &folder, const std::string &name);

// Keeps a name on one store from being used twice on this host by one account, as long as it lives. The
// kernel releases it however the process ends; a regular end removes its file too.
class NameLock
{
public:
    enum class Outcome { held, taken, cannot_tell };

    NameLock() = default;
    ~NameLock();
    NameLock(const NameLock &) = delete;
    NameLock &operator=(const NameLock &) = delete;

    // An empty folder: none is wanted, and the outcome is `held`.
    // `why` receives a line when the outcome is another one.
    Outcome take(const std::string &folder, const std::string &name, const std::string &endpoint,
                 std::string &why);

private:
    Outcome lock_file(std::string &why);

    std::string name_;
    std::string path_;
    platform::Descriptor file_;
    pid_t owner_ = 0; // the process that took it
};

} // namespace kit

#endif
