// What happens to cards, as events.
#include "cards/card_events.h"

#include <algorithm>
#include <utility>

#include "admission/feed.h"
#include "base/text.h"
#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"
#include "records/card_identity.h"
#include "s_dev.pb-c.h"

namespace cg
{

namespace
{

using admission::Answer;
using admission::CardFacts;
using admission::Decision;
using admission::Outcome;
using admission::State;
using admission::TrackedCard;

template <typename Record>
const Record &as(const ProtobufCMessage &record)
{
    return reinterpret_cast<const Record &>(record); // every record begins with its ProtobufCMessage
}

template <typename Record>
std::optional<Position> position_by_index(const ProtobufCMessage &record)
{
    const auto *index = as<Record>(record).index;
    return index == nullptr ? std::nullopt
                            : std::optional(Position{index->devid, index->slotid, index->sslotid});
}

// Which card a record is about; nothing for one that is compared with nothing.
std::optional<Position> position_of(const ProtobufCMessage &record)
{
    if (record.descriptor == &p_dev__card_info__descriptor) {
        return position_by_index<PDev__CardInfo>(record);
    }
    if (record.descriptor == &p_libpub__app_cg_card_check_info__descriptor) {
        return position_by_index<PLibpub__AppCgCardCheckInfo>(record);
    }
    if (record.descriptor == &s_dev__im_card_power_onoff__descriptor) {
        return position_by_index<SDev__ImCardPowerOnoff>(record);
    }
    return std::nullopt;
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
};

CardEvents::CardEvents(Listener listener)
    : listener_(std::move(listener)), tracker_([this](const Decision &decision) { decided(decision); })
{
}

void CardEvents::tell(Event event) const
{
    if (!listening_) {
        return;
    }
    if (event.position && event.name.empty()) {
        const TrackedCard *card = tracker_.find(*event.position);
        event.name = card == nullptr ? "" : card->card.name;
    }
    listener_(event);
}

void CardEvents::take(const ProtobufCMessage &record, bool deleted, const admission::Change &change)
{
    const std::optional<Position> position = position_of(record);
    Before before;
    if (const TrackedCard *card = position ? tracker_.find(*position) : nullptr) {
        before = {card->state != State::absent, card->card, card->open, card->power_off};
    }
    Event event;
    event.at = change.at;
    event.position = position;
    event.meanwhile = change.existing;
    event.name = before.card.name;
    if (record.descriptor == &p_libpub__app_cg_card_check_ack__descriptor && !deleted) {
        tell_answer(record, change, event); // before the decision that it may bring about
    }
    meanwhile_ = change.existing;
    admission::feed(tracker_, record, deleted, change);
    if (position) {
        compare(*position, before, std::move(event));
    } else if (record.descriptor == &p_dev__dp_lib_grole__descriptor) {
        const auto role = static_cast<int32_t>(as<PDev__DpLibGrole>(record).my_grole);
        tell_role(deleted ? std::nullopt : std::optional(role), event);
    }
}

void CardEvents::compare(const Position &position, const Before &before, Event event) const
{
    const TrackedCard *found = tracker_.find(position);
    const TrackedCard now = found == nullptr ? TrackedCard{} : *found;
    tell_card(now, before, event);
    if (now.open && (!before.open || now.requested_at == event.at)) {
        event.kind = "asked";
        event.tone = Tone::waiting;
        event.text = "asked " + visible(joined(now.waiting_for));
        event.more = {{"waiting_for", now.waiting_for}};
        tell(event);
    }
    if (now.power_off != before.power_off) {
        event.kind = "power";
        event.tone = now.power_off ? Tone::bad : Tone::plain;
        event.text = now.power_off ? "asked to be powered off" : "no longer asked to be powered off";
        event.more = {{"power_off", now.power_off}};
        tell(event);
    }
}

void CardEvents::tell_card(const TrackedCard &now, const Before &before, const Event &like) const
{
    Event event = like;
    const bool is_there = now.state != State::absent;
    const CardFacts &card = now.card;
    event.more = {
        {"node_type", short_type(card.node_type)}, {"serial", card.serial}, {"is_online", card.online}};
    if (is_there) {
        event.name = card.name;
    }
    if (is_there && !before.known) {
        event.kind = "plugged";
        event.text = "plugged, " + short_type(card.node_type) + (card.online ? ", online" : ", offline");
    } else if (!is_there && before.known) {
        event.kind = "pulled";
        event.text = "pulled";
        event.more = Json::object();
    } else if (is_there && card.online != before.card.online) {
        event.kind = card.online ? "online" : "offline";
        event.text = card.online ? "online" : "offline";
    } else if (is_there && !has_same_facts(card, before.card)) {
        event.kind = "changed";
        event.text = "another card, or other facts of it: " + short_type(card.node_type);
    } else {
        return;
    }
    tell(event);
}

// One that is told anew with the other records of a store that was away stood already, unless nobody has
// heard of it; where there is no card, nobody remembers.
void CardEvents::tell_answer(const ProtobufCMessage &record, const admission::Change &change,
                             Event event) const
{
    const auto &ack = as<PLibpub__AppCgCardCheckAck>(record);
    if (ack.index == nullptr) {
        return;
    }
    event.kind = "answer";
    event.position = Position{ack.index->devid, ack.index->slotid, ack.index->t_sslotid};
    Answer answer{ack.index->mod_name, ack.ret, ack.reason, event.at};
    answer.revision = change.write.revision;
    const TrackedCard *card = tracker_.find(*event.position);
    if (change.existing && (card == nullptr || admission::was_heard(card->answers, answer))) {
        return;
    }
    if (!change.existing && card != nullptr && card->open) {
        answer.took = tracker_.time_to_answer(*card, event.at);
    }
    answer.registered = tracker_.is_module(answer.module);
    event.tone = answer.ret == 0 ? Tone::plain : Tone::bad;
    event.text = answer_text(answer);
    event.more = {{"answer", answer_json(answer)}};
    tell(event);
}

void CardEvents::tell_role(const std::optional<int32_t> &role, Event event)
{
    if (std::exchange(role_, role) == role) {
        return;
    }
    event.kind = "role";
    event.text = role ? "this device's role is " + role_word(*role) : "this device's role is not known";
    event.more = {{"role", role ? Json(role_word(*role)) : Json(nullptr)}};
    tell(event);
}

void CardEvents::decided(const Decision &decision) const
{
    Event event;
    event.at = decision.decided_at;
    event.kind = "decision";
    event.position = decision.card.position;
    event.name = decision.card.name;
    event.text = decision_text(decision);
    event.tone = tone_of(decision);
    event.meanwhile = meanwhile_;
    event.more = {{"decision", decision_json(decision)}};
    tell(event);
}

std::string CardEvents::reason_of(const TrackedCard &card) const
{
    if (const Decision *denial = denial_of(card)) {
        return denial->reason;
    }
    const auto told = told_reasons_.find(card.card.position);
    return card.denied && told != told_reasons_.end() ? told->second : "";
}

void CardEvents::all_told(Time at)
{
    meanwhile_ = true;
    tracker_.snapshot_done(at);
    listening_ = true;
}

void CardEvents::store_lost(int32_t db, Time at)
{
    health_.hear_store(db, false, at);
    Event event;
    event.at = at;
    event.kind = "store";
    event.tone = Tone::warning;
    event.text = "lost the store, database " + std::to_string(db) + "; connecting again";
    event.more = {{"db", db}, {"connected", false}};
    tell(event);
}

void CardEvents::store_returned(int32_t db, bool same_data, Time at)
{
    health_.hear_store(db, true, at);
    Event event;
    event.at = at;
    event.kind = "store";
    event.text = "the store is back, database " + std::to_string(db) +
                 (same_data ? "" : ", with other data than before");
    event.tone = same_data ? Tone::plain : Tone::warning;
    event.more = {{"db", db}, {"connected", true}, {"same_data", same_data}};
    tell(event);
}

void CardEvents::daemon_heard(bool answers, const std::string &problem, Time at)
{
    if (!health_.hear_daemon(answers, at)) {
        return;
    }
    Event event;
    event.at = at;
    event.kind = "daemon";
    event.tone = answers ? Tone::plain : Tone::bad;
    event.text = answers ? "the daemon answers again"
                         : "the daemon no longer answers, so cards that come now may start unchecked: " +
                               visible(problem);
    event.more = {{"answers", answers}, {"problem", answers ? Json(nullptr) : Json(problem)}};
    tell(event);
}

void CardEvents::heartbeat_read(const Heartbeat &heartbeat, Time at)
{
    if (heartbeat.at) {
        has_history_ = true;
        history_read("", at);
        recorder_heard(!heartbeat.is_old(at), *heartbeat.at, at);
    } else if (has_history_ && !heartbeat.problem.empty()) {
        history_read(heartbeat.problem, at);
    }
}

void CardEvents::recorder_heard(bool at_work, Time last_heartbeat, Time at)
{
    if (!health_.hear_recorder(at_work, last_heartbeat)) {
        return;
    }
    Event event;
    event.at = at;
    event.kind = "recorder";
    event.tone = at_work ? Tone::plain : Tone::warning;
    event.text = at_work ? "cg_recorderd is at work again"
                         : "cg_recorderd has written nothing since " + clock_text(last_heartbeat, at);
    event.more = {{"at_work", at_work}, {"alive_at", utc_text(last_heartbeat)}, {"problem", nullptr}};
    tell(event);
}

void CardEvents::history_read(const std::string &problem, Time at)
{
    if (!health_.hear_history(problem.empty(), at)) {
        return;
    }
    Event event;
    event.at = at;
    event.kind = "recorder";
    event.tone = problem.empty() ? Tone::plain : Tone::warning;
    event.text = problem.empty() ? "the history can be read again"
                                 : "whether cg_recorderd is at work is not known: " + visible(problem);
    event.more = {{"at_work", nullptr},
                  {"alive_at", nullptr},
                  {"problem", problem.empty() ? Json(nullptr) : Json(problem)}};
    tell(event);
}

Json event_json(const Event &event)
{
    Json json{{"version", 1},
              {"time", utc_text(event.at)},
              {"event", event.kind},
              {"card", event.position ? Json(event.position->text()) : Json(nullptr)},
              {"name", event.position ? Json(event.name) : Json(nullptr)},
              {"meanwhile", event.meanwhile}};
    json.update(event.more);
    return json;
}

std::string event_text(const Event &event)
{
    if (!event.position) {
        return event.text;
    }
    return event.position->text() + (event.name.empty() ? "" : ' ' + visible(event.name)) + ": " +
           event.text + (event.meanwhile ? " (while the store was away)" : "");
}

} // namespace cg
