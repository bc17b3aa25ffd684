// How the daemon and the recorder are, asked again and again beside the event loop.
//
// A daemon that hangs answers after seconds or never, and the keys and the store cannot wait for that: a
// thread of its own asks, and touches nothing that anybody else has.
#ifndef CARDS_SURROUNDINGS_H
#define CARDS_SURROUNDINGS_H

#include <future>
#include <optional>
#include <string>

#include "cards/past.h"
#include "daemon/daemon_view.h"

namespace cg
{

// What was heard.
struct Heard {
    DaemonView daemon{}; // without the cards
    LastSign recorder{};
};

class Surroundings
{
public:
    // `socket` is the daemon's, empty for the usual one; `history` as read_past() has it.
    Surroundings(std::string socket, std::string history)
        : socket_(std::move(socket)), history_(std::move(history))
    {
    }
    // Waits for an answer that is under way: seconds at most, and only when the daemon hangs.
    ~Surroundings() = default;
    Surroundings(const Surroundings &) = delete;
    Surroundings &operator=(const Surroundings &) = delete;

    // Begins to ask, unless that is under way. Throws std::system_error when there is no thread for it.
    void ask();
    // What was heard since the last call, once it is there.
    std::optional<Heard> take();

private:
    std::string socket_;
    std::string history_;
    std::future<Heard> answer_;
};

} // namespace cg

#endif
