// What happens in a play, as events to report.
#include "story.h"

#include <array>

#include "admission/card_text.h"
#include "admission/feed.h"
#include "base/text.h"
#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"
#include "s_dev.pb-c.h"
#include "store/change.h"

namespace cg
{

namespace
{

template <typename Record>
const Record &as(const ProtobufCMessage &record)
{
    return reinterpret_cast<const Record &>(record); // every record begins with its ProtobufCMessage
}

const char *kind_text(int32_t node_type)
{
    static constexpr std::array texts{"card",     "box",         "board card",  "line card",
                                      "sub-card", "fabric card", "service card"};
    const auto number = static_cast<std::size_t>(node_type);
    return number < texts.size() ? texts.at(number) : texts.front();
}

Position at(const PDev__CardInfoIndex &index)
{
    return {index.devid, index.slotid, index.sslotid};
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
    const ProtobufCMessageDescriptor *type = record.descriptor;
    if (type == &p_dev__dp_lib_grole__descriptor) {
        const std::string role = role_word(static_cast<int32_t>(as<PDev__DpLibGrole>(record).my_grole));
        return Event{"role", std::nullopt, "this device is " + role, Tone::plain, {{"role", role}}};
    }
    if (type == &p_libpub__app_cg_card_check_info__descriptor) {
        const auto *index = as<PLibpub__AppCgCardCheckInfo>(record).index;
        return index == nullptr ? std::optional<Event>{}
                                : Event{"request", at(*index), "held; the check modules are asked"};
    }
    if (type == &p_libpub__app_cg_card_check_ack__descriptor) {
        const auto &ack = as<PLibpub__AppCgCardCheckAck>(record);
        return ack.index == nullptr ? std::optional<Event>{} : answer_event(ack);
    }
    if (type == &p_dev__dm_set_card_custom_st__descriptor) {
        const auto *index = as<PDev__DmSetCardCustomSt>(record).index;
        return index == nullptr ? std::optional<Event>{}
                                : Event{"marked", Position{index->t_devid, index->t_slotid, index->t_sslotid},
                                        "marked as unable to start", Tone::bad};
    }
    if (type == &s_dev__im_card_power_onoff__descriptor) {
        const auto &power = as<SDev__ImCardPowerOnoff>(record);
        return power.index == nullptr || power.updown != 0
                   ? std::optional<Event>{}
                   : Event{"power_off",
                           Position{power.index->devid, power.index->slotid, power.index->sslotid},
                           "power-off requested: " + visible(power.index->cause), Tone::bad};
    }
    return std::nullopt;
}

} // namespace

std::optional<Event> event_of(int32_t cmd, const ProtobufCMessage &record,
                              const admission::CardTracker &tracker)
{
    const bool deleted = cmd == VX_MOM_CMD_DELETED;
    if (record.descriptor == &p_dev__card_info__descriptor) {
        return as<PDev__CardInfo>(record).index == nullptr ? std::nullopt
                                                           : card_event(deleted, record, tracker);
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
