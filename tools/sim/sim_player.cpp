// A scenario in play.
#include "sim_player.h"

#include <cmath>
#include <utility>

#include "admission/card_text.h"
#include "admission/feed.h"
#include "base/failure.h"
#include "base/text.h"
#include "expectation.h"
#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"
#include "vx_mom.h"

namespace cg
{

namespace
{

using scenario::Expect;
using scenario::Milliseconds;
using scenario::Move;
using scenario::Wanted;

// For what only waits until machines are done, on our clock.
constexpr std::chrono::seconds patience{10};
constexpr std::chrono::seconds beyond_silence{10}; // the daemon's

const Milliseconds tracked_timeout = admission::check_timeout;

Milliseconds scaled(Milliseconds daemons, double speed)
{
    return Milliseconds(std::llround(static_cast<double>(daemons.count()) / speed));
}

} // namespace

SimPlayer::SimPlayer(const std::vector<scenario::Scenario> &scenarios, Options options, SimStage stage)
    : options_(std::move(options)), stage_(std::move(stage)),
      tracker_([this](const admission::Decision &decision) { decided(decision); },
               scaled(tracked_timeout, options_.speed))
{
    tracker_.set_modules(options_.registered);
    for (const scenario::Scenario &scenario : scenarios) {
        for (const scenario::Statement &statement : scenario.statements) {
            steps_.push_back({&scenario, &statement});
            expectations_ += std::holds_alternative<Expect>(statement.what) ? 1U : 0U;
        }
        steps_.push_back({&scenario, nullptr});
    }
}

void SimPlayer::start()
{
    tracker_.snapshot_done(stage_.now());
    go_on();
}

void SimPlayer::all_told()
{
    tracker_.snapshot_done(stage_.now());
    judge();
}

// Goes through the statements until one has to be waited for.
void SimPlayer::go_on()
{
    if (std::exchange(going_, true)) {
        return; // the loop below is at work
    }
    while (pending_ == Pending::nothing && !steps_.empty()) {
        now_ = steps_.front();
        if (now_.statement == nullptr) {
            end_file();
            continue;
        }
        steps_.pop_front();
        std::visit([this](const auto &what) { perform(what); }, now_.statement->what);
    }
    going_ = false;
    if (pending_ == Pending::nothing && !std::exchange(finished_, true)) {
        stage_.finished();
    }
}

// Pulls what the file left plugged, a card at a time, so that the next file finds an empty chassis.
void SimPlayer::end_file()
{
    if (options_.keep || plugged_.empty()) {
        steps_.pop_front();
        quiet_ = false;
        if (!steps_.empty()) {
            modules_.clear();
        }
        return;
    }
    quiet_ = true;
    perform(scenario::Switch{*plugged_.begin(), Move::pull});
}

void SimPlayer::perform(const scenario::SetRole &role)
{
    await_echo({&p_dev__dp_lib_grole__descriptor, {}, false, std::nullopt, role.role});
    stage_.set_role(role.role);
}

void SimPlayer::perform(const scenario::ModuleRule &rule)
{
    owe(modules_.set_rule(rule));
}

void SimPlayer::perform(const scenario::Plug &plug)
{
    const Position &position = plug.card.position;
    plugged_.insert(position);
    names_[position] = plug.card.name.value_or("card " + position.text());
    if (!plug.card.offline) {
        touch(position, node_type_value(plug.card.node_type) == "DM_TYPE_MB");
    }
    await_echo({&p_dev__card_info__descriptor, position, false, !plug.card.offline});
    stage_.plug(plug.card);
}

void SimPlayer::perform(const scenario::Switch &change)
{
    if (change.move == Move::online) {
        const admission::TrackedCard *card = tracker_.find(change.position);
        touch(change.position, card != nullptr && card->card.node_type == P_DEV__DM_NODE_TYPE_E__DM_TYPE_MB);
    }
    await_echo({&p_dev__card_info__descriptor, change.position, change.move == Move::pull,
                change.move == Move::online});
    stage_.change(change.position, change.move);
    if (change.move == Move::pull) {
        plugged_.erase(change.position);
    }
}

// A card that comes on line is decided anew, and what was decided before is not what is expected. Except
// where the daemon has nothing to decide: a card that is there and exempt, or that nobody is asked about,
// stays passed.
void SimPlayer::touch(const Position &position, bool board)
{
    const admission::TrackedCard *card = tracker_.find(position);
    const bool was_there = card != nullptr && card->state != admission::State::absent;
    if (!was_there || (!card->card.online && !board && !options_.registered.empty())) {
        touches_[position] = {stage_.now(), false};
    }
}

void SimPlayer::perform(const scenario::Wait &wait)
{
    await(Pending::time, ours(wait.time), [this] { done(); });
}

void SimPlayer::perform(const scenario::Say &say)
{
    tell("say", std::nullopt, say.text);
}

void SimPlayer::perform(const Expect &expect)
{
    expect_ = &expect;
    expect_since_ = stage_.now();
    Milliseconds longest = patience;
    if (expect.throughout || expect.within) {
        longest = ours(expect.throughout ? *expect.throughout : *expect.within);
    } else if (expect.wanted == Wanted::silence) {
        longest = ours(scenario::check_time + beyond_silence);
    }
    await(Pending::expectation, longest, [this] { settle(holds_now()); });
    judge();
}

void SimPlayer::await(Pending what, Milliseconds time, std::function<void()> too_late)
{
    pending_ = what;
    stage_.after(time, [this, turn = ++turn_, too_late = std::move(too_late)] {
        if (turn == turn_ && pending_ != Pending::nothing) {
            too_late();
        }
    });
}

// What was written is told back by the store; only then is what the daemon makes of it to be looked at.
void SimPlayer::await_echo(Echo echo)
{
    echo_ = std::move(echo);
    await(Pending::echo, patience, [this] {
        throw Failure(failed, "line " +
                                  std::to_string(now_.statement == nullptr ? 0 : now_.statement->place.line) +
                                  ": the store has not told of it within " + scenario::text_of(patience));
    });
}

void SimPlayer::done()
{
    pending_ = Pending::nothing;
    go_on();
}

bool SimPlayer::holds_now() const
{
    const auto touched = touches_.find(expect_->position);
    const Touch touch = touched == touches_.end() ? Touch{} : touched->second;
    return holds(*expect_, tracker_.find(expect_->position), touch.at, touch.decided);
}

void SimPlayer::judge()
{
    if (pending_ == Pending::expectation && holds_now() != expect_->throughout.has_value()) {
        settle(!expect_->throughout);
    }
}

void SimPlayer::settle(bool held)
{
    const auto spent = std::chrono::duration<double, std::milli>(stage_.now() - expect_since_).count();
    const auto name = names_.find(expect_->position);
    ExpectationResult result{now_.scenario->file,
                             now_.statement->place.line,
                             expect_->position,
                             name == names_.end() ? "" : name->second,
                             text_of(*expect_),
                             seen_text(tracker_.find(expect_->position)),
                             held,
                             Milliseconds(static_cast<int64_t>(spent * options_.speed))};
    tell("expectation", result.position,
         held ? "" : "MISSED: expected " + result.expected + ", seen " + result.seen, Tone::bad,
         {{"file", result.file},
          {"line", result.line},
          {"expected", result.expected},
          {"seen", result.seen},
          {"held", held},
          {"after_s", static_cast<double>(result.took.count()) / 1000}});
    results_.push_back(std::move(result));
    done();
}

Milliseconds SimPlayer::ours(Milliseconds daemons) const
{
    return scaled(daemons, options_.speed);
}

void SimPlayer::owe(const std::vector<DueAnswer> &answers)
{
    for (const DueAnswer &due : answers) {
        stage_.after(ours(due.after), [this, due] {
            if (modules_.take(due)) {
                stage_.answer(due);
            }
        });
    }
}

void SimPlayer::heard(int32_t cmd, const ProtobufCMessage &record, bool existing)
{
    const bool awaited = is_echo(cmd, record, existing);
    if (!existing || awaited) {
        tell_change(cmd, record);
    }
    admission::feed(tracker_, cmd, record, existing, stage_.now());
    play_modules(cmd, record, existing);
    if (awaited) {
        done();
    }
    judge();
}

// Cards that no file plugged are real ones: a verdict that is played would admit them, or power them off.
void SimPlayer::play_modules(int32_t cmd, const ProtobufCMessage &record, bool existing)
{
    if (record.descriptor != &p_libpub__app_cg_card_check_info__descriptor) {
        return;
    }
    const auto &request = reinterpret_cast<const PLibpub__AppCgCardCheckInfo &>(record);
    if (request.index == nullptr) {
        return;
    }
    const Position position{request.index->devid, request.index->slotid, request.index->sslotid};
    if (cmd == VX_MOM_CMD_DELETED) {
        modules_.withdrawn(position);
    } else if (has_played(position) || (options_.stay && finished_)) {
        owe(modules_.requested(position, request.type, existing));
    }
}

// While a store that was away tells everything again, what was written may be among the records that it
// finds; but so may the record as it was before, which must not pass for it.
bool SimPlayer::is_echo(int32_t cmd, const ProtobufCMessage &record, bool existing) const
{
    if (pending_ != Pending::echo || record.descriptor != echo_.type ||
        echo_.deleted != (cmd == VX_MOM_CMD_DELETED)) {
        return false;
    }
    const bool may_be_older = existing && !echo_.deleted;
    if (record.descriptor == &p_dev__dp_lib_grole__descriptor) {
        const auto role = reinterpret_cast<const PDev__DpLibGrole &>(record).my_grole;
        return !may_be_older || role_word(static_cast<int32_t>(role)) == echo_.role;
    }
    if (reinterpret_cast<const PDev__CardInfo &>(record).index == nullptr) {
        return false;
    }
    const admission::CardFacts card = admission::facts_of(record);
    return card.position == echo_.position && (!may_be_older || card.online == echo_.online);
}

void SimPlayer::decided(const admission::Decision &decision)
{
    using admission::Outcome;
    const bool ended = decision.outcome != Outcome::withdrawn && decision.outcome != Outcome::unseen;
    if (const auto found = touches_.find(decision.card.position); ended && found != touches_.end()) {
        found->second.decided = true;
    }
    std::string text;
    if (ended) {
        text = decision.admitted.value_or(false) ? "ADMITTED: " + decision_text(decision)
                                                 : "DENIED" + decision_text(decision).substr(6);
    } else if (admission::was_cut_off(decision)) {
        text = "check cut off: " + decision.reason;
    }
    const Tone tone = decision.outcome == Outcome::denied              ? Tone::bad
                      : decision.outcome == Outcome::silence || !ended ? Tone::warning
                                                                       : Tone::good;
    tell("decision", decision.card.position, text, tone, {{"decision", decision_json(decision)}});
}

void SimPlayer::tell(const std::string &kind, std::optional<Position> card, const std::string &text,
                     Tone tone, Json more) const
{
    if (!quiet_) {
        stage_.tell({stage_.now(), kind, card, text, tone, std::move(more)});
    }
}

} // namespace cg
