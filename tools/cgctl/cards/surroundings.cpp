// How the daemon and the recorder are.
#include "cards/surroundings.h"

#include <csignal>

namespace cg
{

namespace
{

// Signals are for the event loop's thread; one that is started meanwhile inherits that they are not for it.
class SignalsBlocked
{
public:
    SignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked &) = delete;
    SignalsBlocked &operator=(const SignalsBlocked &) = delete;

private:
    sigset_t before_{};
};

} // namespace

void Surroundings::ask()
{
    if (answer_.valid()) {
        return;
    }
    const SignalsBlocked blocked;
    answer_ = std::async(std::launch::async, [socket = socket_, history = history_] {
        return Heard{ask_for_modules(socket), read_last_sign(history)};
    });
}

std::optional<Heard> Surroundings::take()
{
    if (!answer_.valid() || answer_.wait_for(std::chrono::seconds{0}) != std::future_status::ready) {
        return std::nullopt;
    }
    return answer_.get();
}

} // namespace cg
