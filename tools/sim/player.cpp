// A scenario in play.
#include "player.h"

#include <cmath>
#include <utility>

#include "admission/feed.h"
#include "base/failure.h"
#include "base/text.h"
#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"
#include "store/change.h"

namespace cg
{

namespace
{

using scenario::Expect;
using scenario::Milliseconds;
using scenario::Move;

// For what only waits until machines are done, on our clock.
constexpr std::chrono::seconds patience{10};
constexpr std::chrono::seconds beyond_silence{10}; // the daemon's

} // namespace

Player::Player(const std::vector<scenario::Scenario> &scenarios, Options options, Stage stage)
    : options_(std::move(options)), stage_(std::move(stage)),
      tracker_([this](const admission::Decision &decision) { decided(decision); },
               ours(admission::check_timeout)),
      judge_(tracker_)
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

void Player::synchronized()
{
    tracker_.snapshot_done(stage_.now());
    go_on();
    judge();
}

// Goes through the statements until one has to be waited for.
void Player::go_on()
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
void Player::end_file()
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

void Player::perform(const scenario::SetRole &role)
{
    stage_.set_role(role.role);
}

void Player::perform(const scenario::ModuleRule &rule)
{
    owe(modules_.set_rule(rule));
}

void Player::perform(const scenario::Plug &plug)
{
    const Position &position = plug.card.position;
    plugged_.insert(position);
    names_[position] = plug.card.name.value_or("card " + position.text());
    if (!plug.card.offline) {
        comes_online(position, node_type_value(plug.card.node_type) == "DM_TYPE_MB");
    }
    write({position, !plug.card.offline}, [&] { stage_.plug(plug.card); });
}

void Player::perform(const scenario::Switch &change)
{
    if (!plugged_.contains(change.position)) {
        throw Failure(failed, place() + "no card of this scenario is plugged at " + change.position.text());
    }
    if (change.move == Move::online) {
        const admission::TrackedCard *card = tracker_.find(change.position);
        comes_online(change.position,
                     card != nullptr && card->card.node_type == P_DEV__DM_NODE_TYPE_E__DM_TYPE_MB);
    }
    const bool pull = change.move == Move::pull;
    write({change.position, pull ? std::nullopt : std::optional(change.move == Move::online)},
          [&] { stage_.change(change.position, change.move); });
    if (pull) {
        plugged_.erase(change.position);
    }
}

// A card that comes online is decided anew, except where the daemon has nothing to decide: one that is there
// and exempt, or that no module is asked about, stays passed.
void Player::comes_online(const Position &position, bool board)
{
    const admission::TrackedCard *card = tracker_.find(position);
    const bool was_there = card != nullptr && card->state != admission::State::absent;
    if (!was_there || (!card->card.online && !board && !options_.registered.empty())) {
        judge_.begin(position, stage_.now());
    }
}

void Player::perform(const scenario::Wait &wait)
{
    await(Pending::time, ours(wait.time), [this] { done(); });
}

void Player::perform(const scenario::Say &say)
{
    report({"say", std::nullopt, say.text});
}

void Player::perform(const Expect &expect)
{
    expect_ = &expect;
    expect_since_ = stage_.now();
    Milliseconds longest = patience;
    if (expect.throughout || expect.within) {
        longest = ours(expect.throughout ? *expect.throughout : *expect.within);
    } else if (expect.state == admission::State::silence) {
        longest = ours(admission::check_timeout + beyond_silence);
    }
    await(Pending::expectation, longest, [this] { conclude(judge_.holds(*expect_)); });
    judge();
}

void Player::await(Pending what, Milliseconds time, std::function<void()> too_late)
{
    pending_ = what;
    stage_.after(time, [this, turn = ++turn_, too_late = std::move(too_late)] {
        if (turn == turn_ && pending_ != Pending::nothing) {
            too_late();
        }
    });
}

// What was written is reported back by the store; only then does it make sense to judge what the daemon makes
// of it.
void Player::write(const Echo &echo, const std::function<void()> &action)
{
    echo_ = echo;
    await(Pending::echo, patience, [this] {
        throw Failure(failed, place() + "the store has not reported the change within " +
                                  scenario::text_of(patience));
    });
    action();
    if (has_echoed()) {
        done(); // it was so before
    }
}

// Whether the card that is awaited is as it was written. By the record as it is, and not by the notification:
// while a store that was away reports everything again, the record as it was before may come, and the one
// that was written may come as an existing one.
bool Player::has_echoed() const
{
    if (pending_ != Pending::echo) {
        return false;
    }
    const admission::TrackedCard *card = tracker_.find(echo_.position);
    const bool is_there = card != nullptr && card->state != admission::State::absent;
    return is_there == echo_.online.has_value() && (!is_there || card->card.online == *echo_.online);
}

void Player::done()
{
    pending_ = Pending::nothing;
    go_on();
}

void Player::judge()
{
    if (pending_ == Pending::expectation && judge_.holds(*expect_) != expect_->throughout.has_value()) {
        conclude(!expect_->throughout);
    }
}

void Player::conclude(bool held)
{
    const auto spent = std::chrono::duration<double, std::milli>(stage_.now() - expect_since_).count();
    const auto name = names_.find(expect_->position);
    results_.push_back({now_.scenario->file, now_.statement->line, expect_->position,
                        name == names_.end() ? "" : name->second, text_of(*expect_),
                        judge_.seen(expect_->position), held,
                        Milliseconds(static_cast<int64_t>(spent * options_.speed))});
    report(event_of(results_.back()));
    done();
}

void Player::owe(const std::vector<DueAnswer> &answers)
{
    for (const DueAnswer &due : answers) {
        stage_.after(ours(due.after), [this, due] {
            if (modules_.consume(due)) {
                stage_.answer(due);
            }
        });
    }
}

void Player::heard(int32_t cmd, const ProtobufCMessage &record, const admission::Change &change)
{
    const auto event = event_of(cmd, record, tracker_);
    if (event && !change.existing) {
        report(*event);
    }
    admission::feed(tracker_, record, cmd == VX_MOM_CMD_DELETED, change);
    play_modules(cmd, record, change.existing);
    if (has_echoed()) {
        if (event && change.existing) {
            report(*event);
        }
        done();
    }
    judge();
}

// Cards that no file plugged are real ones: a verdict that is played would admit them, or power them off.
void Player::play_modules(int32_t cmd, const ProtobufCMessage &record, bool existing)
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

void Player::decided(const admission::Decision &decision)
{
    if (decision.outcome != admission::Outcome::withdrawn && decision.outcome != admission::Outcome::unseen) {
        judge_.ended(decision.card.position);
    }
    report(event_of(decision));
}

void Player::report(const Event &event) const
{
    if (!quiet_) {
        stage_.report(stage_.now(), event);
    }
}

// Where the statement stands, for the beginning of a message.
std::string Player::place() const
{
    return now_.statement == nullptr
               ? ""
               : visible(now_.scenario->file) + ':' + std::to_string(now_.statement->line) + ": ";
}

Milliseconds Player::ours(Milliseconds daemons) const
{
    return Milliseconds(std::llround(static_cast<double>(daemons.count()) / options_.speed));
}

} // namespace cg
