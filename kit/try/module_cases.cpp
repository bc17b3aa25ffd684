// What a check module must keep to, case by case.
//
// A module that does not answer at all is told once, and what rests on answers is skipped: nine more times
// the time limit would say nothing new.
#include "try/module_cases.h"

#include <algorithm>
#include <array>
#include <set>
#include <sstream>

#include "base/text.h"
#include "modules/module_folder.h"

namespace cg
{

namespace
{

using State = CaseResult::State;

constexpr std::size_t longest_reason = 255;

std::string seconds_text(double seconds)
{
    std::ostringstream text;
    text.precision(2);
    text << std::fixed << seconds << " s";
    return text.str();
}

class Trial
{
public:
    Trial(Rehearsal &rehearsal, const CaseOptions &options) : module_(rehearsal), options_(options) {}

    CaseResult in_time();
    CaseResult once();
    CaseResult right_name();
    CaseResult deny_has_reason();
    CaseResult reason_fits();
    CaseResult two_at_once();
    CaseResult leaves();
    CaseResult store_restarts();
    CaseResult asked_again();
    CaseResult ends();
    CaseResult was_away();

    // Starts the module again when the case before has killed it.
    void revive();
    [[nodiscard]] bool has_answered() const { return has_answered_; }

private:
    // Asks and waits for the answer. Empty, or what went wrong.
    std::string ask(const TrialCard &card);
    // The same, and takes the request back.
    std::string examine(const TrialCard &card);
    std::string missing(const TrialCard &card);
    [[nodiscard]] CaseResult answered(const std::string &problem, const std::string &good,
                                      const std::string &mend);
    [[nodiscard]] const TrialCard &card(std::size_t number) const
    {
        return options_.cards[number % options_.cards.size()];
    }

