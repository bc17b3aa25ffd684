// What a line alone does not show.
//
// The lines are gone through in their order, with what is known of each position and each module by then.
// Only what can't be whatever the daemon does is a mistake here; the rest is for the play to find out.
#include <algorithm>
#include <map>
#include <set>

#include "base/failure.h"
#include "base/text.h"
#include "modules/module_folder.h"
#include "scenario.h"

namespace cg::scenario
{

namespace
{

std::string line_text(std::size_t line)
{
    return "line " + std::to_string(line);
}

class Check
{
public:
    explicit Check(Scenario &scenario) : scenario_(scenario)
    {
        for (const Statement &statement : scenario.statements) {
            if (const auto *rule = std::get_if<ModuleRule>(&statement.what)) {
                defined_.insert(rule->module);
            }
        }
    }

    void run()
    {
        for (const Statement &statement : scenario_.statements) {
            now_ = &statement;
            std::visit([this](const auto &what) { look_at(what); }, statement.what);
        }
        std::stable_sort(scenario_.problems.begin(), scenario_.problems.end(),
                         [](const Problem &a, const Problem &b) { return a.place.line < b.place.line; });
    }

private:
    struct Card {
        bool plugged = false;
        bool online = false;
        bool board = false;
        std::size_t line = 0; // where it came to be so
        Milliseconds online_at{0};
    };

    void tell(const std::string &message) { scenario_.problems.push_back({now_->place, message}); }

    void look_at(const SetRole & /*role*/) {}
    void look_at(const Say & /*say*/) {}
    void look_at(const Wait &wait) { latest_ += wait.time; }

    void look_at(const ModuleRule &rule)
    {
        const bool is_new = modules_.insert(rule.module).second;
        if (is_new && modules_.size() == most_modules + 1) {
            tell("a module too many; the daemon asks " + std::to_string(most_modules) + " at most");
        }
        if (rule.manner == Manner::answers) {
            (rule.pass ? passing_ : denying_).insert(rule.module);
        }
        if (rule.manner != Manner::answers || rule.after >= check_time) {
            silent_.insert(rule.module);
        }
    }

    void look_at(const Plug &plug)
    {
        Card &card = cards_[plug.card.position];
        if (!card.online && !plug.card.offline) {
            card.online_at = latest_;
        }
        card = {true, !plug.card.offline, node_type_value(plug.card.node_type) == "DM_TYPE_MB",
                now_->place.line, card.online_at};
    }

    void look_at(const Switch &change)
    {
        const auto found = cards_.find(change.position);
        if (found == cards_.end() || !found->second.plugged) {
            tell(not_there(change.position));
            return;
        }
        Card &card = found->second;
        if (change.move == Move::online && !card.online) {
            card.online_at = latest_;
        }
        card.plugged = change.move != Move::pull;
        card.online = change.move == Move::online;
        card.line = now_->place.line;
    }

    [[nodiscard]] std::string not_there(const Position &position) const
    {
        const auto found = cards_.find(position);
        const std::string plug = "`plug " + position.text() + " lc` goes before it";
        return found == cards_.end() ? "no card was plugged at " + position.text() + "; " + plug
                                     : "the card at " + position.text() + " was pulled in " +
                                           line_text(found->second.line) + "; " + plug;
    }

    void look_at(const Expect &expect)
    {
        if (expect.within) {
            latest_ += *expect.within;
        } else if (expect.throughout) {
            latest_ += *expect.throughout;
        } else {
            unbounded_ = true; // such a wait is on the clock of who looks
        }
        const auto found = cards_.find(expect.position);
        if (found == cards_.end()) {
            tell(not_there(expect.position));
        } else if (const std::string why = contradiction(expect, found->second); !why.empty()) {
            tell(why);
        }
        for (const std::string &module : expect.modules) {
            look_at_module(expect, module);
        }
    }

