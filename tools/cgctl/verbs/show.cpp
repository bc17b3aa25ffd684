// cgctl show: everything about one card. First what became of it and how, then every record.
#include <algorithm>

#include "admission/card_text.h"
#include "base/failure.h"
#include "base/text.h"
#include "cards/overview.h"
#include "command_line/verbs.h"
#include "records/position_key.h"

namespace cg
{

namespace
{

struct ShowOptions {
    std::string position{};
    std::string color = "auto";
    std::string history{};
};

Json stored_json(const FoundRecord &found)
{
    return {{"db", found.type->db},
            {"type", found.type->name()},
            {"key", key_part(*found.type, found.record)},
            {"record", payload_part(*found.type, found.record)}};
}

void print_facts(const Session &session, const Terminal &terminal, const CardRow &row, admission::Time now)
{
    constexpr std::size_t column = 10;
    const auto print = [&](const std::string &name, const std::string &text, Tone tone) {
        session.line("  " + name + std::string(column - std::min(column, name.size()), ' ') +
                     toned(terminal, tone, text));
    };
    session.line(toned(terminal, Tone::heading, "card " + row.position().text()));
    for (const auto &[name, text] : facts_of_card(row.tracked, row.left, now)) {
        print(name, text, name == "state" ? tone_of(row.tracked) : Tone::plain);
    }
    // The daemon's word where there is no history; else the decision has it already.
    if (!row.reason.empty() && !row.tracked.last) {
        print("reason", visible(row.reason), Tone::plain);
    }
}

void print_record(const Session &session, const FoundRecord &found)
{
    session.line("");
    session.line(std::string(found.type->name()) + " (database " + std::to_string(found.type->db) + ")");
    for (const std::string &line : to_lines(*found.type->descriptor, found.record, Shown::all)) {
        session.line("  " + line);
    }
}

// The whole object is one card of the list, with the records.
Json json_of(const Overview &overview, const CardRow &row, const std::vector<FoundRecord> &records)
{
    Json json{{"version", 1}, {"sources", overview.sources()}};
    json.update(card_json(row));
    json["records"] = Json::array();
    for (const FoundRecord &found : records) {
        json["records"].push_back(stored_json(found));
    }
    return json;
}

const CardRow &found_row(const Overview &overview, const Position &position, bool has_records)
{
    const CardRow *row = overview.find(position);
    if (row == nullptr) {
        throw Failure(failed,
                      "no card at " + position.text() + "; `cgctl list` shows those that there are" +
                          (has_records ? " (other records name this position, see `cgctl get`)" : ""));
    }
    return *row;
}

int show(const Session &session, const ShowOptions &options)
{
    const Position position = parse_position(options.position);
    const Terminal terminal = terminal_of(session, options.color);
    Store store(session);
    // A card whose record does not decode is not among the cards, but it is not absent either: reading it
    // fails with the reason.
    const RecordType &type = record_type("card_info");
    (void)store.read(type, type.db, key_of(position));
    const Overview overview(session, store, options.history);
    const std::vector<FoundRecord> records = records_of_card(store, position);
    const CardRow &row = found_row(overview, position, !records.empty());
    if (session.json) {
        session.line(dump(json_of(overview, row, records)));
        return done;
    }
    print_facts(session, terminal, row, overview.now());
    for (const FoundRecord &found : records) {
        print_record(session, found);
    }
    overview.tell_what_is_missing(session);
    return done;
}

} // namespace

void add_show(CLI::App &app, Session &session)
{
    CLI::App *verb = add_verb(app, session, "show", "Show everything about one card",
                              "  cgctl show 1/3/0\n"
                              "  cgctl show 1/3 --json");
    auto options = std::make_shared<ShowOptions>();
    verb->add_option("POS", options->position, "devid/slotid/sslotid, or devid/slotid")->required();
    add_view_options(*verb, options->color, options->history);
    set_action(*verb, session, options, show);
}

} // namespace cg
