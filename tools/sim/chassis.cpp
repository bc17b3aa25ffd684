// The device around the daemon, as it writes into the store.
#include "chassis.h"

#include <array>
#include <cerrno>

#include "base/failure.h"
#include "base/text.h"
#include "records/position_key.h"
#include "records/record_types.h"
#include "s_dev.pb-c.h"

namespace cg
{

namespace
{

const int32_t card_database = home_of(p_dev__card_info__descriptor);

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
    const auto found = client_.exists(card_database, CardInfoAt(position).record.base);
    require(found, "look up " + position.text());
    return found.value;
}

void Chassis::plug(const NewCard &card)
{
    require(client_.set(card_database, *card_info_of(card)), "plug " + card.position.text());
}

void Chassis::change(const Position &position, scenario::Move move)
{
    static constexpr std::array is_online{int32_t{7}}; // the field's number
    CardInfoAt card(position);
    if (move == scenario::Move::pull) {
        require(client_.erase(card_database, card.record.base), "pull " + position.text());
        return;
    }
    card.record.is_online = static_cast<protobuf_c_boolean>(move == scenario::Move::online);
    require(client_.set_fields(card_database, card.record.base, is_online), "switch " + position.text());
}

void Chassis::set_role(PDev__DmRoleE role)
{
    static constexpr std::array my_grole{int32_t{6}};
    PDev__DpLibGrole record = P_DEV__DP_LIB_GROLE__INIT;
    record.my_grole = role;
    require(client_.set_fields(home_of(*record.base.descriptor), record.base, my_grole), "write the role");
}

void Chassis::answer(const DueAnswer &answer)
{
    const Position &position = answer.position;
    const CheckRequestAt request(position);
    const auto found = client_.exists(home_of(*request.record.base.descriptor), request.record.base);
    require(found, "look up the request for " + position.text());
    if (!found.value) {
        return;
    }
    std::string module = answer.module; // the generated structures hold texts that are not const
    std::string reason = answer.reason;
    PLibpub__AppCgCardCheckAckIndex index = P_LIBPUB__APP_CG_CARD_CHECK_ACK_INDEX__INIT;
    index.devid = position.devid;
    index.slotid = position.slotid;
    index.t_sslotid = position.sslotid;
    index.mod_name = module.data();
    PLibpub__AppCgCardCheckAck record = P_LIBPUB__APP_CG_CARD_CHECK_ACK__INIT;
    record.index = &index;
    record.ret = answer.pass ? 0 : 1;
    record.reason = reason.data();
    require(client_.set(home_of(*record.base.descriptor), record.base),
            "write the answer of " + visible(answer.module));
}

void Chassis::forget_power_off(const Position &position)
{
    constexpr int32_t position_fields = 3;
    SDev__ImCardPowerOnoffIndex index = S_DEV__IM_CARD_POWER_ONOFF_INDEX__INIT;
    index.devid = position.devid;
    index.slotid = position.slotid;
    index.sslotid = position.sslotid;
    SDev__ImCardPowerOnoff record = S_DEV__IM_CARD_POWER_ONOFF__INIT;
    record.index = &index;
    require(client_.erase_matching(home_of(*record.base.descriptor), record.base, position_fields),
            "delete the power-off requests of " + position.text());
}

} // namespace cg
