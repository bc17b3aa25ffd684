// A card to be plugged.
#include "records/new_card.h"

#include <vector>

#include "base/failure.h"
#include "base/text.h"
#include "p_dev.pb-c.h"
#include "records/record_types.h"

namespace cg
{

namespace
{

constexpr int32_t tipc_base = 0x1000000;
constexpr int32_t most_devid = 127; // keeps the TIPC node ids below 0x1800000
constexpr int32_t most_slotid = 255;
constexpr std::string_view node_type_prefix = "DM_TYPE_";

// "lc" for DM_TYPE_LC.
std::string short_name(std::string_view enum_name)
{
    return lower(enum_name.substr(node_type_prefix.size()));
}

int32_t derived_nodeid(const Position &position)
{
    if (!has_derived_ids(position)) {
        throw Failure(wrong_usage, "no ids can be derived for " + position.text() +
                                       ", only up to 127/255/255; give --nodeid and --tipc");
    }
    return position.devid * 0x10000 + position.slotid * 0x100 + position.sslotid;
}

} // namespace

std::string node_type_value(const std::string &text)
{
    const ProtobufCEnumDescriptor &types = p_dev__dm_node_type_e__descriptor;
    std::vector<std::string> names;
    for (unsigned i = 0; i < types.n_values; ++i) {
        if (text == types.values[i].name || lower(text) == short_name(types.values[i].name)) {
            return types.values[i].name;
        }
        names.push_back(short_name(types.values[i].name));
    }
    if (!to_number(text, INT32_MIN, INT32_MAX)) {
        throw Failure(wrong_usage, "unknown node type " + in_quotes(text) + "; " + suggestion(text, names) +
                                       ", or a number");
    }
    return text;
}

bool has_derived_ids(const Position &position)
{
    return position.devid >= 0 && position.devid <= most_devid && position.slotid >= 0 &&
           position.slotid <= most_slotid && position.sslotid >= 0 && position.sslotid <= most_slotid;
}

MessagePtr card_info_of(const NewCard &card)
{
    const RecordType &type = record_type("p_dev.card_info");
    const Position &position = card.position;
    const bool derive = !card.nodeid || !card.tipc;
    const int32_t nodeid = derive ? derived_nodeid(position) : 0;
    const std::string node_type = node_type_value(card.node_type);
    const std::string is_board = node_type == "DM_TYPE_MB" ? "true" : "false";
    Json info;
    for (const std::string &assignment : {
             "devid=" + std::to_string(position.devid),
             "slotid=" + std::to_string(position.slotid),
             "sslotid=" + std::to_string(position.sslotid),
             "config_dev_type=" + card.type,
             "is_online=" + std::string(card.offline ? "false" : "true"),
             "is_mboard=" + is_board,
             "name=" + card.name.value_or("card " + position.text()),
             "static_info.index.type=" + card.type,
             "static_info.node_type=" + node_type,
             "static_info.name=" + card.node_type,
             "user_slot=" + std::to_string(position.slotid),
             "user_sslot=" + std::to_string(position.sslotid),
             "card_nodeid=" + card.nodeid.value_or(std::to_string(nodeid)),
             "serial=" + card.serial,
             "card_tipc_nodeid=" + card.tipc.value_or(std::to_string(tipc_base + nodeid)),
         }) {
        assign(type, info, assignment);
    }
    return from_json(*type.descriptor, info);
}

} // namespace cg
