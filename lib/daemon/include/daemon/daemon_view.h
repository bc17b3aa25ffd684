// What the running daemon says of its cards through its debug shell.
//
// Whom a card waits for stands in no record: the daemon keeps it as bits in its own table. Its dumps are text
// for people, but their form is an interface, so they are read here, for those who have no history to ask.
#ifndef DAEMON_DAEMON_VIEW_H
#define DAEMON_DAEMON_VIEW_H

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "records/position.h"

namespace cg
{

struct DaemonCard {
    std::vector<std::string> waiting_for{}; // whose bits are set, in the order of the bits
    bool names_known = true; // false: the card came when there were other modules, so the bits have no names
    std::string reason{};    // of its last denial
};

struct DaemonView {
    std::string problem{};  // why it said nothing; empty when it did
    bool is_silent = false; // nobody answers at its socket; false also when we have no right to that
    std::vector<std::string> modules{};
    std::map<Position, DaemonCard> cards{};
};

// The names in the lines "wait mod[0], name[m1]" of dump_check_module.
std::vector<std::string> modules_in(const std::string &dump);

// The cards in the lines of dump_node. A reason is a module's text and may imitate a line: of a position that
// is named twice nothing is believed.
std::map<Position, DaemonCard> daemon_cards_in(std::string_view dump,
                                               const std::vector<std::string> &modules);

// Asks the daemon at a socket (empty: the usual one). What keeps it from answering is in `problem`; nothing
// is thrown for that.
DaemonView ask_daemon(const std::string &socket);

// The same for its modules alone. For another thread, too.
DaemonView ask_for_modules(const std::string &socket);

// What it means that the daemon is silent.
std::string silence_text(const DaemonView &daemon);

} // namespace cg

#endif
