// The device around the daemon, as it writes into the store.
#include "chassis.h"

#include <array>
#include <cerrno>

#include "base/failure.h"
#include "base/text.h"
#include "records/position_key.h"
#include "records/record_text.h"

namespace cg
{

namespace
{

MessagePtr keyed(const RecordType &type, const Position &position)
{
    return from_json(*type.descriptor, {{"index", key_of(position)}});
}

const RecordType &card_info()
{
    return record_type("p_dev.card_info");
}

} // namespace

void require(const store::Status &status, const std::string &what)
{
    if (!status) {
        throw Failure(status.code == -EINVAL ? wrong_usage : failed,
                      "cannot " + what + ": " + visible(status.reason));
    }
}

bool Chassis::has_card(const Position &position)
{
    const auto found = client_.exists(card_info().db, *keyed(card_info(), position));
    require(found, "look up " + position.text());
    return found.value;
}

void Chassis::plug(const NewCard &card)
{
    const MessagePtr record = from_json(*card_info().descriptor, card_info_of(card));
    require(client_.set(card_info().db, *record), "plug " + card.position.text());
}

void Chassis::change(const Position &position, scenario::Move move)
{
    static constexpr std::array is_online{int32_t{7}}; // the field's number
    if (move == scenario::Move::pull) {
        require(client_.erase(card_info().db, *keyed(card_info(), position)), "pull " + position.text());
        return;
    }
    const MessagePtr record =
        from_json(*card_info().descriptor,
                  {{"index", key_of(position)}, {"is_online", move == scenario::Move::online}});
    require(client_.set_fields(card_info().db, *record, is_online), "switch " + position.text());
}

void Chassis::set_role(PDev__DmRoleE role)
{
    static constexpr std::array my_grole{int32_t{6}};
    const RecordType &type = record_type("p_dev.dp_lib_grole");
    const MessagePtr record = from_json(*type.descriptor, {{"my_grole", static_cast<int32_t>(role)}});
    require(client_.set_fields(type.db, *record, my_grole), "write the role");
}

void Chassis::answer(const DueAnswer &answer)
{
    const Position &position = answer.position;
    const RecordType &request = record_type("p_libpub.app_cg_card_check_info");
    const auto found = client_.exists(request.db, *keyed(request, position));
    require(found, "look up the request for " + position.text());
    if (!found.value) {
        return;
    }
    const RecordType &ack = record_type("p_libpub.app_cg_card_check_ack");
    const Json key{{"devid", position.devid},
                   {"slotid", position.slotid},
                   {"t_sslotid", position.sslotid},
                   {"mod_name", answer.module}};
    const MessagePtr record =
        from_json(*ack.descriptor, {{"index", key}, {"ret", answer.pass ? 0 : 1}, {"reason", answer.reason}});
    require(client_.set(ack.db, *record), "write the answer of " + visible(answer.module));
}

void Chassis::forget_power_off(const Position &position)
{
    constexpr int32_t position_fields = 3;
    const RecordType &power = record_type("s_dev.im_card_power_onoff");
    require(client_.erase_matching(power.db, *keyed(power, position), position_fields),
            "delete the power-off requests of " + position.text());
}

} // namespace cg
