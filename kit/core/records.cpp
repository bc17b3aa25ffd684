// The records that a module reads and writes.
#include "core/records.h"

#include "p_libpub.pb-c.h"

namespace kit
{

namespace
{

using RequestRecord = PLibpub__AppCgCardCheckInfo;
using CardRecord = PDev__CardInfo;
using Index = PDev__CardInfoIndex;

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

void add_info(const CardRecord &card, Facts &facts)
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

} // namespace

const ProtobufCMessageDescriptor &request_type()
{
    return p_libpub__app_cg_card_check_info__descriptor;
}

const ProtobufCMessageDescriptor &card_type()
{
    return p_dev__card_info__descriptor;
}

std::optional<Request> request_in(const store::Change &change)
{
    const auto *record = reinterpret_cast<const RequestRecord *>(change.record);
    if (record == nullptr || record->index == nullptr) {
        return std::nullopt;
    }
    return request_of(*record);
}

std::optional<Facts> card_in(const store::Change &change)
{
    const auto *record = reinterpret_cast<const CardRecord *>(change.record);
    if (record == nullptr || record->index == nullptr) {
        return std::nullopt;
    }
    Facts facts;
    facts.request = {position_of(*record->index), record->config_dev_type,
                     record->static_info == nullptr ? 0 : record->static_info->node_type,
                     record->card_nodeid};
    add_info(*record, facts);
    return facts;
}

store::Status read_info(store::Client &client, Facts &facts)
{
    CardRecord key = P_DEV__CARD_INFO__INIT;
    Index index = index_of(facts.request.position);
    key.index = &index;
    const auto found = client.read(database, key.base);
    if (found && found.value) {
        add_info(reinterpret_cast<const CardRecord &>(*found.value->message), facts);
    }
    return found;
}

store::Result<bool> stands(store::Client &client, const Request &request)
{
    RequestRecord key = P_LIBPUB__APP_CG_CARD_CHECK_INFO__INIT;
    Index index = index_of(request.position);
    key.index = &index;
    const auto found = client.read(database, key.base);
    store::Result<bool> result{found, false};
    if (found && found.value) {
        const auto &record = reinterpret_cast<const RequestRecord &>(*found.value->message);
        result.value = record.index != nullptr && request_of(record) == request;
    }
    return result;
}

store::Status write_answer(store::Client &client, const Position &position, const std::string &module,
                           const Answer &answer)
{
    constexpr int32_t ret_pass = 0;
    constexpr int32_t ret_deny = 1;
    std::string name = module; // the generated structures hold texts that are not const
    std::string reason = answer.pass ? "" : answer.reason;
    PLibpub__AppCgCardCheckAckIndex index = P_LIBPUB__APP_CG_CARD_CHECK_ACK_INDEX__INIT;
    index.devid = position.devid;
    index.slotid = position.slotid;
    index.t_sslotid = position.sslotid;
    index.mod_name = name.data();
    PLibpub__AppCgCardCheckAck record = P_LIBPUB__APP_CG_CARD_CHECK_ACK__INIT;
    record.index = &index;
    record.ret = answer.pass ? ret_pass : ret_deny;
    record.reason = reason.data();
    return client.set(database, record.base);
}

} // namespace kit
