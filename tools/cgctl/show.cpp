// cgctl show: one card with every record about it.
#include "cards.h"
#include "failure.h"
#include "text.h"
#include "verbs.h"

#include <algorithm>

namespace cgctl
{

namespace
{

Json record_json(const FoundRecord &found)
{
    return {{"db", found.type->db},
            {"type", found.type->name()},
            {"key", key_part(*found.type, found.record)},
            {"record", payload_part(*found.type, found.record)}};
}

void print_record(const Session &session, const FoundRecord &found)
{
    session.line("");
    session.line(std::string(found.type->name()) + " (database " + std::to_string(found.type->db) + ")");
    for (const std::string &line : to_lines(*found.type->descriptor, found.record, Shown::all)) {
        session.line("  " + line);
    }
}

void print(const Session &session, const Card &card, const std::vector<FoundRecord> &records)
{
    if (session.json) {
        Json json = card.json();
        json["records"] = Json::array();
        for (const FoundRecord &found : records) {
            json["records"].push_back(record_json(found));
        }
        session.line(dump(json));
        return;
    }
    session.line("card " + card.position.text() + ": " + visible(card.info["name"].get<std::string>()) +
                 ", " + card.node_type() + ", " + (card.is_online() ? "online" : "offline") + ", verdict " +
                 card.verdict());
    for (const FoundRecord &found : records) {
        print_record(session, found);
    }
}

int show(const Session &session, const Position &position)
{
    Store store(session);
    // A card whose record does not decode is not among the cards, but it is not absent either: reading it
    // fails with the reason.
    const RecordType &type = record_type("card_info");
    (void)store.read(type, type.db, key_of(position));
    const std::vector<Card> cards = load_cards(store);
    const auto card =
        std::find_if(cards.begin(), cards.end(), [&](const Card &c) { return c.position == position; });
    if (card == cards.end()) {
        const bool leftovers = !records_of_card(store, position).empty();
        throw Failure(failed, "no card at " + position.text() + "; `cgctl list` shows those that there are" +
                                  (leftovers ? " (other records name this position, see `cgctl get`)" : ""));
    }
    print(session, *card, records_of_card(store, position));
    return 0;
}

} // namespace

void add_show(CLI::App &app, Session &session)
{
    CLI::App *verb = add_verb(app, session, "show", "Show everything about one card",
                              "  cgctl show 1/3/0\n"
                              "  cgctl show 1/3 --json");
    auto position = std::make_shared<std::string>();
    verb->add_option("POS", *position, "devid/slotid/sslotid, or devid/slotid")->required();
    verb->callback([position, &session] {
        session.action = [position, &session] { return show(session, parse_position(*position)); };
    });
}

} // namespace cgctl