    Rehearsal &module_;
    const CaseOptions &options_;
    bool has_answered_ = false;
    double slowest_s_ = 0;
};

void Trial::revive()
{
    if (!module_.runs()) {
        module_.start_module();
    }
}

std::string Trial::missing(const TrialCard &card)
{
    const std::string what = "no answer for " + card.position.text() + " (" + visible(card.name) + ", type " +
                             std::to_string(card.type) + ')';
    if (!module_.runs()) {
        return what + ": the module has ended: " + module_.ending();
    }
    return what + " within " + seconds_text(options_.limit.count()) + module_.said();
}

std::string Trial::ask(const TrialCard &card)
{
    module_.plug(card);
    module_.ask(card);
    auto answer = module_.answer(card, options_.limit);
    if (!answer && !has_answered_ && module_.runs()) {
        // Was it not listening yet? That it must find what stands is a case of its own.
        module_.ask(card);
        answer = module_.answer(card, options_.limit);
    }
    std::string problem;
    if (answer) {
        has_answered_ = true;
        slowest_s_ = std::max(slowest_s_, answer->took_s);
    } else {
        problem = missing(card);
    }
    return problem;
}

std::string Trial::examine(const TrialCard &card)
{
    std::string problem = ask(card);
    module_.withdraw(card);
    return problem;
}

CaseResult Trial::answered(const std::string &problem, const std::string &good, const std::string &mend)
{
    if (problem.empty()) {
        return {{}, State::ok, good, {}};
    }
    return {
        {}, State::failed, problem, module_.runs() ? mend : "see why the module ended; it must survive this"};
}

CaseResult Trial::in_time()
{
    std::string problem;
    for (const TrialCard &card : options_.cards) {
        problem = ask(card);
        if (!problem.empty()) {
            break;
        }
    }
    if (!problem.empty() && !module_.runs()) {
        return {{},
                State::failed,
                problem,
                "let the command run until SIGTERM; VX_MOM_ENDPOINT tells it where the store is"};
    }
    return answered(
        problem, std::to_string(options_.cards.size()) + " cards, the slowest in " + seconds_text(slowest_s_),
        "answer every request that is written or stands; the daemon admits a card after 300 s of "
        "silence. More time: --timeout");
}

// The requests of the case before still stand, as they do while the daemon waits for other modules.
CaseResult Trial::once()
{
    module_.listen(options_.quiet);
    for (const TrialCard &card : options_.cards) {
        module_.withdraw(card);
    }
    const int64_t more = module_.surplus();
    if (more <= 0) {
        return {{}, State::ok, "one answer to each request", {}};
    }
    return {{},
            State::failed,
            std::to_string(more) + (more == 1 ? " answer" : " answers") + " too many",
            "answer a request once; what the store delivers again after the answer is asked again only when "
            "it was "
            "written again"};
}

CaseResult Trial::right_name()
{
    std::set<std::string> names;
    for (const GivenAnswer &answer : module_.answers()) {
        names.insert(answer.module);
    }
    const std::string wanted = options_.name.empty() ? *names.begin() : options_.name;
    for (const std::string &name : names) {
        if (name != wanted) {
            return {
                {},
                State::failed,
                "an answer of " + in_quotes(name) + " instead of " + in_quotes(wanted),
                "write answers under the name of the module's entry in the folder, or say it with --name"};
        }
    }
    if (const std::string mistake = module_name_mistake(wanted); !mistake.empty()) {
        return {{}, State::failed, mistake, "use a name that the daemon knows whole"};
    }
    return {{}, State::ok, in_quotes(wanted), {}};
}

CaseResult Trial::deny_has_reason()
{
    std::size_t denials = 0;
    for (const GivenAnswer &answer : module_.answers()) {
        denials += answer.ret != 0 ? 1 : 0;
        if (answer.ret != 0 && answer.reason.empty()) {
            return {
                {},
                State::failed,
                answer.position.text() + " was denied without a reason",
                "say what is wrong and what would be right; the operator is told it at three in the morning"};
        }
    }
    if (denials == 0) {
        return {
            {}, State::skipped, "no card was denied; give one that is, as in --card 'type=300 slot=4'", {}};
    }
    return {{}, State::ok, std::to_string(denials) + (denials == 1 ? " denial" : " denials"), {}};
}

CaseResult Trial::reason_fits()
{
    std::size_t longest = 0;
    for (const GivenAnswer &answer : module_.answers()) {
        longest = std::max(longest, answer.reason.size());
    }
    const std::string found = "the longest reason has " + std::to_string(longest) + " bytes";
    if (longest > longest_reason) {
        return {
            {}, State::failed, found, "255 at most; the daemon cuts the rest, within a character if need be"};
    }
    return {{}, State::ok, found, {}};
}

CaseResult Trial::two_at_once()
{
    const TrialCard &first = card(0);
    const TrialCard &second = card(1);
    for (const TrialCard *one : {&first, &second}) {
        module_.plug(*one);
        module_.ask(*one);
    }
    std::string problem;
    for (const TrialCard *one : {&first, &second}) {
        if (problem.empty() && !module_.answer(*one, options_.limit)) {
            problem = missing(*one);
        }
        module_.withdraw(*one);
    }
    return answered(
        problem, first.position.text() + " and " + second.position.text(),
        "keep a list of open requests, not one; a chassis that is switched on asks for all cards");
}

// An answer that was on its way when the request was deleted is nobody's fault. A module that examines one
// card after the other, whatever becomes of the requests, comes to the second after the first.
CaseResult Trial::leaves()
{
    const TrialCard &gone = card(0);
    module_.plug(gone);
    module_.ask(gone);
    module_.listen(options_.quiet / 2); // a request that is gone at once need not even be seen
    module_.withdraw(gone);
    module_.pull(gone);
    module_.listen(options_.quiet / 2);
    const auto before = static_cast<std::ptrdiff_t>(module_.answers().size());
    const std::string problem = examine(card(1));
    module_.listen(options_.quiet + Rehearsal::Span(slowest_s_));
    const auto &answers = module_.answers();
    if (problem.empty() && std::any_of(answers.begin() + before, answers.end(), [&](const auto &answer) {
            return answer.position == gone.position;
        })) {
        return {{},
                State::failed,
                gone.position.text() + " was answered long after its request was gone",
                "drop the examination when the request is deleted, and look whether it stands before "
                "writing: an answer "
                "to nobody meets the slot's next card"};
    }
    return answered(problem, "the next card was answered",
                    "go on with other cards when a request is deleted");
}

CaseResult Trial::store_restarts()
{
    module_.restart_store();
    return answered(examine(card(0)), "the next card was answered",
                    "connect again when the connection is lost, subscribe, and list what stands");
}

CaseResult Trial::asked_again()
{
    const TrialCard &same = card(0);
    std::string problem;
    module_.plug(same);
    for (int turn = 0; turn < 2 && problem.empty(); turn++) {
        module_.ask(same);
        if (!module_.answer(same, options_.limit)) {
            problem = turn == 0 ? missing(same) : "the repeated request: " + missing(same);
        }
    }
    module_.withdraw(same);
    return answered(
        problem, "both requests were answered",
        "answer whenever the request is written, though it says the same: a daemon that was restarted has "
        "forgotten the first answer");
}

CaseResult Trial::ends()
{
    const bool is_clean = module_.stop_module(options_.limit);
    return {{},
            is_clean ? State::ok : State::failed,
            module_.ending(),
            is_clean ? "" : "end with status 0 soon after SIGTERM"};
}

CaseResult Trial::was_away()
{
    (void)module_.stop_module(options_.limit);
    const TrialCard &waiting = card(1);
    module_.plug(waiting);
    module_.ask(waiting);
    module_.start_module();
    const std::string problem = module_.answer(waiting, options_.limit) ? "" : missing(waiting);
    module_.withdraw(waiting);
    return answered(problem, "a request that stood was answered at the start",
                    "list the requests that stand when the module starts, after it has subscribed");
}

struct Case {
    const char *name;
    CaseResult (Trial::*attempt)();
    bool needs_answers;
};

// In this order: the first ones look at the answers of the first.
constexpr std::array cases{
    Case{"answers-in-time", &Trial::in_time, false},
    Case{"answers-once", &Trial::once, true},
    Case{"right-name", &Trial::right_name, true},
    Case{"deny-has-reason", &Trial::deny_has_reason, true},
    Case{"reason-fits", &Trial::reason_fits, true},
    Case{"two-at-once", &Trial::two_at_once, true},
    Case{"card-leaves", &Trial::leaves, true},
    Case{"asked-again", &Trial::asked_again, true},
    Case{"store-restarts", &Trial::store_restarts, true},
    Case{"was-away", &Trial::was_away, true},
    Case{"ends", &Trial::ends, false},
};

} // namespace

bool try_module(Rehearsal &rehearsal, const CaseOptions &options,
                const std::function<void(const CaseResult &)> &tell)
{
    Trial trial(rehearsal, options);
    rehearsal.start_module();
    bool all_passed = true;
    for (const Case &one : cases) {
        const auto began = Rehearsal::Clock::now();
        CaseResult result;
        if (one.needs_answers && !trial.has_answered()) {
            result = {{}, State::skipped, "rests on answers-in-time", {}};
        } else if (&one != &cases.front() && !trial.has_answered() && !rehearsal.runs()) {
            result = {{}, State::skipped, "the module has ended already", {}};
        } else {
            if (&one != &cases.front()) {
                trial.revive();
            }
            result = (trial.*one.attempt)();
        }
        result.name = one.name;
        result.took_s = Rehearsal::Span(Rehearsal::Clock::now() - began).count();
        all_passed = all_passed && result.state != State::failed;
        tell(result);
    }
    return all_passed;
}

} // namespace cg
