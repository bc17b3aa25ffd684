// What happens in a play, as events to report.
#include "story.h"

#include <array>

#include "admission/card_text.h"
#include "admission/feed.h"
#include "base/text.h"
#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"
#include "s_dev.pb-c.h"

namespace cg
{

namespace
{

// The record as its type, when it is of that and has its key; else null.
template <typename Record>
const Record *as(const ProtobufCMessage &record, const ProtobufCMessageDescriptor &type)
{
    const auto *const typed = reinterpret_cast<const Record *>(&record); // which begins with it
    return record.descriptor == &type && typed->index != nullptr ? typed : nullptr;
}

template <typename Index>
Position at(const Index &index)
{
    return {index.devid, index.slotid, index.sslotid};
}

const char *kind_text(int32_t node_type)
{
    static constexpr std::array texts{"card",     "box",         "main board",   "line card",
                                      "sub-card", "fabric card", "service card", "service card"};
    const auto number = static_cast<std::size_t>(node_type);
    return number < texts.size() ? texts.at(number) : texts.front();
}

std::optional<Event> card_event(bool deleted, const ProtobufCMessage &record,
                                const admission::CardTracker &tracker)
{
    const admission::CardFacts facts = admission::facts_of(record);
    const admission::TrackedCard *before = tracker.find(facts.position);
    if (deleted) {
        return Event{"pulled", facts.position, "pulled", Tone::heading};
    }
    if (before == nullptr || before->state == admission::State::absent) {
        const std::string text = std::string("plugged: ") + kind_text(facts.node_type) + " '" +
                                 visible(facts.name) + (facts.online ? "', online" : "', offline");
        return Event{
            "plugged", facts.position, text, Tone::heading, {{"name", facts.name}, {"online", facts.online}}};
    }
    if (before->card.online == facts.online) {
        return std::nullopt;
    }
    return facts.online ? Event{"online", facts.position, "is online", Tone::heading}
                        : Event{"offline", facts.position, "went offline", Tone::heading};
}

Event answer_event(const PLibpub__AppCgCardCheckAck &ack)
{
    const std::string reason = visible(ack.reason);
    const std::string verdict = ack.ret == 0     ? "PASS"
                                : reason.empty() ? "DENY and gives no reason"
                                                 : "DENY: " + reason;
    return {"answer",
            Position{ack.index->devid, ack.index->slotid, ack.index->t_sslotid},
            visible(ack.index->mod_name) + " answers " + verdict,
            ack.ret == 0 ? Tone::plain : Tone::waiting,
            {{"module", ack.index->mod_name}, {"ret", ack.ret}, {"reason", ack.reason}}};
}

// A record that was written, and is no card.
std::optional<Event> written_event(const ProtobufCMessage &record)
{
    if (record.descriptor == &p_dev__dp_lib_grole__descriptor) {
        const auto &grole = reinterpret_cast<const PDev__DpLibGrole &>(record);
        const std::string role = role_word(static_cast<int32_t>(grole.my_grole));
        return Event{"role", std::nullopt, "this device is " + role, Tone::plain, {{"role", role}}};
    }
    if (const auto *request =
            as<PLibpub__AppCgCardCheckInfo>(record, p_libpub__app_cg_card_check_info__descriptor)) {
        return Event{"request", at(*request->index), "held; the check modules are asked"};
    }
    if (const auto *ack =
            as<PLibpub__AppCgCardCheckAck>(record, p_libpub__app_cg_card_check_ack__descriptor)) {
        return answer_event(*ack);
    }
    if (const auto *custom = as<PDev__DmSetCardCustomSt>(record, p_dev__dm_set_card_custom_st__descriptor)) {
        const auto &index = *custom->index;
        return Event{"marked", Position{index.t_devid, index.t_slotid, index.t_sslotid},
                     "marked as unable to start", Tone::bad};
    }
    const auto *power = as<SDev__ImCardPowerOnoff>(record, s_dev__im_card_power_onoff__descriptor);
    if (power != nullptr && power->updown == 0) {
        return Event{"power_off", at(*power->index), "power-off requested: " + visible(power->index->cause),
                     Tone::bad};
    }
    return std::nullopt;
}

} // namespace

std::optional<Event> event_of(bool deleted, const ProtobufCMessage &record,
                              const admission::CardTracker &tracker)
{
    if (as<PDev__CardInfo>(record, p_dev__card_info__descriptor) != nullptr) {
        return card_event(deleted, record, tracker);
    }
    return deleted ? std::nullopt : written_event(record);
}

Event event_of(const admission::Decision &decision)
{
    using admission::Outcome;
    const bool ended = decision.outcome != Outcome::withdrawn && decision.outcome != Outcome::unseen;
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
    return {"decision", decision.card.position, text, tone, {{"decision", decision_json(decision)}}};
}

Event event_of(const ExpectationResult &result)
{
    return {"expectation",
            result.position,
            result.held ? "" : "MISSED: expected " + result.expected + ", seen " + result.seen,
            Tone::bad,
            {{"file", result.file},
             {"line", result.line},
             {"expected", result.expected},
             {"seen", result.seen},
             {"held", result.held},
             {"after_s", static_cast<double>(result.after.count()) / 1000}}};
}

} // namespace cg
