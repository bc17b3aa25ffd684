// cgctl modules: how each check module answers, and which one never does.
//
// A module that is registered and does not run costs every card 300 seconds, and then all its checks are for
// nothing; this shows it before the first card comes.
#include "base/failure.h"
#include "base/text.h"
#include "base/times.h"
#include "cards/module_figures.h"
#include "cards/past.h"
#include "command_line/verbs.h"
#include "forms/forms.h"

namespace cg
{

namespace
{

struct ModulesOptions {
    std::optional<std::string> since{};
    std::string modules = default_module_folder;
    std::string color = "auto";
    std::string history{};
};

int run_modules(const Session &session, const ModulesOptions &options)
{
    const Time now = std::chrono::system_clock::now();
    std::optional<Time> since;
    if (options.since) {
        since = parse_moment(*options.since, "--since", now);
    }
    const ModuleFolder folder = read_module_folder(options.modules);
    if (!folder.readable) {
        throw Failure(failed, "the modules' folder " + visible(options.modules) +
                                  " cannot be read: " + folder.problem);
    }
    const history::Reader reader(history::path_or_default(options.history));
    const Heartbeat heartbeat{reader.alive_at()};
    form_of(session).modules(
        {session, terminal_of(session, options.color)},
        {now, reader.path(), options.modules, heartbeat.at, since, module_figures(folder, reader, since)});
    if (const std::string text = not_recorded_text(heartbeat, now); !text.empty()) {
        session.notice(text);
    }
    return done;
}

} // namespace

void add_modules(CLI::App &app, Session &session)
{
    CLI::App *verb =
        add_verb(app, session, "modules",
                 "Show how each check module answers, and which never did, from the recorder's file",
                 "  cgctl modules\n"
                 "  cgctl modules --since 7d --json");
    auto options = std::make_shared<ModulesOptions>();
    verb->add_option("--since", options->since,
                     "Count from then on: 90s, 30m, 2h or 7d ago, or 2026-11-20[T14:02][Z]")
        ->type_name("TIME");
    verb->add_option("--modules", options->modules, "The folder of the modules")->type_name("FOLDER");
    add_view_options(*verb, options->color, options->history);
    set_action(*verb, session, options, run_modules);
}

} // namespace cg
