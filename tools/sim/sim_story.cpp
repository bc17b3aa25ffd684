// What a change of the store means to who watches a scenario: one line of the story.
#include <string_view>

#include "admission/card_text.h"
#include "admission/feed.h"
#include "base/text.h"
#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"
#include "s_dev.pb-c.h"
#include "sim_player.h"
#include "vx_mom.h"

namespace cg
{

namespace
{

struct Told {
    std::string kind{};
    std::optional<Position> card{};
    std::string text{};
    Tone tone = Tone::plain;
    Json more = Json::object();
};

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

Told told_card(bool deleted, const ProtobufCMessage &record, const admission::CardTracker &tracker)
{
    const admission::CardFacts facts = admission::facts_of(record);
    const admission::TrackedCard *before = tracker.find(facts.position);
    const bool was_there = before != nullptr && before->state != admission::State::absent;
    if (deleted) {
        return {"pulled", facts.position, "pulled", Tone::heading};
    }
    if (!was_there) {
        const std::string text = std::string("plugged: ") + kind_text(facts.node_type) + " '" +
                                 visible(facts.name) + (facts.online ? "', on line" : "', not yet on line");
        return {
            "plugged", facts.position, text, Tone::heading, {{"name", facts.name}, {"online", facts.online}}};
    }
    if (before->card.online == facts.online) {
        return {};
    }
    return facts.online ? Told{"online", facts.position, "is on line", Tone::heading}
                        : Told{"offline", facts.position, "went off line", Tone::heading};
}

Told told_role(bool deleted, const ProtobufCMessage &record)
{
    const std::string role = role_word(static_cast<int32_t>(as<PDev__DpLibGrole>(record).my_grole));
    return deleted ? Told{}
                   : Told{"role", std::nullopt, "this device is " + role, Tone::plain, {{"role", role}}};
}

Told told_answer(const PLibpub__AppCgCardCheckAck &ack)
{
    const Position position{ack.index->devid, ack.index->slotid, ack.index->t_sslotid};
    const std::string reason = visible(ack.reason);
    const std::string verdict = ack.ret == 0     ? "PASS"
                                : reason.empty() ? "DENY and gives no reason"
                                                 : "DENY: " + reason;
    return {"answer",
            position,
            visible(ack.index->mod_name) + " answers " + verdict,
            ack.ret == 0 ? Tone::plain : Tone::waiting,
            {{"module", ack.index->mod_name}, {"ret", ack.ret}, {"reason", ack.reason}}};
}

Told told_of(int32_t cmd, const ProtobufCMessage &record, const admission::CardTracker &tracker)
{
    const bool deleted = cmd == VX_MOM_CMD_DELETED;
    const ProtobufCMessageDescriptor *type = record.descriptor;
    if (type == &p_dev__dp_lib_grole__descriptor) {
        return told_role(deleted, record);
    }
    if (type == &p_dev__card_info__descriptor && as<PDev__CardInfo>(record).index != nullptr) {
        return told_card(deleted, record, tracker);
    }
    if (deleted) {
        return {};
    }
    if (type == &p_libpub__app_cg_card_check_info__descriptor) {
        const auto *index = as<PLibpub__AppCgCardCheckInfo>(record).index;
        return index == nullptr ? Told{}
                                : Told{"request", Position{index->devid, index->slotid, index->sslotid},
                                       "held; the check modules are asked"};
    }
    if (type == &p_libpub__app_cg_card_check_ack__descriptor &&
        as<PLibpub__AppCgCardCheckAck>(record).index != nullptr) {
        return told_answer(as<PLibpub__AppCgCardCheckAck>(record));
    }
    if (type == &p_dev__dm_set_card_custom_st__descriptor &&
        as<PDev__DmSetCardCustomSt>(record).index != nullptr) {
        const auto &index = *as<PDev__DmSetCardCustomSt>(record).index;
        return {"marked", Position{index.t_devid, index.t_slotid, index.t_sslotid},
                "marked as unable to start", Tone::bad};
    }
    if (type == &s_dev__im_card_power_onoff__descriptor &&
        as<SDev__ImCardPowerOnoff>(record).index != nullptr &&
        as<SDev__ImCardPowerOnoff>(record).updown == 0) {
        const auto &index = *as<SDev__ImCardPowerOnoff>(record).index;
        return {"power_off", Position{index.devid, index.slotid, index.sslotid},
                "power-off requested: " + visible(index.cause), Tone::bad};
    }
    return {};
}

} // namespace

void SimPlayer::tell_change(int32_t cmd, const ProtobufCMessage &record) const
{
    const Told told = told_of(cmd, record, tracker_);
    if (!told.kind.empty()) {
        tell(told.kind, told.card, told.text, told.tone, told.more);
    }
}

} // namespace cg
