// cgctl show: everything about one card. First what became of it and how, then every record.
#include <map>
#include <set>

#include "base/failure.h"
#include "cards/overview.h"
#include "command_line/verbs.h"
#include "forms/forms.h"
#include "p_libpub.pb-c.h"
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

// Every record of every type that is about the card at a position, the result by TIPC node included when the
// card's TIPC node id is known; none of a server that is away. Throws Failure.
std::vector<FoundRecord> records_of_card(Store &store, const Position &position)
{
    std::vector<FoundRecord> found;
    std::set<int32_t> tipc_nodes;
    // The types stand in the order of the schemas: card_info comes before the result that needs its TIPC
    // node.
    for (const RecordType &type : record_types()) {
        const bool by_node = type.descriptor == &p_libpub__app_cg_mom_deny_check_result__descriptor;
        std::map<std::string, Json> records; // by key
        for (const store::Record &record : type.db < 0 || !store.try_connect(type.db)
                                               ? std::vector<store::Record>{}
                                               : store.scan(*type.descriptor, type.db)) {
            Json fields = to_json(*record.message);
            const bool is_ours = by_node
                                     ? tipc_nodes.contains(fields["index"]["card_tipc_nodeid"].get<int32_t>())
                                     : position_of(*record.message) == position;
            if (!is_ours) {
                continue;
            }
            if (fields.contains("card_tipc_nodeid")) {
                tipc_nodes.insert(fields["card_tipc_nodeid"].get<int32_t>());
            }
            records.emplace(record.key, std::move(fields));
        }
        for (auto &[key, fields] : records) {
            found.push_back({&type, type.db, std::move(fields)});
        }
    }
    return found;
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
    Store store(session);
    // A card whose record does not decode is not among the cards, but it is not absent either: reading it
    // fails with the reason.
    (void)store.read(home_of(p_dev__card_info__descriptor), CardInfoAt(position).record.base);
    const Overview overview = read_overview(session, store, options.history);
    const std::vector<FoundRecord> records = records_of_card(store, position);
    const CardRow &row = found_row(overview, position, !records.empty());
    form_of(session).card({session, terminal_of(session, options.color)}, {overview, row, records});
    return report_away(session, overview);
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
