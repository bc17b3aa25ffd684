// cgctl module replay: what another build of a module would have said to the cards that were.
//
// The cards come in the order in which they were decided and stay plugged, as far as the history tells: until
// another one comes at the position, or the one there was denied or went. So a module that keeps account of
// all cards sees about the chassis that the first one saw.
#include <map>
#include <memory>

#include "admission/card_text.h"
#include "base/failure.h"
#include "base/text.h"
#include "history/reader.h"
#include "modules/module_folder.h"
#include "try/rehearsal.h"
#include "verbs/module_verbs.h"

namespace cg
{

namespace
{

using history::Decision;
using history::Outcome;

constexpr std::size_t patience_with_silence = 3; // cards

struct ReplayOptions {
    std::string from;
    std::string name;
    double timeout_s = 10;
};

// A verdict, then or now.
struct Said {
    bool pass = true;
    std::string reason{};
};

struct Compared {
    const Decision &decision;
    std::optional<Said> then; // nothing: the module was not asked or did not answer
    bool was_silent = false;
    std::optional<Said> now; // nothing: no answer in time
    // What the verdict is held against: its own of then, else whether the card was admitted. Nothing when
    // others denied the card before this module spoke.
    [[nodiscard]] std::optional<bool> expected() const
    {
        if (then) {
            return then->pass;
        }
        return decision.admitted == true ? std::optional(true) : std::nullopt;
    }
    [[nodiscard]] bool differs() const { return !now || (expected() && *expected() != now->pass); }
};

bool was_checked(const Decision &decision)
{
    return decision.outcome == Outcome::passed || decision.outcome == Outcome::silence ||
           decision.outcome == Outcome::denied;
}

TrialCard trial_card(const Decision &decision)
{
    TrialCard card;
    card.position = decision.card.position;
    card.type = decision.card.config_dev_type;
    card.node_type = std::to_string(decision.card.node_type);
    card.node_id = decision.card.nodeid;
    card.name = decision.card.name;
    card.serial = decision.card.serial;
    return card;
}

std::string verdict_text(const Said &said)
{
    return said.pass ? "PASS" : "DENY" + (said.reason.empty() ? "" : ": " + visible(said.reason));
}

std::string line_of(const Compared &compared)
{
    const Decision &decision = compared.decision;
    std::string line = decision.card.position.text() + ' ' + visible(decision.card.name) + ", type " +
                       std::to_string(decision.card.config_dev_type) + ", " + utc_text(decision.decided_at) +
                       ": then ";
    line += compared.then ? verdict_text(*compared.then) : compared.was_silent ? "silent" : "not heard";
    line += std::string(" (") + admission::text_of(decision.outcome) + "), now ";
    return line + (compared.now ? verdict_text(*compared.now) : "silent");
}

Json said_json(const std::optional<Said> &said)
{
    return said ? Json{{"verdict", said->pass ? "PASS" : "DENY"}, {"reason", said->reason}} : Json(nullptr);
}

Json json_of(const Compared &compared)
{
    const Decision &decision = compared.decision;
    return {{"card", decision.card.position.text()},
            {"name", decision.card.name},
            {"serial", decision.card.serial},
            {"type", decision.card.config_dev_type},
            {"decided_at", utc_text(decision.decided_at)},
            {"outcome", admission::word_of(decision.outcome)},
            {"decider", decision.decider},
            {"then", said_json(compared.then)},
            {"was_silent", compared.was_silent},
            {"now", said_json(compared.now)},
            {"differs", compared.differs()}};
}

class Replay
{
public:
    Replay(Rehearsal &module, std::string name, Rehearsal::Span limit)
        : module_(module), name_(std::move(name)), limit_(limit)
    {
    }

    // Examines one recorded card. Throws Failure when the module does not serve.
    Compared examine(const Decision &decision);
    // It went away without a verdict.
    void note_departure(const Decision &decision);
    // As was asked for, else that of the first answer.
    [[nodiscard]] const std::string &name() const { return name_; }

private:
    void recall(Compared &compared) const;
    void require_service(const TrialCard &card, bool answered);

