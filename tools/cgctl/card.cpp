// cgctl card: what a device manager does with cards, by hand.
//
// A card that is plugged in needs a node id and a TIPC node id that no other card has. Unless they are given,
// they are made from the position: the node id is devid * 65536 + slotid * 256 + sslotid, the TIPC node id is
// that plus 16777216 (0x1000000). Counting up from the ids in use was the alternative; then a card that is
// pulled and plugged again would come back as another node.
#include <algorithm>
#include <cctype>
#include <optional>

#include "failure.h"
#include "p_dev.pb-c.h"
#include "position.h"
#include "store.h"
#include "text.h"
#include "verbs.h"

namespace cgctl
{

namespace
{

constexpr int32_t tipc_base = 0x1000000;
constexpr int32_t most_devid = 127; // keeps the TIPC node ids below 0x1800000
constexpr int32_t most_slotid = 255;
constexpr std::string_view node_type_prefix = "DM_TYPE_";

struct PlugOptions {
    std::string position;
    bool offline = false;
    std::string type = "1";
    std::string node_type = "lc";
    std::optional<std::string> nodeid{};
    std::optional<std::string> tipc{};
    std::optional<std::string> name{};
    std::string serial{};
};

const RecordType &card_info()
{
    return record_type("p_dev.card_info");
}

std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// "lc" for DM_TYPE_LC.
std::string short_name(std::string_view enum_name)
{
    return lower(std::string(enum_name.substr(node_type_prefix.size())));
}

// The enumeration's name for what a user may write; a number and a full name are left as they are.
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

int32_t derived_nodeid(const Position &position)
{
    const bool fits = position.devid >= 0 && position.devid <= most_devid && position.slotid >= 0 &&
                      position.slotid <= most_slotid && position.sslotid >= 0 &&
                      position.sslotid <= most_slotid;
    if (!fits) {
        throw Failure(wrong_usage, "no ids can be derived for " + position.text() +
                                       ", only up to 127/255/255; give --nodeid and --tipc");
    }
    return position.devid * 0x10000 + position.slotid * 0x100 + position.sslotid;
}

Json plugged_card(const PlugOptions &options)
{
    const Position position = parse_position(options.position);
    const bool derive = !options.nodeid || !options.tipc;
    const int32_t nodeid = derive ? derived_nodeid(position) : 0;
    const std::string node_type = node_type_value(options.node_type);
    const std::string is_board = node_type == "DM_TYPE_MB" ? "true" : "false";
    Json card = record_with_key(card_info(), key_of(position));
    for (const std::string &assignment : {
             "config_dev_type=" + options.type,
             "is_online=" + std::string(options.offline ? "false" : "true"),
             "is_mboard=" + is_board,
             "name=" + options.name.value_or("card " + position.text()),
             "static_info.index.type=" + options.type,
             "static_info.node_type=" + node_type,
             "static_info.name=" + options.node_type,
             "user_slot=" + std::to_string(position.slotid),
             "user_sslot=" + std::to_string(position.sslotid),
             "card_nodeid=" + options.nodeid.value_or(std::to_string(nodeid)),
             "serial=" + options.serial,
             "card_tipc_nodeid=" + options.tipc.value_or(std::to_string(tipc_base + nodeid)),
         }) {
        assign(card_info(), card, assignment);
    }
    return card;
}

int plug(const Session &session, const PlugOptions &options)
{
    const Json card = plugged_card(options);
    Store store(session);
    store.set(card_info(), card_info().db, card);
    return 0;
}

void require_card(Store &store, const Position &position)
{
    if (!store.exists(card_info(), card_info().db, key_of(position))) {
        throw Failure(failed, "no card at " + position.text() + "; `cgctl list` shows those that there are");
    }
}

int set_online(const Session &session, const Position &position, bool online)
{
    Store store(session);
    require_card(store, position);
    Json card = record_with_key(card_info(), key_of(position));
    card["is_online"] = online;
    store.set_fields(card_info(), card_info().db, card,
                     {static_cast<int32_t>(field_number(card_info(), "is_online="))});
    return 0;
}

int pull(const Session &session, const Position &position)
{
    Store store(session);
    require_card(store, position);
    store.erase(card_info(), card_info().db, key_of(position));
    return 0;
}

void add_plug(CLI::App &card, Session &session)
{
    CLI::App *verb = add_verb(card, session, "plug", "Write a card's information, in place of an earlier one",
                              "  cgctl card plug 1/3/0\n"
                              "  cgctl card plug 1/4 --node-type sfc --name \"fabric 4\" --serial 00e0fc01");
    auto options = std::make_shared<PlugOptions>();
    verb->add_option("POS", options->position, "devid/slotid/sslotid, or devid/slotid")->required();
    verb->add_flag("--offline", options->offline, "The card is there, but not online");
    verb->add_option("--type", options->type, "Configured device type (default 1)");
    verb->add_option("--node-type", options->node_type,
                     "box, mb, lc (default), sub_lc, sfc, msc, hpsc, unknown, a DM_TYPE_ name or a number");
    verb->add_option("--nodeid", options->nodeid,
                     "Node id (default: devid * 65536 + slotid * 256 + sslotid)");
    verb->add_option("--tipc", options->tipc, "TIPC node id (default: that node id + 16777216)");
    verb->add_option("--name", options->name, "Name (default \"card POS\")");
    verb->add_option("--serial", options->serial, "Hardware identification, hexadecimal");
    verb->callback(
        [options, &session] { session.action = [options, &session] { return plug(session, *options); }; });
}

// Adds a verb whose one argument is a position.
void add_position_verb(CLI::App &card, Session &session, const char *name, const char *description,
                       const std::function<int(const Position &)> &action)
{
    const std::string example = std::string("  cgctl card ") + name + " 1/3/0";
    CLI::App *verb = add_verb(card, session, name, description, example.c_str());
    auto position = std::make_shared<std::string>();
    verb->add_option("POS", *position, "devid/slotid/sslotid, or devid/slotid")->required();
    verb->callback([position, action, &session] {
        session.action = [position, action] { return action(parse_position(*position)); };
    });
}

} // namespace

void add_card(CLI::App &app, Session &session)
{
    CLI::App *card = add_verb(app, session, "card", "Plug, pull and switch cards",
                              "  cgctl card plug 1/3/0\n"
                              "  cgctl card offline 1/3/0\n"
                              "  cgctl card pull 1/3/0");
    card->require_subcommand(1);
    add_plug(*card, session);
    add_position_verb(*card, session, "online", "Switch a card to online",
                      [&session](const Position &position) { return set_online(session, position, true); });
    add_position_verb(*card, session, "offline", "Switch a card to offline",
                      [&session](const Position &position) { return set_online(session, position, false); });
    add_position_verb(*card, session, "pull", "Delete a card's information",
                      [&session](const Position &position) { return pull(session, position); });
}

} // namespace cgctl
