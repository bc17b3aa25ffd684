// A scenario in play: statement after statement, the modules beside them, and what is to come of it.
//
// The player owns no clock and no store. What it does goes through the functions of its stage, and what
// happens is told to it; so its tests need neither, and an hour of a daemon takes them no time.
//
// Three clocks meet here: a scenario's times are the daemon's seconds; `speed` of those pass in one of ours;
// and what only waits for machines to be done (the store's echo, an expectation without a time) is on ours
// alone.
#ifndef SIM_SIM_PLAYER_H
#define SIM_SIM_PLAYER_H

#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "admission/card_tracker.h"
#include "base/terminal.h"
#include "played_modules.h"
#include "records/record_text.h"
#include "scenario.h"

namespace cg
{

// Something that happened, for who watches.
struct SimEvent {
    admission::Time at{};
    std::string kind{}; // one word, for programs
    std::optional<Position> card{};
    std::string text{}; // for people; empty: nothing that they need to be told
    Tone tone = Tone::plain;
    Json more = Json::object(); // further members, for programs
};

// What came of an expectation.
struct ExpectationResult {
    std::string file{};
    std::size_t line = 0;
    Position position{};
    std::string name{}; // of the card
    std::string expected{};
    std::string seen{};
    bool held = false;
    scenario::Milliseconds took{0}; // the daemon's
};

// What the player does to the world, and asks of it. All are called from within the player's functions.
struct SimStage {
    std::function<admission::Time()> now;
    std::function<void(scenario::Milliseconds, std::function<void()>)> after; // on our clock
    std::function<void(const NewCard &)> plug;
    std::function<void(const Position &, scenario::Move)> change;
    std::function<void(const std::string &)> set_role;
    std::function<void(const DueAnswer &)> answer;
    std::function<void(const SimEvent &)> tell;
    std::function<void()> finished; // every statement was played
};

class SimPlayer
{
public:
    struct Options {
        double speed = 1;                      // seconds of the daemon in one of ours
        bool keep = false;                     // leave the cards plugged
        bool stay = false;                     // once all is played, answer for every card
        std::vector<std::string> registered{}; // the modules that the daemon asks, in its order
    };

    // The scenarios live longer, and have no problems.
    SimPlayer(const std::vector<scenario::Scenario> &scenarios, Options options, SimStage stage);

    // Begins; all records that there are were told.
    void start();

    // The store tells of a change; see admission::feed().
    void heard(int32_t cmd, const ProtobufCMessage &record, bool existing);

    // All records were told anew, after an outage.
    void all_told();

    [[nodiscard]] bool is_finished() const { return finished_; }
    [[nodiscard]] const std::vector<ExpectationResult> &results() const { return results_; }
    // How many expectations there are in all.
    [[nodiscard]] std::size_t expectations() const { return expectations_; }
    // The cards that are still plugged by our doing.
    [[nodiscard]] const std::set<Position> &plugged() const { return plugged_; }
    // Whether a card was plugged there, now or before.
    [[nodiscard]] bool has_played(const Position &position) const { return names_.contains(position); }
    [[nodiscard]] const admission::CardTracker &tracker() const { return tracker_; }

private:
    // A statement, or at a file's end the pulling of a card that is left.
    struct Step {
        const scenario::Scenario *scenario;
        const scenario::Statement *statement; // null: the file's end
    };
    enum class Pending { nothing, echo, time, expectation };
    struct Touch {
        admission::Time at{};
        bool decided = true;
    };
    // What the store has to tell back.
    struct Echo {
        const ProtobufCMessageDescriptor *type = nullptr;
        Position position{};
        bool deleted = false;
        std::optional<bool> online{}; // of a card that is written
        std::string role{};           // of a role that is
    };

    void go_on();
    void end_file();
    void perform(const scenario::SetRole &role);
    void perform(const scenario::ModuleRule &rule);
    void perform(const scenario::Plug &plug);
    void perform(const scenario::Switch &change);
    void perform(const scenario::Wait &wait);
    void perform(const scenario::Say &say);
    void perform(const scenario::Expect &expect);

    void await(Pending what, scenario::Milliseconds ours, std::function<void()> too_late);
    void await_echo(Echo echo);
    void done();
    void judge();
    void settle(bool held);
    void touch(const Position &position, bool board);
    void owe(const std::vector<DueAnswer> &answers);
    [[nodiscard]] scenario::Milliseconds ours(scenario::Milliseconds daemons) const;
    [[nodiscard]] bool holds_now() const;

    [[nodiscard]] bool is_echo(int32_t cmd, const ProtobufCMessage &record, bool existing) const;
    void play_modules(int32_t cmd, const ProtobufCMessage &record, bool existing);
    void decided(const admission::Decision &decision);
    void tell(const std::string &kind, std::optional<Position> card, const std::string &text,
              Tone tone = Tone::plain, Json more = Json::object()) const;
    void tell_change(int32_t cmd, const ProtobufCMessage &record) const;

    const Options options_;
    const SimStage stage_;
    admission::CardTracker tracker_;
    PlayedModules modules_;
    std::deque<Step> steps_;
    Step now_{};
    Pending pending_ = Pending::nothing;
    uint64_t turn_ = 0; // counts what was awaited, so that a timer knows whether it comes too late
    bool going_ = false;
    bool finished_ = false;
    bool quiet_ = false; // while cleaning up
    Echo echo_;
    const scenario::Expect *expect_ = nullptr;
    admission::Time expect_since_{};
    std::map<Position, Touch> touches_;
    std::map<Position, std::string> names_;
    std::set<Position> plugged_;
    std::vector<ExpectationResult> results_;
    std::size_t expectations_ = 0;
};

} // namespace cg

#endif
