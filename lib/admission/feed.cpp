// From records to the tracker's events.
#include "admission/feed.h"

#include <string_view>

#include "base/text.h"
#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"
#include "s_dev.pb-c.h"

namespace admission
{

namespace
{

struct Event {
    CardTracker &tracker;
    bool deleted;
    const Change &change;
};

// Every record begins with its ProtobufCMessage.
template <typename Record>
const Record &as(const ProtobufCMessage &record)
{
    return reinterpret_cast<const Record &>(record);
}

template <typename Index>
Position position_of(const Index &index)
{
    return {index.devid, index.slotid, index.sslotid};
}

void feed_card(const Event &event, const ProtobufCMessage &record)
{
    const auto &info = as<PDev__CardInfo>(record);
    if (info.index == nullptr) {
        return;
    }
    if (event.deleted) {
        event.tracker.card_deleted(position_of(*info.index), event.change);
    } else {
        event.tracker.card_written(facts_of(record), event.change);
    }
}

void feed_request(const Event &event, const ProtobufCMessage &record)
{
    const auto &request = as<PLibpub__AppCgCardCheckInfo>(record);
    if (request.index == nullptr) {
        return;
    }
    if (event.deleted) {
        event.tracker.request_deleted(position_of(*request.index), event.change);
    } else {
        event.tracker.request_written(position_of(*request.index), event.change);
    }
}

void feed_answer(const Event &event, const ProtobufCMessage &record)
{
    const auto &ack = as<PLibpub__AppCgCardCheckAck>(record);
    if (ack.index == nullptr) {
        return;
    }
    const Position position{ack.index->devid, ack.index->slotid, ack.index->t_sslotid};
    Answer answer;
    answer.module = ack.index->mod_name;
    answer.ret = ack.ret;
    answer.reason = ack.reason;
    if (event.deleted) {
        event.tracker.answer_deleted(position, answer, event.change);
    } else {
        event.tracker.answer_written(position, answer, event.change);
    }
}

void feed_result(const Event &event, const ProtobufCMessage &record)
{
    const auto &result = as<PLibpub__AppCgMomDenyCheckResult>(record);
    if (result.index == nullptr) {
        return;
    }
    if (event.deleted) {
        event.tracker.result_deleted(result.index->card_tipc_nodeid, event.change);
    } else {
        event.tracker.result_written(result.index->card_tipc_nodeid,
                                     result.stat == P_LIBPUB__APP_CG_CARD_CHECK_STAT__APP_CG_CHECK_PASS,
                                     static_cast<int32_t>(result.node_type), event.change);
    }
}

void feed_custom_status(const Event &event, const ProtobufCMessage &record)
{
    const auto &custom = as<PDev__DmSetCardCustomSt>(record);
    if (custom.index == nullptr || std::string_view(custom.index->t_mod_name) != "APP_CG") {
        return;
    }
    const bool cannot_start = !event.deleted && custom.status == P_DEV__DM_CTM_STATUS_E__CANNOT_STARTUP;
    event.tracker.cannot_start_written(
        {custom.index->t_devid, custom.index->t_slotid, custom.index->t_sslotid}, cannot_start);
}

void feed_power(const Event &event, const ProtobufCMessage &record)
{
    const auto &power = as<SDev__ImCardPowerOnoff>(record);
    if (power.index != nullptr) {
        event.tracker.power_off_written(position_of(*power.index), !event.deleted && power.updown == 0);
    }
}

void feed_role(const Event &event, const ProtobufCMessage &record)
{
    const auto role = static_cast<int32_t>(as<PDev__DpLibGrole>(record).my_grole);
    event.tracker.set_role(event.deleted ? std::nullopt : std::optional(role));
}

} // namespace

CardFacts facts_of(const ProtobufCMessage &card_info)
{
    const auto &info = as<PDev__CardInfo>(card_info);
    CardFacts facts;
    facts.position = position_of(*info.index);
    facts.name = info.name;
    facts.serial = cg::to_hex(info.serial.data, info.serial.len);
    facts.node_type = info.static_info == nullptr ? 0 : info.static_info->node_type;
    facts.config_dev_type = info.config_dev_type;
    facts.nodeid = info.card_nodeid;
    facts.tipc_nodeid = info.card_tipc_nodeid;
    facts.online = info.is_online != 0;
    return facts;
}

void feed(CardTracker &tracker, const ProtobufCMessage &record, bool deleted, const Change &change)
{
    static constexpr std::array handlers{feed_role,   feed_card,          feed_request, feed_answer,
                                         feed_result, feed_custom_status, feed_power};
    const Event event{tracker, deleted, change};
    const auto &types = tracked_types();
    for (std::size_t i = 0; i < types.size(); ++i) {
        if (types.at(i).descriptor == record.descriptor) {
            handlers.at(i)(event, record);
        }
    }
}

} // namespace admission
