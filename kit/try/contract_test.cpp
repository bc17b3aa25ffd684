// What a check module must conform to, case by case.
//
// A module that does not answer at all is reported once, and the cases that depend on answers are skipped:
// nine more times the time limit would add nothing.
#include "try/contract_test.h"

#include <algorithm>
#include <array>
#include <set>

#include "base/text.h"
#include "base/times.h"
#include "modules/module_folder.h"

namespace cg
{

namespace
{

using State = CaseResult::State;

CaseResult ok(const std::string &found)
{
    return {{}, State::ok, found, {}};
}

CaseResult failure(const std::string &found, const std::string &fix)
{
    return {{}, State::failed, found, fix};
}

CaseResult skipped(const std::string &why)
{
    return {{}, State::skipped, why, {}};
}

class ContractTest
{
public:
    ContractTest(Harness &module, const ContractOptions &options) : module_(module), options_(options) {}

    CaseResult in_time();
    CaseResult once();
    CaseResult right_name();
    CaseResult deny_has_reason();
    CaseResult reason_fits();
    CaseResult two_at_once();
    CaseResult card_leaves();
    CaseResult store_restarts();
    CaseResult asked_again();
    CaseResult ends();
    CaseResult was_away();

    // Starts the module again when the previous case ended it.
    void restart_if_ended();
    [[nodiscard]] bool has_answered() const { return has_answered_; }

private:
    // Writes a request and waits for the answer. Empty, or what went wrong.
    std::string examine(const TestCard &card);
    // The same, and withdraws the request.
    std::string examine_and_withdraw(const TestCard &card);
    std::string no_answer_text(const TestCard &card);
    // ok() unless there is a problem.
    [[nodiscard]] CaseResult result_of(const std::string &problem, const std::string &found,
                                       const std::string &fix);
    [[nodiscard]] const TestCard &card(std::size_t number) const
    {
        return options_.cards[number % options_.cards.size()];
    }

