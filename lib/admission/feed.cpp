// From records to the tracker's events.
#include "admission/feed.h"

#include <algorithm>
#include <utility>

#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"
#include "s_dev.pb-c.h"
#include "vx_mom.h"

namespace admission
{

namespace
{

struct Event {
    CardTracker &tracker;
    bool deleted;
    bool existing;
    Time at;
};

template <typename Record>
const Record &as(const ProtobufCMessage &record)
{
    return reinterpret_cast<const Record &>(record); // every record begins with its ProtobufCMessage
}

template <typename Index>
Position position_of(const Index &index)
{
    return {index.devid, index.slotid, index.sslotid};
}

std::string hexadecimal(const ProtobufCBinaryData &bytes)
{
    constexpr const char *digits = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < bytes.len; ++i) {
        text += digits[bytes.data[i] >> 4U];
        text += digits[bytes.data[i] & 0xFU];
    }
    return text;
}

void feed_card(const Event &event, const ProtobufCMessage &record)
{
    const auto &info = as<PDev__CardInfo>(record);
    if (info.index == nullptr) {
        return;
    }
    if (event.deleted) {
        event.tracker.card_deleted(position_of(*info.index), event.at);
    } else {
        event.tracker.card_written(facts_of(record), event.at, event.existing);
    }
}

void feed_request(const Event &event, const ProtobufCMessage &record)
{
    const auto &request = as<PLibpub__AppCgCardCheckInfo>(record);
    if (request.index == nullptr) {
        return;
    }
    if (event.deleted) {
        event.tracker.request_deleted(position_of(*request.index), event.at, event.existing);
    } else {
        event.tracker.request_written(position_of(*request.index), event.at, event.existing);
    }
}

// That the daemon has taken an answer says nothing new.
void feed_answer(const Event &event, const ProtobufCMessage &record)
{
    const auto &ack = as<PLibpub__AppCgCardCheckAck>(record);
    if (ack.index == nullptr || event.deleted) {
        return;
    }
    Answer answer;
    answer.module = ack.index->mod_name;
    answer.ret = ack.ret;
    answer.reason = ack.reason;
    answer.at = event.at;
    event.tracker.answered({ack.index->devid, ack.index->slotid, ack.index->t_sslotid}, std::move(answer),
                           event.existing);
}

void feed_result(const Event &event, const ProtobufCMessage &record)
{
    const auto &result = as<PLibpub__AppCgMomDenyCheckResult>(record);
    if (result.index == nullptr) {
        return;
    }
    if (event.deleted) {
        event.tracker.result_deleted(result.index->card_tipc_nodeid, event.at);
    } else {
        event.tracker.result_written(result.index->card_tipc_nodeid,
                                     result.stat == P_LIBPUB__APP_CG_CARD_CHECK_STAT__APP_CG_CHECK_PASS,
                                     event.at, event.existing);
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

const std::array<TrackedType, 7> &tracked_types()
{
    static const std::array<TrackedType, 7> types{{{&p_dev__dp_lib_grole__descriptor, 1},
                                                   {&p_dev__card_info__descriptor, 1},
                                                   {&p_libpub__app_cg_card_check_info__descriptor, 1},
                                                   {&p_libpub__app_cg_card_check_ack__descriptor, 1},
                                                   {&p_libpub__app_cg_mom_deny_check_result__descriptor, 1},
                                                   {&p_dev__dm_set_card_custom_st__descriptor, 33},
                                                   {&s_dev__im_card_power_onoff__descriptor, 33}}};
    return types;
}

bool InPlace::told(const ProtobufCMessageDescriptor *type)
{
    types_.insert(type);
    return types_.size() == tracked_types().size();
}

void InPlace::lost(int32_t db)
{
    for (const TrackedType &type : tracked_types()) {
        if (type.db == db) {
            types_.erase(type.descriptor);
        }
    }
}

bool InPlace::is_complete(int32_t db) const
{
    const auto &all = tracked_types();
    return std::all_of(all.begin(), all.end(), [&](const TrackedType &type) {
        return type.db != db || types_.contains(type.descriptor);
    });
}

std::vector<const ProtobufCMessageDescriptor *> InPlace::overdue(Time now)
{
    constexpr std::chrono::seconds patience{10};
    const auto &all = tracked_types();
    if (types_.empty() || types_.size() == all.size()) {
        partly_since_.reset();
        overdue_told_ = false;
        return {};
    }
    partly_since_ = std::min(now, partly_since_.value_or(now)); // the clock may be set back
    if (now - *partly_since_ < patience || std::exchange(overdue_told_, true)) {
        return {};
    }
    std::vector<const ProtobufCMessageDescriptor *> missing;
    for (const TrackedType &type : all) {
        if (!types_.contains(type.descriptor)) {
            missing.push_back(type.descriptor);
        }
    }
    return missing;
}

CardFacts facts_of(const ProtobufCMessage &card_info)
{
    const auto &info = as<PDev__CardInfo>(card_info);
    CardFacts facts;
    facts.position = position_of(*info.index);
    facts.name = info.name;
    facts.serial = hexadecimal(info.serial);
    facts.node_type = info.static_info == nullptr ? 0 : info.static_info->node_type;
    facts.config_dev_type = info.config_dev_type;
    facts.nodeid = info.card_nodeid;
    facts.tipc_nodeid = info.card_tipc_nodeid;
    facts.online = info.is_online != 0;
    return facts;
}

void feed(CardTracker &tracker, int32_t cmd, const ProtobufCMessage &record, const Change &change)
{
    if (cmd != VX_MOM_CMD_SET && cmd != VX_MOM_CMD_HMSET && cmd != VX_MOM_CMD_SCANNED &&
        cmd != VX_MOM_CMD_DELETED) {
        return;
    }
    static constexpr std::array handlers{feed_role,   feed_card,          feed_request, feed_answer,
                                         feed_result, feed_custom_status, feed_power};
    const Event event{tracker, cmd == VX_MOM_CMD_DELETED, change.existing, change.at};
    const auto &types = tracked_types();
    for (std::size_t i = 0; i < types.size(); ++i) {
        if (types.at(i).descriptor == record.descriptor) {
            handlers.at(i)(event, record);
        }
    }
}

void feed(CardTracker &tracker, int32_t cmd, const ProtobufCMessage &record, bool existing, Time at)
{
    feed(tracker, cmd, record, Change{at, existing});
}

} // namespace admission
