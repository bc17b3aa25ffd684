// Positions in the keys of records.
#include "records/position_key.h"

#include <cstddef>
#include <cstring>
#include <string>

namespace cg
{

namespace
{

// The value of a message's field; nothing where it has no field of this name.
template <typename Value>
std::optional<Value> value_of(const ProtobufCMessage &message, const std::string &name)
{
    const auto *field = protobuf_c_message_descriptor_get_field_by_name(message.descriptor, name.c_str());
    if (field == nullptr) {
        return std::nullopt;
    }
    Value value{};
    // NOLINTNEXTLINE(bugprone-sizeof-expression): a field may be a pointer
    std::memcpy(&value, reinterpret_cast<const std::byte *>(&message) + field->offset, sizeof(Value));
    return value;
}

std::optional<int32_t> id_in(const ProtobufCMessage &key, const std::string &name)
{
    const auto found = value_of<int32_t>(key, name);
    return found ? found : value_of<int32_t>(key, "t_" + name);
}

PDev__CardInfoIndex index_of(const Position &position)
{
    PDev__CardInfoIndex index = P_DEV__CARD_INFO_INDEX__INIT;
    index.devid = position.devid;
    index.slotid = position.slotid;
    index.sslotid = position.sslotid;
    return index;
}

} // namespace

std::optional<Position> position_of(const ProtobufCMessage &record)
{
    const auto *key = value_of<const ProtobufCMessage *>(record, "index").value_or(nullptr);
    const auto devid = key == nullptr ? std::nullopt : id_in(*key, "devid");
    return devid ? std::optional(Position{*devid, *id_in(*key, "slotid"), *id_in(*key, "sslotid")})
                 : std::nullopt;
}

CardInfoAt::CardInfoAt(const Position &position) : index(index_of(position))
{
    record.index = &index;
}

CheckRequestAt::CheckRequestAt(const Position &position) : index(index_of(position))
{
    record.index = &index;
}

} // namespace cg
