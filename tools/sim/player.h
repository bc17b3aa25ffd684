// A scenario in play: statement after statement, the modules beside them, and what is to come of it.
//
// The player owns no clock and no store. What it does goes through the functions of its stage, and what
// happens is handed to it; so its tests need neither, and an hour of a daemon passes at once.
//
// Three clocks meet here: a scenario's times are the daemon's seconds; `speed` of those pass in one of ours;
// and what only waits for machines to be done (the store's echo, an expectation without a time) is on ours
// alone.
#ifndef SIM_PLAYER_H
#define SIM_PLAYER_H

#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "admission/card_tracker.h"
#include "admission/change.h"
#include "expectation.h"
#include "played_modules.h"
#include "scenario.h"
#include "story.h"

namespace cg
{

// What the player does to the world, and asks of it. All are called from within the player's functions.
struct Stage {
    std::function<admission::Time()> now;
    std::function<void(scenario::Milliseconds, std::function<void()>)> after; // on our clock
    std::function<void(const NewCard &)> plug;
    std::function<void(const Position &, scenario::Move)> change;
    std::function<void(PDev__DmRoleE)> set_role;
    std::function<void(const DueAnswer &)> answer;
    std::function<void(admission::Time, const Event &)> report;
    std::function<void()> finished; // every statement was played
};

class Player
{
public:
    struct Options {
        double speed = 1;                      // seconds of the daemon in one of ours
        bool keep = false;                     // leave the cards plugged
        bool stay = false;                     // once all is played, answer for every card
        std::vector<std::string> registered{}; // the modules that the daemon asks, in its order
    };

    // The scenarios live longer, and have no problems.
    Player(const std::vector<scenario::Scenario> &scenarios, Options options, Stage stage);

    // All existing records were handed to heard(): the first time that begins the play, after an outage it
    // goes on. Throws Failure, as heard() does, when a statement cannot be carried out.
    void synchronized();
    // The store has changed; the arguments are those of admission::feed().
    void heard(bool deleted, const ProtobufCMessage &record, const admission::Change &change);

    // Whether all statements were played.
    [[nodiscard]] bool is_finished() const { return finished_; }
    // What came of the expectations so far, in their order.
    [[nodiscard]] const std::vector<ExpectationResult> &results() const { return results_; }
    // How many expectations there are in all.
    [[nodiscard]] std::size_t expectations() const { return expectations_; }
    // The cards that are still plugged by our doing.
    [[nodiscard]] const std::set<Position> &plugged() const { return plugged_; }
    // Whether a card was plugged there, now or before.
    [[nodiscard]] bool has_played(const Position &position) const { return names_.contains(position); }
    // What is known of all cards, played ones and others.
    [[nodiscard]] const admission::CardTracker &tracker() const { return tracker_; }

private:
    // A statement, or at a file's end the pulling of a card that is left.
    struct Step {
        const scenario::Scenario *scenario;
        const scenario::Statement *statement; // null: the file's end
    };
    // What has to happen before the next step.
    struct Awaited {
        std::function<bool()> has_come;          // looked up after each change
        std::function<void(bool in_time)> ended; // it has come, or its time is over
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

    void await(scenario::Milliseconds ours, Awaited what);
    void end_wait(bool in_time);
    void check_awaited();
    void write(const Position &position, std::optional<bool> online, const std::function<void()> &action);
    void conclude(const scenario::Expect &expect, admission::Time since);
    void comes_online(const Position &position, bool board);
    void owe(const std::vector<DueAnswer> &answers);
    void play_modules(bool deleted, const ProtobufCMessage &record, bool existing);
    void decided(const admission::Decision &decision);
    void report(const Event &event) const;
    [[nodiscard]] std::string place() const;
    [[nodiscard]] scenario::Milliseconds ours(scenario::Milliseconds daemons) const;

    const Options options_;
    const Stage stage_;
    admission::CardTracker tracker_;
    Judge judge_;
    PlayedModules modules_;
    std::deque<Step> steps_;
    Step now_{};
    std::optional<Awaited> awaited_;
    uint64_t turn_ = 0; // counts what was awaited, so that a timer knows whether it comes too late
    bool going_ = false;
    bool finished_ = false;
    bool quiet_ = false; // while cleaning up
    std::map<Position, std::string> names_;
    std::set<Position> plugged_;
    std::vector<ExpectationResult> results_;
    std::size_t expectations_ = 0;
};

} // namespace cg

#endif