    Rehearsal &module_;
    std::string name_;
    Rehearsal::Span limit_;
    std::size_t answered_ = 0;
    std::size_t unanswered_ = 0;
};

Compared Replay::examine(const Decision &decision)
{
    const TrialCard card = trial_card(decision);
    module_.plug(card);
    module_.ask(card);
    const auto answer = module_.answer(card, limit_);
    module_.withdraw(card);
    require_service(card, answer.has_value());
    Compared compared{decision, std::nullopt, false, std::nullopt};
    if (answer) {
        if (name_.empty()) {
            name_ = answer->module;
        }
        if (answer->module != name_) {
            throw Failure(failed, "the module answers as " + in_quotes(answer->module) + " and not as " +
                                      in_quotes(name_) + "; give it that name, or say --name");
        }
        compared.now = Said{answer->ret == 0, answer->reason};
    }
    recall(compared);
    if (decision.outcome == Outcome::denied) {
        module_.pull(card); // it was powered off
    }
    return compared;
}

void Replay::note_departure(const Decision &decision)
{
    if (decision.outcome == Outcome::withdrawn && !admission::was_cut_off(decision)) {
        module_.pull(trial_card(decision));
    } else if (decision.card.online) {
        module_.plug(trial_card(decision)); // one of which nobody asked; it is there all the same
    }
}

// A module that does not answer at all costs the time limit for each card.
void Replay::require_service(const TrialCard &card, bool answered)
{
    (answered ? answered_ : unanswered_)++;
    if (!answered && !module_.runs()) {
        throw Failure(failed, "the module ended at " + card.position.text() + ": " + module_.ending());
    }
    if (answered_ == 0 && unanswered_ >= patience_with_silence) {
        throw Failure(failed, "the module answered none of the first " + std::to_string(unanswered_) +
                                  " cards; `cgctl module test` tells more");
    }
}

// What the module said then. The last one counts, as it did for the daemon.
void Replay::recall(Compared &compared) const
{
    for (const history::Answer &answer : compared.decision.answers) {
        if (answer.module == name_ && answer.registered) {
            compared.then = Said{answer.ret == 0, answer.reason};
        }
    }
    for (const std::string &module : compared.decision.silent) {
        compared.was_silent = compared.was_silent || module == name_;
    }
}

std::vector<Decision> recorded(const ReplayOptions &options)
{
    try {
        return history::Reader(history::path_or_default(options.from)).decisions();
    } catch (const history::Error &problem) {
        throw Failure(failed, problem.what());
    }
}

struct Outcomes {
    std::size_t replayed = 0;
    std::size_t differing = 0;
    std::size_t compared = 0; // those in which the module's own answer of then was found
    Json cards = Json::array();
};

Outcomes replay_all(const Session &session, const std::vector<Decision> &decisions, Replay &replay)
{
    Outcomes outcomes;
    for (const Decision &decision : decisions) {
        if (!was_checked(decision)) {
            replay.note_departure(decision);
            continue;
        }
        const Compared compared = replay.examine(decision);
        outcomes.replayed++;
        outcomes.compared += compared.then ? 1 : 0;
        outcomes.differing += compared.differs() ? 1 : 0;
        if (session.json) {
            outcomes.cards.push_back(json_of(compared));
        } else if (compared.differs()) {
            session.line(line_of(compared));
        }
    }
    return outcomes;
}

void tell(const Session &session, const Outcomes &outcomes, const std::string &name)
{
    if (session.json) {
        session.line(dump(Json{{"version", 1},
                               {"module", name},
                               {"replayed", outcomes.replayed},
                               {"answered_then", outcomes.compared},
                               {"differing", outcomes.differing},
                               {"cards", outcomes.cards}}));
    } else {
        session.line(std::to_string(outcomes.replayed) + (outcomes.replayed == 1 ? " card, " : " cards, ") +
                     std::to_string(outcomes.differing) + " with another verdict; " + name +
                     " had answered for " + std::to_string(outcomes.compared));
    }
}

int replay_module(const Session &session, const ReplayOptions &options)
{
    if (const std::string mistake = options.name.empty() ? "" : module_name_mistake(options.name);
        !mistake.empty()) {
        throw Failure(wrong_usage, mistake);
    }
    require_command(session, "cgctl module replay --from history.sqlite -- ./my-module");
    const std::chrono::duration<double> limit(options.timeout_s);
    const std::vector<Decision> decisions = recorded(options);
    Rehearsal rehearsal(session, session.command);
    rehearsal.start_module();
    Replay replay(rehearsal, options.name, limit);
    const Outcomes outcomes = replay_all(session, decisions, replay);
    if (outcomes.replayed == 0) {
        throw Failure(failed, "the history has no check that was decided; nothing can be compared");
    }
    tell(session, outcomes, replay.name());
    return outcomes.differing == 0 ? done : failed;
}

} // namespace

void add_module_replay(CLI::App &module, Session &session)
{
    CLI::App *verb =
        add_verb(module, session, "replay",
                 "Run recorded cards against another build of a check module, on a store of its own, and "
                 "show\nwhere its verdict is another one than then. Exit status 0: nowhere",
                 "  cgctl module replay --from /var/lib/cg_recorder/history.sqlite -- ./my-module types\n"
                 "  cgctl module replay --from history.sqlite --name types --json -- ./my-module types");
    auto options = std::make_shared<ReplayOptions>();
    verb->add_option("--from", options->from, "The recorder's file")->required()->type_name("FILE");
    verb->add_option("--name", options->name,
                     "The name that the module had then and has now (default: that of its first answer)")
        ->type_name("MODULE");
    add_time_limit(*verb, options->timeout_s, "Seconds within which an answer must come (default 10)");
    set_action(*verb, session, options, replay_module);
}

} // namespace cg
