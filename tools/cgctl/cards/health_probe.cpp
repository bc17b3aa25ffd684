// Asks the daemon and the recorder each second how they are.
#include "cards/health_probe.h"

#include <csignal>
#include <utility>

namespace cg
{

namespace
{

constexpr std::chrono::seconds interval{1};

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

HealthProbe::HealthProbe(platform::Loop &loop, std::string socket, std::string history, Listener report)
    : loop_(loop), socket_(std::move(socket)), history_(std::move(history)), listener_(std::move(report)),
      finished_(loop.context(), [this] { finish(); })
{
    next_ = loop_.after(std::chrono::milliseconds{0}, [this] { start(); });
}

HealthProbe::~HealthProbe()
{
    if (thread_.joinable()) {
        thread_.join();
    }
}

void HealthProbe::start()
{
    const SignalsBlocked blocked;
    thread_ = std::thread([this] {
        report_ = {ask_for_modules(socket_), read_heartbeat(history_)};
        finished_.call();
    });
}

void HealthProbe::finish()
{
    thread_.join();
    next_ = loop_.after(interval, [this] { start(); });
    listener_(std::exchange(report_, {}));
}

} // namespace cg
