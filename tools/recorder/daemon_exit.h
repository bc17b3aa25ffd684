// What the service log says of the daemon's exits.
#ifndef RECORDER_DAEMON_EXIT_H
#define RECORDER_DAEMON_EXIT_H

#include "service_log.h"

namespace recorder
{

// Whether a daemon ended among the lines, or by what follows the one noted: two starts in a row are a daemon
// whose exit could not be noted.
bool has_exit(const std::string &noted, const std::vector<ServiceLine> &lines);

// When a daemon ended last, as far as the line noted and those behind it say; nothing when they do not. One
// whose exit could not be noted ended before the next start.
std::optional<history::Time> last_exit(const std::string &noted, const std::vector<ServiceLine> &lines);

} // namespace recorder

#endif
