// Where the history is.
#include "history/history.h"

#include <cstdlib>

namespace history
{

std::string path_or_default(const std::string &given)
{
    if (!given.empty()) {
        return given;
    }
    const char *set = std::getenv(path_setting);
    return set == nullptr || *set == '\0' ? default_path : set;
}

} // namespace history
