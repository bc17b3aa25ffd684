// What happens to cards, as events.
#include "cards/card_events.h"

#include <utility>

#include "admission/card_text.h"
#include "admission/feed.h"
#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"
#include "records/card_identity.h"
#include "records/databases.h"
#include "records/position_key.h"
#include "s_dev.pb-c.h"

namespace cg
{

namespace
{

using admission::Answer;
using admission::CardFacts;
using admission::Decision;
using admission::State;
using admission::TrackedCard;

// The card that a record is about; nothing for one after which the card is not compared with what it was.
std::optional<Position> compared_position(const ProtobufCMessage &record)
{
    const bool is_compared = record.descriptor == &p_dev__card_info__descriptor ||
                             record.descriptor == &p_libpub__app_cg_card_check_info__descriptor ||
                             record.descriptor == &s_dev__im_card_power_onoff__descriptor;
    return is_compared ? position_of(record) : std::nullopt;
}

bool has_same_facts(const CardFacts &a, const CardFacts &b)
{
    return has_same_identity(a, b) && a.node_type == b.node_type && a.config_dev_type == b.config_dev_type;
}

} // namespace

struct CardEvents::Before {
    bool known = false; // there was a card
    CardFacts card{};
    bool open = false;
    bool power_off = false;

    // What has happened to the card since; nothing where it is as it was.
    [[nodiscard]] std::optional<CardChange::Kind> change_to(const TrackedCard &now) const
    {
        using Kind = CardChange::Kind;
        const bool is_there = now.state != State::absent;
        if (is_there != known) {
            return is_there ? Kind::plugged : Kind::pulled;
        }
        if (is_there && now.card.online != card.online) {
            return now.card.online ? Kind::online : Kind::offline;
        }
        return is_there && !has_same_facts(now.card, card) ? std::optional(Kind::changed) : std::nullopt;
    }
};

CardEvents::CardEvents(Listener listener)
    : listener_(std::move(listener)), tracker_([this](const Decision &decision) { decided(decision); })
{
    tracker_.on_answer([this](const Position &position, const Answer &answer, bool /*late*/) {
        report({answer.at, position, "", meanwhile_, answer});
    });
}

void CardEvents::report(Event event) const
{
    if (!received_.contains(card_database)) {
        return;
    }
    if (event.position && event.name.empty()) {
        const TrackedCard *card = tracker_.find(*event.position);
        event.name = card == nullptr ? "" : card->card.name;
    }
    listener_(event);
}

void CardEvents::handle(const ProtobufCMessage &record, bool deleted, const admission::Change &change)
{
    const std::optional<Position> position = compared_position(record);
    Before before;
    if (const TrackedCard *card = position ? tracker_.find(*position) : nullptr) {
        before = {card->state != State::absent, card->card, card->open, card->power_off};
    }
    meanwhile_ = change.existing;
    admission::feed(tracker_, record, deleted, change);
    if (position) {
        compare(*position, before, change);
    } else if (record.descriptor == &p_dev__dp_lib_grole__descriptor) {
        const auto &role = reinterpret_cast<const PDev__DpLibGrole &>(record);
        set_role(deleted ? std::nullopt : std::optional(static_cast<int32_t>(role.my_grole)), change);
    }
}

void CardEvents::compare(const Position &position, const Before &before,
                         const admission::Change &change) const
{
    const TrackedCard *found = tracker_.find(position);
    const TrackedCard now = found == nullptr ? TrackedCard{} : *found;
    const std::string &name = now.state == State::absent ? before.card.name : now.card.name;
    if (const auto kind = before.change_to(now)) {
        report({change.at, position, name, change.existing, CardChange{*kind, now.card}});
    }
    if (now.open && (!before.open || now.requested_at == change.at)) {
        report({change.at, position, name, change.existing, Asked{now.waiting_for}});
    }
    if (now.power_off != before.power_off && received_.contains(device_database)) {
        report({change.at, position, name, change.existing, PowerChange{now.power_off}});
    }
}

void CardEvents::set_role(const std::optional<int32_t> &role, const admission::Change &change)
{
    if (std::exchange(role_, role) != role) {
        report({change.at, std::nullopt, "", change.existing, RoleChange{role}});
    }
}

void CardEvents::decided(const Decision &decision) const
{
    report({decision.decided_at, decision.card.position, decision.card.name, meanwhile_, decision});
}

std::string CardEvents::reason_of(const TrackedCard &card) const
{
    if (const Decision *denial = denial_of(card)) {
        return denial->reason;
    }
    const auto found = daemons_reasons_.find(card.card.position);
    return card.denied && found != daemons_reasons_.end() ? found->second : "";
}

void CardEvents::received(int32_t db, Time at)
{
    if (db == card_database) { // which has all that checks are about
        meanwhile_ = true;
        tracker_.snapshot_done(at);
    }
    received_.insert(db);
}

void CardEvents::store_heard(const StoreChange &store, Time at)
{
    health_.hear_store(store.db, store.connected, at);
    report({at, std::nullopt, "", false, store});
}

void CardEvents::daemon_heard(bool answers, const std::string &problem, Time at)
{
    if (health_.hear_daemon(answers, at)) {
        report({at, std::nullopt, "", false, DaemonChange{answers, answers ? "" : problem}});
    }
}

void CardEvents::heartbeat_read(const Heartbeat &heartbeat, Time at)
{
    const bool is_readable = heartbeat.at.has_value();
    has_history_ = has_history_ || is_readable;
    if (!is_readable && (!has_history_ || heartbeat.problem.empty())) {
        return;
    }
    if (health_.hear_history(is_readable, at)) {
        report({at, std::nullopt, "", false, HistoryChange{is_readable ? "" : heartbeat.problem}});
    }
    const bool at_work = !heartbeat.is_old(at);
    if (is_readable && health_.hear_recorder(at_work, *heartbeat.at)) {
        report({at, std::nullopt, "", false, RecorderChange{at_work, *heartbeat.at}});
    }
}

} // namespace cg
