// The store server that tests run: the one that PATH has as redis-server, which ./test chooses, else the one
// that the build has found.
#ifndef SUPPORT_STORE_PROGRAM_H
#define SUPPORT_STORE_PROGRAM_H

#include <string>
#include <vector>

namespace cg
{

// Runs the server with these arguments in the place of the calling process. Returns only when that fails:
// there is none.
void become_store_server(const std::vector<std::string> &arguments);

} // namespace cg

#endif
