// A scenario in play.
#include "player.h"

#include <cmath>
#include <utility>

#include "admission/card_text.h"
#include "admission/feed.h"
#include "base/failure.h"
#include "base/text.h"
#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"

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
    for_each_statement<Expect>(scenarios, [this](const auto &...) { ++expectations_; });
    for (const scenario::Scenario &scenario : scenarios) {
        for (const scenario::Statement &statement : scenario.statements) {
            steps_.push_back({&scenario, &statement});
        }
        steps_.push_back({&scenario, nullptr});
    }
}

void Player::synchronized()
{
    tracker_.snapshot_done(stage_.now());
    go_on();
    check_awaited();
}

void Player::heard(bool deleted, const ProtobufCMessage &record, const admission::Change &change)
{
    const auto event = event_of(deleted, record, tracker_);
    // What befell our cards while the store was away is news, too.
    const bool is_news = !change.existing || (record.descriptor == &p_dev__card_info__descriptor && event &&
                                              has_played(*event->card));
    if (event && is_news) {
        report(*event);
    }
    admission::feed(tracker_, record, deleted, change);
    play_modules(deleted, record, change.existing);
    check_awaited();
}

// Goes through the statements until one has to be waited for.
void Player::go_on()
{
    if (std::exchange(going_, true)) {
        return; // the loop below is at work
    }
    while (!awaited_ && !steps_.empty()) {
        now_ = steps_.front();
        if (now_.statement == nullptr) {
            end_file();
            continue;
        }
        steps_.pop_front();
        std::visit([this](const auto &what) { perform(what); }, now_.statement->what);
    }
    going_ = false;
    if (!awaited_ && !std::exchange(finished_, true)) {
        stage_.finished();
    }
}

// Pulls what the file left plugged, a card at a time, so that the next file finds an empty chassis.
void Player::end_file()
{
    quiet_ = !options_.keep && !plugged_.empty();
    if (quiet_) {
        perform(scenario::Switch{*plugged_.begin(), Move::pull});
        return;
    }
    steps_.pop_front();
    if (!steps_.empty()) {
        modules_.clear();
    }
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
    write(position, !plug.card.offline, [&] { stage_.plug(plug.card); });
}

void Player::perform(const scenario::Switch &change)
{
    const Position position = change.position;
    if (!plugged_.contains(position)) {
        throw Failure(failed, place() + "no card of this scenario is plugged at " + position.text());
    }
    const bool pull = change.move == Move::pull;
    const bool online = change.move == Move::online;
    if (online) {
        const admission::TrackedCard *card = tracker_.find(position);
        comes_online(position, card != nullptr && card->card.node_type == P_DEV__DM_NODE_TYPE_E__DM_TYPE_MB);
    }
    if (pull) {
        plugged_.erase(position);
    }
    write(position, pull ? std::nullopt : std::optional(online),
          [&] { stage_.change(position, change.move); });
}

// A card that comes online is decided again, except where the daemon has nothing to decide: one that is there
// and exempt, or that no module is asked about, stays passed.
void Player::comes_online(const Position &position, bool board)
{
    const admission::TrackedCard *card = tracker_.find(position);
    const bool was_there = card != nullptr && card->state != admission::State::absent;
    if (!was_there || (!card->card.online && !board && !options_.registered.empty())) {
        judge_.begin(position, stage_.now());
    }
}

// What was written is reported back by the store; only then does it make sense to judge what the daemon makes
// of it. While a store that was away reports everything again, the record as it was before may come, and the
// one that was written may come as an existing one. `online` is empty when the card is pulled.
void Player::write(const Position &position, std::optional<bool> online, const std::function<void()> &action)
{
    const auto has_echoed = [this, position, online] {
        const admission::TrackedCard *card = tracker_.find(position);
        const bool is_there = card != nullptr && card->state != admission::State::absent;
        return is_there == online.has_value() && (!is_there || card->card.online == *online);
    };
    const auto ended = [this](bool in_time) {
        if (!in_time) {
            throw Failure(failed,
                          place() + "the store has not reported the change within " + seconds_text(patience));
        }
    };
    await(patience, {has_echoed, ended});
    action();
    check_awaited(); // it may have been so before
}

void Player::perform(const scenario::Wait &wait)
{
    await(ours(wait.time), {[] { return false; }, [](bool) {}});
}

void Player::perform(const scenario::Say &say)
{
    report({"say", std::nullopt, say.text});
}

void Player::perform(const Expect &expect)
{
    Milliseconds longest = patience;
    if (expect.throughout || expect.within) {
        longest = ours(expect.throughout ? *expect.throughout : *expect.within);
    } else if (expect.state == admission::State::silence) {
        longest = ours(admission::check_timeout + beyond_silence);
    }
    const auto is_decided = [this, &expect] { return judge_.holds(expect) != expect.throughout.has_value(); };
    await(longest, {is_decided, [this, &expect, since = stage_.now()](bool) { conclude(expect, since); }});
    check_awaited();
}

void Player::conclude(const Expect &expect, admission::Time since)
{
    const auto spent = std::chrono::duration<double, std::milli>(stage_.now() - since).count();
    const auto name = names_.find(expect.position);
    results_.push_back({now_.scenario->file, now_.statement->line, expect.position,
                        name == names_.end() ? "" : name->second, expect.text, judge_.seen(expect.position),
                        judge_.holds(expect), Milliseconds(static_cast<int64_t>(spent * options_.speed))});
    report(event_of(results_.back()));
}

void Player::await(Milliseconds time, Awaited what)
{
    awaited_ = std::move(what);
    stage_.after(time, [this, turn = ++turn_] {
        if (turn == turn_ && awaited_) {
            end_wait(false);
        }
    });
}

void Player::check_awaited()
{
    if (awaited_ && awaited_->has_come()) {
        end_wait(true);
    }
}

void Player::end_wait(bool in_time)
{
    const auto ended = std::move(awaited_->ended);
    awaited_.reset();
    ended(in_time);
    go_on();
}

void Player::owe(const std::vector<DueAnswer> &answers)
{
    for (const DueAnswer &due : answers) {
        stage_.after(ours(due.after), [this, due] {
            if (modules_.is_wanted(due)) {
                stage_.answer(due);
            }
        });
    }
}

// Cards that no file plugged are real ones: a verdict that is played would admit them, or power them off.
void Player::play_modules(bool deleted, const ProtobufCMessage &record, bool existing)
{
    if (record.descriptor != &p_libpub__app_cg_card_check_info__descriptor) {
        return;
    }
    const auto &request = reinterpret_cast<const PLibpub__AppCgCardCheckInfo &>(record);
    if (request.index == nullptr) {
        return;
    }
    const Position position{request.index->devid, request.index->slotid, request.index->sslotid};
    if (deleted) {
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
