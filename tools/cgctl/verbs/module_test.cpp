// cgctl module test: whether a check module behaves, before it meets a daemon.
#include <memory>

#include "base/failure.h"
#include "base/text.h"
#include "modules/module_folder.h"
#include "try/module_cases.h"
#include "verbs/module_verbs.h"

namespace cg
{

namespace
{

using State = CaseResult::State;

struct TestOptions {
    std::string name;
    std::vector<std::string> cards;
    double timeout_s = 10;
};

constexpr double longest_quiet_s = 0.5;

const char *state_word(State state)
{
    switch (state) {
    case State::ok:
        return "ok";
    case State::failed:
        return "failed";
    default:
        return "skipped";
    }
}

std::string line_of(const CaseResult &result)
{
    std::string word = result.state == State::ok ? "ok" : result.state == State::failed ? "FAIL" : "skip";
    std::string name = result.name;
    word.resize(5, ' ');
    name.resize(16, ' ');
    return word + name + visible(result.found) + (result.mend.empty() ? "" : "; mend: " + result.mend);
}

Json json_of(const CaseResult &result)
{
    return {{"name", result.name},
            {"state", state_word(result.state)},
            {"found", result.found},
            {"mend", result.mend},
            {"took_s", result.took_s}};
}

// Two at least: some cases want two at a time.
std::vector<TrialCard> cards_of(const TestOptions &options)
{
    std::vector<TrialCard> cards;
    for (const std::string &text : options.cards) {
        cards.push_back(parse_trial_card(text));
    }
    if (cards.empty()) {
        for (const char *text : {"slot=1 type=200 nodeid=101 serial=00e0fc01", "slot=2 type=230 nodeid=102",
                                 "slot=3 type=300 nodeid=103 node-type=sub_lc"}) {
            cards.push_back(parse_trial_card(text));
        }
    }
    if (cards.size() == 1) {
        cards.push_back(cards.front());
        cards.back().position.slotid++;
    }
    for (std::size_t i = 1; i < cards.size(); i++) {
        for (std::size_t j = 0; j < i; j++) {
            if (cards[i].position == cards[j].position) {
                throw Failure(wrong_usage, "--card: two cards at " + cards[i].position.text() +
                                               "; give each a slot of its own, as in slot=4");
            }
        }
    }
    return cards;
}

int test_module(const Session &session, const TestOptions &options)
{
    if (const std::string mistake = options.name.empty() ? "" : module_name_mistake(options.name);
        !mistake.empty()) {
        throw Failure(wrong_usage, mistake);
    }
    require_command(session, "cgctl module test -- ./my-module");
    const std::chrono::duration<double> limit(options.timeout_s);
    const CaseOptions settings{options.name, cards_of(options), limit,
                               std::min(limit, std::chrono::duration<double>(longest_quiet_s))};
    Json results = Json::array();
    Rehearsal rehearsal(session, session.command);
    const bool passed = try_module(rehearsal, settings, [&](const CaseResult &result) {
        if (session.json) {
            results.push_back(json_of(result));
        } else {
            session.line(line_of(result));
        }
    });
    if (session.json) {
        session.line(dump(Json{{"version", 1}, {"passed", passed}, {"cases", results}}));
    }
    return passed ? done : failed;
}

} // namespace

void add_module_test(CLI::App &module, Session &session)
{
    CLI::App *verb =
        add_verb(module, session, "test",
                 "Try a check module on a store of its own, and say what is wrong with it.\n"
                 "The command is started as it will be in service, with VX_MOM_ENDPOINT set; this\n"
                 "program plays the daemon. Nothing of an installation is touched",
                 "  cgctl module test -- ./power_budget power power.table\n"
                 "  cgctl module test --name types --card 'type=300 slot=4' -- ./my-module types");
    auto options = std::make_shared<TestOptions>();
    verb->add_option("--name", options->name,
                     "The name that answers must carry (default: that of the first one)")
        ->type_name("MODULE");
    verb->add_option("--card", options->cards,
                     "A card to try, as in 'name=fan 3 type=230 slot=3'; may be given several times")
        ->type_name("TEXT")
        ->allow_extra_args(false);
    add_time_limit(*verb, options->timeout_s, "Seconds within which an answer must come (default 10)");
    set_action(*verb, session, options, test_module);
}

} // namespace cg
