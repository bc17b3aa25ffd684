// cgctl watch: which of its forms is meant.
//
// With record types it is records. Otherwise a terminal gets the live view, and everything else an event a
// line, so that the same words do the right thing by hand and in a pipe.
#include <unistd.h>

#include "base/failure.h"
#include "base/terminal.h"
#include "cards/live_cards.h"
#include "command_line/verbs.h"
#include "forms/forms.h"
#include "watch/watch_records.h"
#include "watch/watch_screen.h"

namespace cg
{

namespace
{

struct Arguments {
    WatchOptions options{};
    bool records = false;
    bool lines = false;
};

// An event a line, until so many were printed or the loop is stopped.
int watch_events(const Session &session, const WatchOptions &options)
{
    const Page page{session, terminal_of(session, options.color)};
    const Form &form = form_of(session);
    int64_t left = options.count; // 0: no end
    Store store(session);
    const LiveCards cards(
        session, store, options.history,
        [&](const Event &event) {
            if (store.loop().is_stopping()) {
                return; // one change can be several events
            }
            form.event(page, event);
            if (--left == 0) {
                store.loop().stop();
            }
        },
        [&] { form.listening(page); });
    store.loop().run();
    return done;
}

int watch(const Session &session, const Arguments &arguments)
{
    const WatchOptions &options = arguments.options;
    const Terminal terminal = terminal_of(session, options.color);
    if (arguments.records || options.existing || !options.types.empty()) {
        return watch_records(session, options);
    }
    const bool on_screen = terminal.is_one && isatty(STDIN_FILENO) == 1;
    if (on_screen && !session.json && !arguments.lines && options.count == 0) {
        return watch_screen(session, options);
    }
    return watch_events(session, options);
}

} // namespace

void add_watch(CLI::App &app, Session &session)
{
    CLI::App *verb = add_verb(app, session, "watch",
                              "Watch the cards: a live view on a terminal, else a line for each event; with "
                              "record types, every change of those records",
                              "  cgctl watch\n"
                              "  cgctl watch --lines\n"
                              "  cgctl watch --json | jq 'select(.event == \"decision\")'\n"
                              "  cgctl watch card_info app_cg_card_check_info --existing\n"
                              "  cgctl watch app_cg_mom_deny_check_result --json --count 1");
    auto arguments = std::make_shared<Arguments>();
    verb->add_option("TYPE", arguments->options.types, "Record types, each in its usual database");
    verb->add_flag("--records", arguments->records, "Every change of records of all types");
    verb->add_flag("--lines", arguments->lines, "A line for each event, also on a terminal");
    verb->add_option("--count", arguments->options.count, "End after so many lines")
        ->type_name("N")
        ->check(CLI::Range(int64_t{1}, int64_t{INT32_MAX}));
    verb->add_flag("--existing", arguments->options.existing, "Print the records that there are, too");
    add_view_options(*verb, arguments->options.color, arguments->options.history);
    set_action(*verb, session, arguments, watch);
}

} // namespace cg
