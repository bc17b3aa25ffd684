// A lock on a module's name: whether another process has it.
#ifndef KIT_NAME_LOCK_H
#define KIT_NAME_LOCK_H

#include <string>

#include <sys/types.h>

#include "loop/descriptor.h"

namespace kit
{

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
