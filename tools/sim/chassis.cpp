// The device around the daemon, as it writes into the store.
#include "chassis.h"

#include <array>
#include <cerrno>

#include "base/failure.h"
#include "base/text.h"
#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"
#include "records/record_text.h"
#include "s_dev.pb-c.h"

namespace cg
{

namespace
{

constexpr int32_t host = 1; // the databases
constexpr int32_t dev_global = 33;

PDev__CardInfoIndex index_of(const Position &position)
{
    PDev__CardInfoIndex index = P_DEV__CARD_INFO_INDEX__INIT;
    index.devid = position.devid;
    index.slotid = position.slotid;
    index.sslotid = position.sslotid;
    return index;
}

// protobuf-c knows no constant texts; what is written is not changed.
char *text(const std::string &value)
{
    return const_cast<char *>(value.c_str());
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
    PDev__CardInfoIndex index = index_of(position);
    PDev__CardInfo card = P_DEV__CARD_INFO__INIT;
    card.index = &index;
    const auto found = client_.exists(host, card.base);
    require(found, "look up " + position.text());
    return found.value;
}

void Chassis::plug(const NewCard &card)
{
    const MessagePtr record = from_json(p_dev__card_info__descriptor, card_info_of(card));
    require(client_.set(host, *record), "plug " + card.position.text());
}

void Chassis::change(const Position &position, scenario::Move move)
{
    static constexpr std::array is_online{int32_t{7}}; // the field's number
    PDev__CardInfoIndex index = index_of(position);
    PDev__CardInfo card = P_DEV__CARD_INFO__INIT;
    card.index = &index;
    card.is_online = static_cast<protobuf_c_boolean>(move == scenario::Move::online);
    if (move == scenario::Move::pull) {
        require(client_.erase(host, card.base), "pull " + position.text());
    } else {
        require(client_.set_fields(host, card.base, is_online), "switch " + position.text());
    }
}

void Chassis::set_role(PDev__DmRoleE role)
{
    static constexpr std::array my_grole{int32_t{6}};
    PDev__DpLibGrole record = P_DEV__DP_LIB_GROLE__INIT;
    record.my_grole = role;
    require(client_.set_fields(host, record.base, my_grole), "write the role");
}

void Chassis::answer(const DueAnswer &answer)
{
    PDev__CardInfoIndex asked = index_of(answer.position);
    PLibpub__AppCgCardCheckInfo request = P_LIBPUB__APP_CG_CARD_CHECK_INFO__INIT;
    request.index = &asked;
    const auto found = client_.exists(host, request.base);
    require(found, "look up the request for " + answer.position.text());
    if (!found.value) {
        return;
    }
    PLibpub__AppCgCardCheckAckIndex index = P_LIBPUB__APP_CG_CARD_CHECK_ACK_INDEX__INIT;
    index.devid = answer.position.devid;
    index.slotid = answer.position.slotid;
    index.t_sslotid = answer.position.sslotid;
    index.mod_name = text(answer.module);
    PLibpub__AppCgCardCheckAck ack = P_LIBPUB__APP_CG_CARD_CHECK_ACK__INIT;
    ack.index = &index;
    ack.ret = answer.pass ? 0 : 1;
    ack.reason = text(answer.reason);
    require(client_.set(host, ack.base), "write the answer of " + visible(answer.module));
}

void Chassis::forget_power_off(const Position &position)
{
    constexpr int32_t position_fields = 3;
    SDev__ImCardPowerOnoffIndex index = S_DEV__IM_CARD_POWER_ONOFF_INDEX__INIT;
    index.devid = position.devid;
    index.slotid = position.slotid;
    index.sslotid = position.sslotid;
    SDev__ImCardPowerOnoff power = S_DEV__IM_CARD_POWER_ONOFF__INIT;
    power.index = &index;
    require(client_.erase_matching(dev_global, power.base, position_fields),
            "delete the power-off requests of " + position.text());
}

} // namespace cg
