// What a cause says.
#include "explanation.h"

#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"
#include "records/position_key.h"
#include "records/record_text.h"
#include "store/codec/key.h"

namespace admission
{

namespace
{

using store::Cause;

// The record that a cause names, with nothing but its index; null when it names none of this type.
cg::MessagePtr record_in(const Cause &cause, const ProtobufCMessageDescriptor &type)
{
    std::string wire;
    if (cause.kind != Cause::Kind::record || !store::decode_key(type, cause.key, wire)) {
        return nullptr;
    }
    return cg::MessagePtr(protobuf_c_message_unpack(&type, nullptr, wire.size(),
                                                    reinterpret_cast<const uint8_t *>(wire.data())));
}

struct AnswerKey {
    Position position{};
    std::string module{};
};

std::optional<AnswerKey> answer_in(const Cause &cause)
{
    const cg::MessagePtr record = record_in(cause, p_libpub__app_cg_card_check_ack__descriptor);
    const std::optional<Position> position = record ? cg::position_of(*record) : std::nullopt;
    return position ? std::optional(AnswerKey{
                          *position, reinterpret_cast<PLibpub__AppCgCardCheckAck &>(*record).index->mod_name})
                    : std::nullopt;
}

std::optional<Position> card_in(const Cause &cause)
{
    const cg::MessagePtr record = record_in(cause, p_dev__card_info__descriptor);
    return record ? cg::position_of(*record) : std::nullopt;
}

} // namespace

Explanation explanation_of(bool pass, const Cause &cause, int32_t node_type)
{
    if (const std::optional<AnswerKey> answer = answer_in(cause)) {
        return {pass ? Outcome::passed : Outcome::denied, answer->module, cause.revision, answer->position};
    }
    const std::optional<Position> card = card_in(cause);
    if (pass && node_type == P_DEV__DM_NODE_TYPE_E__DM_TYPE_MB) {
        return {Outcome::exempt, "", 0, card};
    }
    if (pass && cause.kind == Cause::Kind::timer) {
        return {Outcome::silence};
    }
    return {pass && card ? Outcome::unasked : Outcome::unseen, "", 0, card};
}

bool is_daemons_request(const Cause &cause, const Position &position)
{
    return card_in(cause) == position;
}

bool is_read(const Cause &cause, const Position &position, const std::string &module)
{
    if (cause.kind == Cause::Kind::unknown) {
        return true;
    }
    const std::optional<AnswerKey> answer = answer_in(cause);
    return answer && answer->position == position && answer->module == module;
}

} // namespace admission
