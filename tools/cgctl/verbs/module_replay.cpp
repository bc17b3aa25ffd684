// cgctl module replay: recorded cards against another build of a module.
#include <memory>

#include "admission/card_text.h"
#include "base/failure.h"
#include "base/text.h"
#include "command_line/module_command.h"
#include "command_line/verbs.h"
#include "history/reader.h"
#include "modules/module_folder.h"
#include "try/replay.h"

namespace cg
{

namespace
{

struct ReplayArguments {
    std::string from;
    std::string name;
    double timeout_s = 10;
};

std::string verdict_text(const kit::Answer &verdict)
{
    return verdict.pass ? "PASS" : "DENY" + (verdict.reason.empty() ? "" : ": " + visible(verdict.reason));
}

std::string line_of(const ReplayedCard &card)
{
    const history::Decision &decision = card.decision;
    const std::string then = card.then ? verdict_text(*card.then) : card.was_silent ? "silent" : "no answer";
    return decision.card.position.text() + ' ' + visible(decision.card.name) + ", type " +
           std::to_string(decision.card.config_dev_type) + ", " + utc_text(decision.decided_at) + ": then " +
           then + " (" + admission::text_of(decision.outcome) + "), now " +
           (card.now ? verdict_text(*card.now) : "silent");
}

Json json_of(const std::optional<kit::Answer> &verdict)
{
    return verdict ? Json{{"verdict", verdict->pass ? "PASS" : "DENY"}, {"reason", verdict->reason}}
                   : Json(nullptr);
}

Json json_of(const ReplayedCard &card)
{
    const history::Decision &decision = card.decision;
    return {{"card", decision.card.position.text()},
            {"name", decision.card.name},
            {"serial", decision.card.serial},
            {"type", decision.card.config_dev_type},
            {"decided_at", utc_text(decision.decided_at)},
            {"outcome", admission::word_of(decision.outcome)},
            {"decider", decision.decider},
            {"then", json_of(card.then)},
            {"was_silent", card.was_silent},
            {"now", json_of(card.now)},
            {"differs", card.differs()}};
}

void print(const Session &session, const ReplaySummary &summary, const Json &cards)
{
    if (session.json) {
        session.line(dump(Json{{"version", 1},
                               {"module", summary.name},
                               {"replayed", summary.replayed},
                               {"answered_then", summary.answered_then},
                               {"differing", summary.differing},
                               {"cards", cards}}));
    } else {
        session.line(std::to_string(summary.replayed) + (summary.replayed == 1 ? " card, " : " cards, ") +
                     std::to_string(summary.differing) + " with another verdict; " + summary.name +
                     " had answered for " + std::to_string(summary.answered_then));
    }
}

std::vector<history::Decision> recorded(const std::string &file)
{
    try {
        return history::Reader(history::path_or_default(file)).decisions();
    } catch (const history::Error &problem) {
        throw Failure(failed, problem.what());
    }
}

int replay_module(const Session &session, const ReplayArguments &arguments)
{
    if (!arguments.name.empty()) {
        require_module_name(arguments.name);
    }
    require_command(session, "cgctl module replay --from history.sqlite -- ./my-module");
    const ReplayOptions options{arguments.name, Harness::Span(arguments.timeout_s)};
    const std::vector<history::Decision> decisions = recorded(arguments.from);
    Harness module(session.command);
    Json cards = Json::array();
    const ReplaySummary summary = replay(module, decisions, options, [&](const ReplayedCard &card) {
        if (session.json) {
            cards.push_back(json_of(card));
        } else if (card.differs()) {
            session.line(line_of(card));
        }
    });
    print(session, summary, cards);
    return summary.differing == 0 ? done : failed;
}

} // namespace

void add_module_replay(CLI::App &module, Session &session)
{
    CLI::App *verb =
        add_verb(module, session, "replay",
                 "Run recorded cards against another build of a check module, on a private store, and show\n"
                 "where its verdict differs from the recorded one. Exit status 0: nowhere",
                 "  cgctl module replay --from /var/lib/cg_recorder/history.sqlite -- ./my-module types\n"
                 "  cgctl module replay --from history.sqlite --name types --json -- ./my-module types");
    auto arguments = std::make_shared<ReplayArguments>();
    verb->add_option("--from", arguments->from, "The recorder's file")->required()->type_name("FILE");
    verb->add_option("--name", arguments->name,
                     "The name that the module had then and has now (default: that of its first answer)")
        ->type_name("MODULE");
    add_time_limit(*verb, arguments->timeout_s, "Seconds within which an answer must come (default 10)");
    set_action(*verb, session, arguments, replay_module);
}

} // namespace cg
