// A lock on a module's name: whether another module has it.
#ifndef KIT_NAME_LOCK_H
#define KIT_NAME_LOCK_H

#include <string>

#include <sys/types.h>

#include "loop/descriptor.h"

namespace kit
{

// Keeps a name on one store from being used twice on this host by one account, as long as the object lives.
// The kernel releases the lock however the process ends; a regular end removes its file too.
class NameLock
{
public:
    enum class Outcome {
        held,    // ours until this object dies
        taken,   // another module has it
        unknown, // it cannot be found out whether another module has it
    };

    NameLock() = default;
    ~NameLock();
    NameLock(const NameLock &) = delete;
    NameLock &operator=(const NameLock &) = delete;

    // folder    of the lock files; empty: no lock is wanted, and the outcome is `held`.
    // endpoint  of the store; modules on different ones may have the same name.
    // why       receives one line unless the outcome is `held`.
    Outcome acquire(const std::string &folder, const std::string &name, const std::string &endpoint,
                    std::string &why);

private:
    Outcome lock_file(std::string &why);

    std::string name_;
    std::string path_;
    platform::Descriptor file_;
    pid_t owner_ = 0; // the process that locked it
};

} // namespace kit

#endif