    Harness &module_;
    const ContractOptions &options_;
    bool has_answered_ = false;
    double slowest_s_ = 0;
};

void ContractTest::restart_if_ended()
{
    if (!module_.is_running()) {
        module_.start_module();
    }
}

std::string ContractTest::no_answer_text(const TestCard &card)
{
    const std::string what = "no answer for " + card.position.text() + " (" + visible(card.name) + ", type " +
                             std::to_string(card.type) + ')';
    if (!module_.is_running()) {
        return what + ": the module has ended: " + module_.exit_text();
    }
    return what + " within " + seconds_text(options_.limit) + module_.printed_text();
}

std::string ContractTest::examine(const TestCard &card)
{
    module_.plug(card);
    module_.request(card);
    auto answer = module_.wait_for_answer(card, options_.limit);
    if (!answer && !has_answered_ && module_.is_running()) {
        // Perhaps it was not subscribed yet. That it must find standing requests is a case of its own.
        module_.request(card);
        answer = module_.wait_for_answer(card, options_.limit);
    }
    if (!answer) {
        return no_answer_text(card);
    }
    has_answered_ = true;
    slowest_s_ = std::max(slowest_s_, answer->took_s);
    return {};
}

std::string ContractTest::examine_and_withdraw(const TestCard &card)
{
    std::string problem = examine(card);
    module_.withdraw(card);
    return problem;
}

CaseResult ContractTest::result_of(const std::string &problem, const std::string &found,
                                   const std::string &fix)
{
    if (problem.empty()) {
        return ok(found);
    }
    return failure(problem,
                   module_.is_running() ? fix : "find out why the module ended; it must survive this");
}

CaseResult ContractTest::in_time()
{
    std::string problem;
    for (const TestCard &card : options_.cards) {
        problem = examine(card);
        if (!problem.empty()) {
            break;
        }
    }
    if (!problem.empty() && !module_.is_running()) {
        return failure(problem, "let the command run until SIGTERM; VX_MOM_ENDPOINT says where the store is");
    }
    return result_of(
        problem,
        std::to_string(options_.cards.size()) + " cards, the slowest in " +
            seconds_text(Harness::Span(slowest_s_)),
        "answer every request, new and standing; the daemon admits a card without answer after " +
            std::to_string(check_timeout.count()) + " s. More time: --timeout");
}

// The requests of the previous case still stand, as they do while the daemon waits for other modules.
CaseResult ContractTest::once()
{
    module_.receive_for(options_.quiet);
    for (const TestCard &card : options_.cards) {
        module_.withdraw(card);
    }
    const int64_t excess = module_.excess_answers();
    if (excess <= 0) {
        return ok("one answer to each request");
    }
    return failure(std::to_string(excess) + (excess == 1 ? " answer" : " answers") + " too many",
                   "answer each request once; one that the store delivers again is a new request only when "
                   "it was written again");
}

CaseResult ContractTest::right_name()
{
    std::set<std::string> names;
    for (const ReceivedAnswer &answer : module_.answers()) {
        names.insert(answer.module);
    }
    const std::string wanted = options_.name.empty() ? *names.begin() : options_.name;
    for (const std::string &name : names) {
        if (name != wanted) {
            return failure("an answer of " + in_quotes(name) + " instead of " + in_quotes(wanted),
                           "answer under the name of the module's entry in the folder, or give it with "
                           "--name");
        }
    }
    if (const std::string mistake = module_name_mistake(wanted); !mistake.empty()) {
        return failure(mistake, "use a name that the daemon does not cut");
    }
    return ok(in_quotes(wanted));
}

CaseResult ContractTest::deny_has_reason()
{
    std::size_t denials = 0;
    for (const ReceivedAnswer &answer : module_.answers()) {
        denials += answer.verdict.pass ? 0 : 1;
        if (!answer.verdict.pass && answer.verdict.reason.empty()) {
            return failure(answer.position.text() + " was denied without a reason",
                           "give a reason that says what is wrong and what would be right; it is all that "
                           "the operator reads");
        }
    }
    if (denials == 0) {
        return skipped("no card was denied; give one that is, as in --card 'type=300 slot=4'");
    }
    return ok(std::to_string(denials) + (denials == 1 ? " denial" : " denials"));
}

CaseResult ContractTest::reason_fits()
{
    std::size_t longest = 0;
    for (const ReceivedAnswer &answer : module_.answers()) {
        longest = std::max(longest, answer.verdict.reason.size());
    }
    const std::string found = "the longest reason has " + std::to_string(longest) + " bytes";
    if (longest > longest_reason) {
        return failure(found, "use at most " + std::to_string(longest_reason) +
                                  " bytes; the daemon cuts the rest, if need be within a character");
    }
    return ok(found);
}

CaseResult ContractTest::two_at_once()
{
    const TestCard &first = card(0);
    const TestCard &second = card(1);
    for (const TestCard *one : {&first, &second}) {
        module_.plug(*one);
        module_.request(*one);
    }
    std::string problem;
    for (const TestCard *one : {&first, &second}) {
        if (problem.empty() && !module_.wait_for_answer(*one, options_.limit)) {
            problem = no_answer_text(*one);
        }
        module_.withdraw(*one);
    }
    return result_of(problem, first.position.text() + " and " + second.position.text(),
                     "keep a list of open requests, not one; a chassis that powers up has all cards checked "
                     "at the same time");
}

// An answer that was under way when the request was deleted is not an error. A module that examines one card
// after the other, even those whose requests are gone, gets to the second after the first.
CaseResult ContractTest::card_leaves()
{
    const TestCard &gone = card(0);
    module_.plug(gone);
    module_.request(gone);
    module_.receive_for(options_.quiet / 2); // the module may miss a request that is deleted immediately
    module_.withdraw(gone);
    module_.pull(gone);
    module_.receive_for(options_.quiet / 2);
    const auto before = static_cast<std::ptrdiff_t>(module_.answers().size());
    const std::string problem = examine_and_withdraw(card(1));
    module_.receive_for(options_.quiet + Harness::Span(slowest_s_));
    const auto &answers = module_.answers();
    if (problem.empty() && std::any_of(answers.begin() + before, answers.end(), [&](const auto &answer) {
            return answer.position == gone.position;
        })) {
        return failure(gone.position.text() + " was answered long after its request was gone",
                       "drop the examination when the request is deleted, and check that the request still "
                       "stands before answering: a late answer counts as the reply to the slot's next "
                       "request");
    }
    return result_of(problem, "the next card was answered",
                     "continue with other cards when a request is deleted");
}

CaseResult ContractTest::store_restarts()
{
    module_.restart_store();
    return result_of(examine_and_withdraw(card(0)), "the next card was answered",
                     "reconnect when the connection is lost, subscribe, and list the standing requests");
}

CaseResult ContractTest::asked_again()
{
    const TestCard &same = card(0);
    std::string problem;
    module_.plug(same);
    for (int turn = 0; turn < 2 && problem.empty(); turn++) {
        module_.request(same);
        if (!module_.wait_for_answer(same, options_.limit)) {
            problem = turn == 0 ? no_answer_text(same) : "the repeated request: " + no_answer_text(same);
        }
    }
    module_.withdraw(same);
    return result_of(problem, "both requests were answered",
                     "answer each time the request is written, even with the same content: a restarted "
                     "daemon has forgotten the first answer");
}

CaseResult ContractTest::ends()
{
    const bool is_clean = module_.stop_module(options_.limit);
    return is_clean ? ok(module_.exit_text())
                    : failure(module_.exit_text(), "exit with status 0 soon after SIGTERM");
}

CaseResult ContractTest::was_away()
{
    (void)module_.stop_module(options_.limit);
    const TestCard &waiting = card(1);
    module_.plug(waiting);
    module_.request(waiting);
    module_.start_module();
    const std::string problem =
        module_.wait_for_answer(waiting, options_.limit) ? "" : no_answer_text(waiting);
    module_.withdraw(waiting);
    return result_of(problem, "a request that stood at the start was answered",
                     "list the standing requests at the start, after subscribing");
}

struct Case {
    const char *name;
    CaseResult (ContractTest::*attempt)();
    bool needs_answers;
};

// In this order: the first ones inspect the answers of the very first.
constexpr std::array cases{
    Case{"answers-in-time", &ContractTest::in_time, false},
    Case{"answers-once", &ContractTest::once, true},
    Case{"right-name", &ContractTest::right_name, true},
    Case{"deny-has-reason", &ContractTest::deny_has_reason, true},
    Case{"reason-fits", &ContractTest::reason_fits, true},
    Case{"two-at-once", &ContractTest::two_at_once, true},
    Case{"card-leaves", &ContractTest::card_leaves, true},
    Case{"asked-again", &ContractTest::asked_again, true},
    Case{"store-restarts", &ContractTest::store_restarts, true},
    Case{"was-away", &ContractTest::was_away, true},
    Case{"ends", &ContractTest::ends, false},
};

} // namespace

bool run_contract_test(Harness &module, const ContractOptions &options,
                       const std::function<void(const CaseResult &)> &report)
{
    ContractTest test(module, options);
    module.start_module();
    bool all_passed = true;
    for (const Case &one : cases) {
        const bool is_first = &one == &cases.front();
        const auto began = Harness::Clock::now();
        CaseResult result;
        if (one.needs_answers && !test.has_answered()) {
            result = skipped("depends on answers-in-time");
        } else if (!is_first && !test.has_answered() && !module.is_running()) {
            result = skipped("the module has ended already");
        } else {
            if (!is_first) {
                test.restart_if_ended();
            }
            result = (test.*one.attempt)();
        }
        result.name = one.name;
        result.took_s = Harness::Span(Harness::Clock::now() - began).count();
        all_passed = all_passed && result.state != State::failed;
        report(result);
    }
    return all_passed;
}

} // namespace cg
