// The records that a module reads and writes.
#include "core/records.h"

#include <cerrno>
#include <memory>

#include "p_libpub.pb-c.h"

namespace kit
{

namespace
{

using RequestRecord = PLibpub__AppCgCardCheckInfo;
using CardRecord = PDev__CardInfo;
using Index = PDev__CardInfoIndex;

struct FreeResult {
    void operator()(vx_mom_result_t *result) const noexcept { vx_mom_hash_res_free(result); }
};
using Result = std::unique_ptr<vx_mom_result_t, FreeResult>;

Position position_of(const Index &index)
{
    return {index.devid, index.slotid, index.sslotid};
}

Index index_of(const Position &position)
{
    Index index = P_DEV__CARD_INFO_INDEX__INIT;
    index.devid = position.devid;
    index.slotid = position.slotid;
    index.sslotid = position.sslotid;
    return index;
}

std::string text_of(const char *text)
{
    return text == nullptr ? "" : text;
}

void take_info(const CardRecord &card, Facts &facts)
{
    facts.has_info = true;
    facts.online = card.is_online != 0;
    facts.name = text_of(card.name);
    facts.type_name = card.static_info == nullptr ? "" : text_of(card.static_info->name);
    facts.serial.assign(card.serial.data, card.serial.data + card.serial.len);
}

Request request_of(const RequestRecord &record)
{
    return {position_of(*record.index), record.type, static_cast<int32_t>(record.node_type),
            record.card_nodeid};
}

// The record that a notification is about; null when there is none.
const ProtobufCMessage *record_in(const vx_mom_pmsg_t &message, int32_t &error)
{
    error = 0;
    switch (message.cmd) {
    case VX_MOM_CMD_DELETED:
        return message.record;
    case VX_MOM_CMD_SET:
    case VX_MOM_CMD_HMSET:
        error = message.result == nullptr ? -EIO : message.result->error_code;
        return error == 0 ? message.result->record : nullptr;
    default:
        return nullptr;
    }
}

} // namespace

int32_t subscribe_requests(vx_global_t *context, vx_mom_pmsg_f callback, void *arg)
{
    RequestRecord pattern = P_LIBPUB__APP_CG_CARD_CHECK_INFO__INIT;
    Index index = index_of({});
    pattern.index = &index;
    return vx_mom_subscribe(context, database, &pattern.base, 0, callback, arg);
}

int32_t subscribe_cards(vx_global_t *context, vx_mom_pmsg_f callback, void *arg)
{
    CardRecord pattern = P_DEV__CARD_INFO__INIT;
    Index index = index_of({});
    pattern.index = &index;
    return vx_mom_subscribe(context, database, &pattern.base, 0, callback, arg);
}

std::optional<Told> request_told(const vx_mom_pmsg_t &message, int32_t &error)
{
    const auto *record = reinterpret_cast<const RequestRecord *>(record_in(message, error));
    if (record == nullptr || record->index == nullptr) {
        return std::nullopt;
    }
    Told told;
    told.facts.request = request_of(*record);
    told.present = message.cmd != VX_MOM_CMD_DELETED;
    return told;
}

std::optional<Told> card_told(const vx_mom_pmsg_t &message, int32_t &error)
{
    const auto *record = reinterpret_cast<const CardRecord *>(record_in(message, error));
    if (record == nullptr || record->index == nullptr) {
        return std::nullopt;
    }
    Told told;
    told.facts.request = {position_of(*record->index), record->config_dev_type,
                          record->static_info == nullptr ? 0 : record->static_info->node_type,
                          record->card_nodeid};
    take_info(*record, told.facts);
    told.present = message.cmd != VX_MOM_CMD_DELETED;
    return told;
}

int32_t read_info(vx_global_t *context, Facts &facts)
{
    CardRecord wanted = P_DEV__CARD_INFO__INIT;
    Index index = index_of(facts.request.position);
    wanted.index = &index;
    const Result result{vx_mom_hgetall_sync(context, database, &wanted.base)};
    if (!result) {
        return -ENOMEM;
    }
    if (result->error_code == 0 && result->record != nullptr) {
        take_info(*reinterpret_cast<const CardRecord *>(result->record), facts);
    }
    return result->error_code;
}

int32_t stands(vx_global_t *context, const Request &request)
{
    RequestRecord wanted = P_LIBPUB__APP_CG_CARD_CHECK_INFO__INIT;
    Index index = index_of(request.position);
    wanted.index = &index;
    const Result result{vx_mom_hgetall_sync(context, database, &wanted.base)};
    if (!result) {
        return -ENOMEM;
    }
    if (result->error_code != 0 || result->record == nullptr) {
        return result->error_code;
    }
    const auto &found = *reinterpret_cast<const RequestRecord *>(result->record);
    return found.index != nullptr && request_of(found) == request ? 1 : 0;
}

int32_t write_answer(vx_global_t *context, const Position &position, const std::string &module, bool pass,
                     const std::string &reason)
{
    constexpr int32_t ret_pass = 0;
    constexpr int32_t ret_deny = 1;
    std::string name = module; // the structures want texts that could be changed
    std::string text = pass ? "" : reason;
    PLibpub__AppCgCardCheckAckIndex index = P_LIBPUB__APP_CG_CARD_CHECK_ACK_INDEX__INIT;
    index.devid = position.devid;
    index.slotid = position.slotid;
    index.t_sslotid = position.sslotid;
    index.mod_name = name.data();
    PLibpub__AppCgCardCheckAck answer = P_LIBPUB__APP_CG_CARD_CHECK_ACK__INIT;
    answer.index = &index;
    answer.ret = pass ? ret_pass : ret_deny;
    answer.reason = text.data();
    return vx_mom_set_sync(context, database, &answer.base);
}

} // namespace kit