    // Why what is done to the card before makes the expectation impossible; empty when it does not.
    [[nodiscard]] std::string contradiction(const Expect &expect, const Card &card) const
    {
        const Wanted wanted = expect.wanted;
        const std::string where = expect.position.text();
        const bool about_nothing = wanted == Wanted::absent || wanted == Wanted::unmarked;
        if (card.plugged && wanted == Wanted::absent) {
            return where + " can't be absent, it was plugged or switched in " + line_text(card.line) +
                   "; `pull " + where + "` goes before it";
        }
        if (!card.plugged && !about_nothing) {
            return not_there(expect.position);
        }
        if (about_nothing) {
            return "";
        }
        if (wanted == Wanted::offline) {
            return card.online || card.board ? off_line_contradiction(where, card) : "";
        }
        return online_contradiction(expect, card);
    }

    [[nodiscard]] static std::string off_line_contradiction(const std::string &where, const Card &card)
    {
        return card.online ? where + " is on line since " + line_text(card.line) + "; `offline " + where +
                                 "` goes before it"
                           : where + " is a board card, and exempt on line or off; expect exempt";
    }

    [[nodiscard]] std::string online_contradiction(const Expect &expect, const Card &card) const
    {
        const std::string where = expect.position.text();
        const std::string wanted = text_of(expect.wanted);
        if (card.board != (expect.wanted == Wanted::exempt)) {
            return card.board ? where + " is a board card, never " + wanted + "; expect exempt"
                              : where + " is no board card, and only those are exempt; plug it as mb";
        }
        if (card.board) {
            return "";
        }
        if (!card.online) {
            return where + " is off line since " + line_text(card.line) + ", and can't be " + wanted +
                   "; `online " + where + "` goes before it";
        }
        if (expect.wanted == Wanted::unasked && !defined_.empty()) {
            return where + " can't be unasked: the daemon has the modules that are played here";
        }
        return expect.wanted == Wanted::silence ? silence_contradiction(where, card) : "";
    }

    [[nodiscard]] std::string silence_contradiction(const std::string &where, const Card &card) const
    {
        const Milliseconds most = latest_ - card.online_at;
        if (!unbounded_ && most < check_time) {
            return where + " can't be passed by silence yet: silence is told after " + text_of(check_time) +
                   ", and " + text_of(most) + " at most are over then; within " +
                   text_of(check_time + std::chrono::seconds{10});
        }
        return "";
    }

    void look_at_module(const Expect &expect, const std::string &module)
    {
        const std::vector<std::string> names(defined_.begin(), defined_.end());
        if (!defined_.contains(module)) {
            tell("no statement says how module " + in_quotes(module) + " behaves; " +
                 (names.empty() ? "`module " + module + " answers pass` goes before it"
                                : suggestion(module, names)));
        } else if (expect.wanted == Wanted::denied && !denying_.contains(module)) {
            tell(module + " was not said to deny; `module " + module +
                 " answers deny \"REASON\"` goes before it");
        } else if (expect.wanted == Wanted::passed && !passing_.contains(module)) {
            tell(module + " was not said to pass; `module " + module + " answers pass` goes before it");
        } else if (expect.wanted == Wanted::silence && !silent_.contains(module)) {
            tell(module + " was not said to be silent; `module " + module + " silent` goes before it");
        }
    }

    Scenario &scenario_;
    const Statement *now_ = nullptr;
    std::map<Position, Card> cards_{};
    std::set<std::string> defined_{}; // anywhere
    std::set<std::string> modules_{}; // by now, as are those below
    std::set<std::string> passing_{};
    std::set<std::string> denying_{};
    std::set<std::string> silent_{};
    Milliseconds latest_{0}; // the latest that it can be now, since the beginning
    bool unbounded_ = false; // some wait has no bound on the daemon's clock
};

} // namespace

void check_scenario(Scenario &scenario)
{
    Check(scenario).run();
}

} // namespace cg::scenario
