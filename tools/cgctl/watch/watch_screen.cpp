// cgctl watch on a terminal: paints the live view and reads keys.
#include "watch/watch_screen.h"

#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <memory>
#include <sstream>
#include <utility>

#include "base/failure.h"
#include "cards/live_cards.h"
#include "loop/loop.h"
#include "screen/curses_screen.h"
#include "screen/live_view.h"

namespace cg
{

namespace
{

// Times left to answer are shown in seconds.
constexpr std::chrono::milliseconds repaint_every{1000};
// Changes come in bursts, and a terminal may be slow.
constexpr std::chrono::milliseconds gather_changes{20};

Time now()
{
    return std::chrono::system_clock::now();
}

// Wakes the loop at a signal of the terminal: another size, or that it has gone. There is one at a time.
class TerminalSignals
{
public:
    // After the screen was made, whose own handler notes the size. `handle` is called on the loop's thread.
    TerminalSignals(platform::Loop &loop, std::function<void()> handle)
        : wake_(loop.context(), std::move(handle))
    {
        current = this;
        struct sigaction action {
        };
        action.sa_handler = [](int number) { current->note(number); };
        sigaction(SIGWINCH, &action, &size_before_);
        sigaction(SIGHUP, &action, &end_before_);
    }
    ~TerminalSignals()
    {
        sigaction(SIGWINCH, &size_before_, nullptr);
        sigaction(SIGHUP, &end_before_, nullptr);
        current = nullptr;
    }
    TerminalSignals(const TerminalSignals &) = delete;
    TerminalSignals &operator=(const TerminalSignals &) = delete;

    [[nodiscard]] bool hung_up() const { return hung_up_ != 0; }

private:
    void note(int number)
    {
        if (number == SIGHUP) {
            hung_up_ = 1;
        } else if (size_before_.sa_handler != SIG_DFL && size_before_.sa_handler != SIG_IGN) {
            size_before_.sa_handler(number);
        }
        wake_.call();
    }

    static TerminalSignals *current; // a handler has no context

    platform::Wake wake_;
    volatile sig_atomic_t hung_up_ = 0;
    struct sigaction size_before_ {
    };
    struct sigaction end_before_ {
    };
};

TerminalSignals *TerminalSignals::current = nullptr;

// Whether nobody is at the other end any more: then the descriptor is readable for ever.
bool is_gone(int terminal)
{
    pollfd state{terminal, POLLIN, 0};
    return poll(&state, 1, 0) > 0 && (state.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

class ScreenWatch
{
public:
    ScreenWatch(const Session &session, const WatchOptions &options)
        : quiet_{{session.out, messages_}, session.endpoint, session.socket},
          colour_(terminal_of(session, options.color).colour), store_(quiet_),
          cards_(
              quiet_, store_, options.history, [this](const Event &event) { add(event); },
              [this] { repaint_soon(); }),
          view_(cards_.events())
    {
    }

    void run()
    {
        screen_ = std::make_unique<CursesScreen>(colour_);
        {
            const TerminalSignals signals(store_.loop(), [this, &signals] { handle(signals); });
            const platform::Watch keys =
                store_.loop().watch(STDIN_FILENO, platform::Watch::Until::readable, [this] { read_keys(); });
            repaint();
            store_.loop().run();
        }
        screen_.reset();
    }

private:
    void add(const Event &event)
    {
        view_.add(event);
        repaint_soon();
    }

    void handle(const TerminalSignals &signals)
    {
        if (signals.hung_up()) {
            store_.loop().stop();
        } else {
            read_keys(); // a new size comes as a key
        }
    }

    void read_keys()
    {
        bool pressed = false;
        for (int32_t key = screen_->key(); key != CursesScreen::no_key; key = screen_->key()) {
            pressed = true;
            if (!view_.press(key)) {
                store_.loop().stop();
                return;
            }
        }
        if (screen_->was_resized() || pressed) {
            repaint();
        } else if (is_gone(STDIN_FILENO)) {
            store_.loop().stop();
        }
    }

    void repaint_soon()
    {
        if (screen_ && !std::exchange(is_changed_, true)) {
            next_paint_ = store_.loop().after(gather_changes, [this] { repaint(); });
        }
    }

    void repaint()
    {
        add_messages();
        is_changed_ = false;
        screen_->paint(view_.draw(screen_->size(), now()));
        next_paint_ = store_.loop().after(repaint_every, [this] { repaint(); });
    }

    // What would be written on standard error, and spoil the screen.
    void add_messages()
    {
        constexpr std::string_view name = "cgctl: "; // on this screen nobody else speaks
        const std::string all = messages_.str();
        messages_.str("");
        std::istringstream lines(all);
        for (std::string line; std::getline(lines, line);) {
            view_.add_message(line.substr(line.starts_with(name) ? name.size() : 0), now());
        }
    }

    std::ostringstream messages_;
    Session quiet_;
    bool colour_;
    Store store_;
    LiveCards cards_;
    LiveView view_;
    std::unique_ptr<CursesScreen> screen_;
    platform::Timer next_paint_;
    bool is_changed_ = false; // since it was painted
};

} // namespace

int watch_screen(const Session &session, const WatchOptions &options)
{
    ScreenWatch(session, options).run();
    return done;
}

} // namespace cg
