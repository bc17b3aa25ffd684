// cgctl card: what a device manager does with cards, by hand.
#include <memory>

#include "access/store.h"
#include "base/failure.h"
#include "command_line/verbs.h"
#include "records/new_card.h"
#include "records/position_key.h"
#include "records/record_text.h"
#include "records/record_types.h"

namespace cg
{

namespace
{

const int32_t database = home_of(p_dev__card_info__descriptor);

int plug(const Session &session, const std::string &position, NewCard card)
{
    card.position = parse_position(position);
    Store(session).set(database, *card_info_of(card));
    return done;
}

void require_card(Store &store, const Position &position)
{
    if (!store.exists(database, CardInfoAt(position).record.base)) {
        throw Failure(failed, "no card at " + position.text() + "; `cgctl list` shows those that there are");
    }
}

int set_online(const Session &session, const Position &position, bool online)
{
    Store store(session);
    require_card(store, position);
    CardInfoAt card(position);
    card.record.is_online = static_cast<protobuf_c_boolean>(online);
    store.set_field(database, card.record.base, "is_online");
    return done;
}

int pull(const Session &session, const Position &position)
{
    Store store(session);
    require_card(store, position);
    store.erase(database, CardInfoAt(position).record.base);
    return done;
}

void add_plug(CLI::App &card, Session &session)
{
    CLI::App *verb = add_verb(card, session, "plug", "Write a card's information, in place of an earlier one",
                              "  cgctl card plug 1/3/0\n"
                              "  cgctl card plug 1/4 --node-type sfc --name \"fabric 4\" --serial 00e0fc01");
    auto position = std::make_shared<std::string>();
    auto options = std::make_shared<NewCard>();
    verb->add_option("POS", *position, "devid/slotid/sslotid, or devid/slotid")->required();
    verb->add_flag("--offline", options->offline, "The card is there, but not online");
    verb->add_option("--type", options->type, "Configured device type (default 1)")->type_name("N");
    verb->add_option("--node-type", options->node_type,
                     "Node type (default lc), also by its DM_TYPE_ name or number")
        ->type_name("box|mb|lc|sub_lc|sfc|msc|hpsc|unknown");
    verb->add_option("--nodeid", options->nodeid, "Node id (default: devid * 65536 + slotid * 256 + sslotid)")
        ->type_name("N");
    verb->add_option("--tipc", options->tipc, "TIPC node id (default: that node id + 16777216)")
        ->type_name("N");
    verb->add_option("--name", options->name, "Name (default \"card POS\")");
    verb->add_option("--serial", options->serial, "Hardware identification, hexadecimal")->type_name("HEX");
    verb->callback([position, options, &session] {
        session.action = [position, options, &session] { return plug(session, *position, *options); };
    });
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

} // namespace cg
