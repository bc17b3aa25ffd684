// Cards joined from the databases.
//
// Whole types are read and joined here, because the store finds records by their complete key or by type
// only.
#include "cards/cards.h"
#include "records/position_key.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>

namespace cg
{

namespace
{

// The module name under which the admission daemon sets a card's custom status.
constexpr const char *daemon_name = "APP_CG";

std::string verdict_word(const Json &result)
{
    return result["stat"] == "APP_CG_CHECK_PASS" ? "PASS" : "DENY";
}

const std::vector<StoredRecord> &of_type(const StoredRecords &records, const char *type_name)
{
    return records.at(&record_type(type_name));
}

Position position_of(const Json &record)
{
    return position_in(record["index"]);
}

std::set<Position> requests(const StoredRecords &records)
{
    std::set<Position> found;
    for (const auto &[read, record] : of_type(records, "app_cg_card_check_info")) {
        found.insert(position_of(record));
    }
    return found;
}

std::map<int32_t, std::string> results_by_tipc(const StoredRecords &records)
{
    std::map<int32_t, std::string> found;
    for (const auto &[read, record] : of_type(records, "app_cg_mom_deny_check_result")) {
        found[record["index"]["card_tipc_nodeid"].get<int32_t>()] = verdict_word(record);
    }
    return found;
}

std::map<Position, std::string> results_by_position(const StoredRecords &records)
{
    std::map<Position, std::string> found;
    for (const auto &[read, record] : of_type(records, "app_cg_card_deny_check_result")) {
        found[position_of(record)] = verdict_word(record);
    }
    return found;
}

// Where several modules set a status, the admission daemon's counts.
std::map<Position, std::string> custom_statuses(const StoredRecords &records)
{
    std::map<Position, std::string> found;
    for (const auto &[read, record] : of_type(records, "dm_set_card_custom_st")) {
        const Json &status = record["status"];
        const std::string text = status.is_string() ? status.get<std::string>() : dump(status);
        if (record["index"]["t_mod_name"] == daemon_name) {
            found[position_of(record)] = text;
        } else {
            found.emplace(position_of(record), text);
        }
    }
    return found;
}

std::set<Position> powered_off(const StoredRecords &records)
{
    std::set<Position> found;
    for (const auto &[read, record] : of_type(records, "im_card_power_onoff")) {
        if (record["updown"] == false) {
            found.insert(position_of(record));
        }
    }
    return found;
}

template <typename Key>
std::optional<std::string> look_up(const std::map<Key, std::string> &table, const Key &key)
{
    const auto found = table.find(key);
    return found == table.end() ? std::nullopt : std::optional(found->second);
}

Json or_null(const std::optional<std::string> &text)
{
    return text ? Json(*text) : Json(nullptr);
}

} // namespace

std::string Card::verdict() const
{
    if (by_tipc) {
        return *by_tipc == "PASS" ? "passed" : "denied";
    }
    return request ? "waiting" : "none";
}

std::string Card::node_type() const
{
    const Json &part = info["static_info"];
    if (!part.is_object()) {
        return "DM_TYPE_UNKNOWN";
    }
    const Json &type = part["node_type"];
    return type.is_string() ? type.get<std::string>() : dump(type);
}

bool Card::is_online() const
{
    return info["is_online"].get<bool>();
}

Json Card::json() const
{
    return {{"card", position.text()},
            {"devid", position.devid},
            {"slotid", position.slotid},
            {"sslotid", position.sslotid},
            {"name", info["name"]},
            {"node_type", node_type()},
            {"is_online", is_online()},
            {"verdict", verdict()},
            {"results",
             {{"by_tipc", or_null(by_tipc)},
              {"by_position", or_null(by_position)},
              {"custom_status", or_null(custom_status)}}},
            {"request", request},
            {"power_off", power_off}};
}

StoredRecords read_records(Store &store)
{
    // A card before what is about it: so what ends meanwhile is seen as ended.
    constexpr std::array types{"dp_lib_grole",
                               "card_info",
                               "app_cg_card_check_info",
                               "app_cg_card_check_ack",
                               "app_cg_mom_deny_check_result",
                               "app_cg_card_deny_check_result",
                               "dm_set_card_custom_st",
                               "im_card_power_onoff"};
    StoredRecords records;
    for (const char *name : types) {
        const RecordType &type = record_type(name);
        std::vector<StoredRecord> &found = records[&type];
        store.scan(type, type.db, [&found](store::Record &&record) {
            Json json = to_json(*record.message);
            found.push_back({std::move(record), std::move(json)});
        });
    }
    return records;
}

std::vector<Card> cards_in(const StoredRecords &records)
{
    const std::set<Position> asked = requests(records);
    const std::map<int32_t, std::string> by_tipc = results_by_tipc(records);
    const std::map<Position, std::string> by_position = results_by_position(records);
    const std::map<Position, std::string> statuses = custom_statuses(records);
    const std::set<Position> off = powered_off(records);
    std::vector<Card> cards;
    for (const auto &[read, info] : of_type(records, "card_info")) {
        const Position position = position_of(info);
        cards.push_back({position, info, asked.contains(position),
                         look_up(by_tipc, info["card_tipc_nodeid"].get<int32_t>()),
                         look_up(by_position, position), look_up(statuses, position),
                         off.contains(position)});
    }
    std::sort(cards.begin(), cards.end(),
              [](const Card &a, const Card &b) { return a.position < b.position; });
    return cards;
}

std::vector<FoundRecord> records_of_card(Store &store, const Position &position)
{
    std::vector<FoundRecord> found;
    std::set<int32_t> tipc_nodes;
    // The types stand in the order of the schemas: card_info comes before the result that needs its TIPC
    // node.
    for (const RecordType &type : record_types()) {
        if (type.db < 0 || type.index == nullptr) {
            continue;
        }
        const bool by_node =
            protobuf_c_message_descriptor_get_field_by_name(type.key(), "card_tipc_nodeid") != nullptr;
        for (Json &record : store.scan(type, type.db)) {
            const bool ours = by_node
                                  ? tipc_nodes.contains(record["index"]["card_tipc_nodeid"].get<int32_t>())
                                  : position_of(record) == position;
            if (!ours) {
                continue;
            }
            if (record.contains("card_tipc_nodeid")) {
                tipc_nodes.insert(record["card_tipc_nodeid"].get<int32_t>());
            }
            found.push_back({&type, std::move(record)});
        }
    }
    return found;
}

} // namespace cg
