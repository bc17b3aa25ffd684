// cgctl watch in a pipe: an event a line.
#include "watch/watch_events.h"

#include "base/failure.h"
#include "cards/live_cards.h"
#include "forms/forms.h"

namespace cg
{

namespace
{

class EventWatch
{
public:
    EventWatch(const Session &session, Store &store, const WatchOptions &options)
        : page_{session, terminal_of(session, options.color)}, left_(options.count),
          cards_(
              session, store, options.history, [this](const Event &event) { print(event); },
              [this] { form_of(page_.session).listening(page_); })
    {
    }

    void run() { cards_.live().run(); }

private:
    void print(const Event &event)
    {
        form_of(page_.session).event(page_, event);
        if (left_ > 0 && --left_ == 0) {
            cards_.live().stop();
        }
    }

    Page page_;
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
