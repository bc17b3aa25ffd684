// cgctl module test: whether a check module conforms, before it meets a daemon.
#include <algorithm>
#include <memory>

#include "base/failure.h"
#include "base/json.h"
#include "base/text.h"
#include "command_line/module_command.h"
#include "command_line/verbs.h"
#include "try/contract_test.h"

namespace cg
{

namespace
{

using State = CaseResult::State;

struct TestArguments {
    std::string name;
    std::vector<std::string> cards;
    double timeout_s = 10;
};

constexpr Harness::Span longest_quiet{0.5};

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
    return word + name + visible(result.found) + (result.fix.empty() ? "" : "; fix: " + result.fix);
}

Json json_of(const CaseResult &result)
{
    return {{"name", result.name},
            {"state", state_word(result.state)},
            {"found", result.found},
            {"fix", result.fix},
            {"took_s", result.took_s}};
}

int test_module(const Session &session, const TestArguments &arguments)
{
    if (!arguments.name.empty()) {
        require_module_name(arguments.name);
    }
    require_command(session, "cgctl module test -- ./my-module");
    const Harness::Span limit(arguments.timeout_s);
    const ContractOptions options{arguments.name, parse_test_cards(arguments.cards), limit,
                                  std::min(limit, longest_quiet)};
    Json results = Json::array();
    Harness module(session.command);
    const bool passed = run_contract_test(module, options, [&](const CaseResult &result) {
        if (session.json) {
            results.push_back(json_of(result));
        } else {
            session.line(line_of(result));
        }
    });
    if (session.json) {
        session.line(dump(Json{{"version", 2}, {"passed", passed}, {"cases", results}}));
    }
    return passed ? done : failed;
}

} // namespace

void add_module_test(CLI::App &module, Session &session)
{
    CLI::App *verb =
        add_verb(module, session, "test",
                 "Test a check module on a private store, and report what is wrong with it.\n"
                 "The command is started as it will be in service, with VX_MOM_ENDPOINT set; this\n"
                 "program plays the daemon. An installation is not touched",
                 "  cgctl module test -- ./power_budget power power.table\n"
                 "  cgctl module test --name types --card 'type=300 slot=4' -- ./my-module types");
    auto arguments = std::make_shared<TestArguments>();
    verb->add_option("--name", arguments->name,
                     "The name that answers must carry (default: that of the first one)")
        ->type_name("MODULE");
    verb->add_option("--card", arguments->cards,
                     "A card to test with, as in 'name=fan 3 type=230 slot=3'; may be given several times")
        ->type_name("TEXT")
        ->allow_extra_args(false);
    add_time_limit(*verb, arguments->timeout_s, "Seconds within which an answer must come (default 10)");
    set_action(*verb, session, arguments, test_module);
}

} // namespace cg
