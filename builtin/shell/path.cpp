// Where a debug shell and its client meet; see the header.
#include "shell/path.h"

#include "loop/settings.h"

namespace ssat
{

std::string socket_path(const std::string &module)
{
    return platform::setting("SSAT_SOCKET", "/run/" + module + ".ssat");
}

} // namespace ssat
