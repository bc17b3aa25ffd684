// cgctl watch in a pipe: an event a line.
#include "watch/watch_events.h"

#include "admission/card_text.h"
#include "base/failure.h"
#include "cards/live_cards.h"

namespace cg
{

namespace
{

class EventWatch
{
public:
    EventWatch(const Session &session, Store &store, const WatchOptions &options)
        : session_(session), terminal_(terminal_of(session, options.color)), left_(options.count),
          cards_(
              session, store, options.history, [this](const Event &event) { print(event); },
              [this] { tell_complete(); })
    {
    }

    void run() { cards_.live().run(); }

private:
    void print(const Event &event)
    {
        if (session_.json) {
            session_.line(dump(event_json(event)));
        } else {
            session_.line(date_text(event.at) + ' ' + toned(terminal_, event.tone, event_text(event)));
        }
        if (left_ > 0 && --left_ == 0) {
            cards_.live().stop();
        }
    }

    // For whoever waits until nothing is missed any more.
    void tell_complete() const
    {
        if (session_.json) {
            session_.line(dump(Json{{"version", 1},
                                    {"time", utc_text(std::chrono::system_clock::now())},
                                    {"event", "listening"}}));
        } else {
            session_.notice("listening");
        }
    }

    const Session &session_;
    Terminal terminal_;
    int64_t left_; // events still to print; 0 for no end
    LiveCards cards_;
};

} // namespace

int watch_events(const Session &session, const WatchOptions &options)
{
    Store store(session);
    EventWatch(session, store, options).run();
    return done;
}

} // namespace cg
