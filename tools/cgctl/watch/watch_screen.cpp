// cgctl watch on a terminal: paints the live view and reads keys.
//
// One thread: the platform's loop has no descriptors to wait for, so a short timer of it looks for keys. A
// second thread for them would need locks around the whole view for what nobody can see: a twentieth of a
// second.
#include "watch/watch_screen.h"

#include <unistd.h>

#include <csignal>
#include <memory>
#include <sstream>
#include <utility>

#include "base/failure.h"
#include "cards/live_cards.h"
#include "screen/curses_screen.h"
#include "screen/live_view.h"

namespace cg
{

namespace
{

constexpr int64_t look_for_keys_ms = 50;
constexpr std::chrono::milliseconds redraw_at_least{1000};

Time now()
{
    return std::chrono::system_clock::now();
}

// A terminal that goes away is an end like any other: the loop ends at SIGTERM.
class HangUpEnds
{
public:
    HangUpEnds() : before_(signal(SIGHUP, [](int) { (void)kill(getpid(), SIGTERM); })) {}
    ~HangUpEnds() { (void)signal(SIGHUP, before_); }
    HangUpEnds(const HangUpEnds &) = delete;
    HangUpEnds &operator=(const HangUpEnds &) = delete;

private:
    void (*before_)(int);
};

class ScreenWatch
{
public:
    ScreenWatch(const Session &session, const WatchOptions &options)
        : quiet_{{session.out, messages_}, session.endpoint, session.socket},
          colour_(terminal_of(session, options.color).colour), store_(quiet_),
          cards_(
              quiet_, store_, options.history, [this](const Event &event) { add(event); },
              [this] { changed_ = true; }),
          view_(cards_.events())
    {
    }

    void run()
    {
        const HangUpEnds hang_up;
        screen_ = std::make_unique<CursesScreen>(colour_);
        cards_.live().after(0, [this] { tick(); });
        cards_.live().run();
        screen_.reset();
    }

private:
    void add(const Event &event)
    {
        view_.add(event);
        changed_ = true;
    }

    void tick()
    {
        bool pressed = false;
        for (int32_t key = screen_->key(); key != CursesScreen::no_key; key = screen_->key()) {
            pressed = true;
            if (!view_.press(key)) {
                cards_.live().stop();
                return;
            }
        }
        take_messages();
        const auto at = std::chrono::steady_clock::now();
        const bool resized = screen_->was_resized();
        if (pressed || resized || std::exchange(changed_, false) || at - painted_at_ >= redraw_at_least) {
            screen_->paint(view_.draw(screen_->size(), now()));
            painted_at_ = at;
        }
        cards_.live().after(look_for_keys_ms, [this] { tick(); });
    }

    // What would be written on standard error, and spoil the screen.
    void take_messages()
    {
        constexpr std::string_view name = "cgctl: "; // on this screen nobody else speaks
        const std::string all = messages_.str();
        messages_.str("");
        std::istringstream lines(all);
        for (std::string line; std::getline(lines, line);) {
            view_.add_message(line.substr(line.starts_with(name) ? name.size() : 0), now());
            changed_ = true;
        }
    }

    std::ostringstream messages_;
    Session quiet_;
    bool colour_;
    Store store_;
    LiveCards cards_;
    LiveView view_;
    std::unique_ptr<CursesScreen> screen_;
    bool changed_ = true;
    std::chrono::steady_clock::time_point painted_at_{};
};

} // namespace

int watch_screen(const Session &session, const WatchOptions &options)
{
    ScreenWatch(session, options).run();
    return done;
}

} // namespace cg
