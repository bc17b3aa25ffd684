// Where a debug shell and its client meet.
#ifndef SHELL_PATH_H
#define SHELL_PATH_H

#include <string>

namespace ssat
{

// Returns the path of the named module's socket: the setting SSAT_SOCKET, else /run/MODULE.ssat.
std::string socket_path(const std::string &module);

} // namespace ssat

#endif
