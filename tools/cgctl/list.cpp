// cgctl list: one line per card.
#include <algorithm>
#include <array>

#include "cards.h"
#include "text.h"
#include "verbs.h"

namespace cgctl
{

namespace
{

constexpr std::size_t column_count = 10;
using Row = std::array<std::string, column_count>;

constexpr std::array<const char *, column_count> headings{
    "CARD", "NAME", "NODE TYPE", "STATE", "VERDICT", "REQUEST", "BY TIPC", "BY POSITION", "STATUS", "POWER"};

Row row_of(const Card &card)
{
    return {card.position.text(),
            visible(card.info["name"].get<std::string>()),
            card.node_type(),
            card.is_online() ? "online" : "offline",
            card.verdict(),
            card.request ? "yes" : "-",
            card.by_tipc.value_or("-"),
            card.by_position.value_or("-"),
            card.custom_status.value_or("-"),
            card.power_off ? "off" : "-"};
}

// Characters, not bytes: a name may be in any language.
std::size_t width_of(const std::string &text)
{
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<uint8_t>(c) & 0xC0U) != 0x80U; }));
}

void print_table(const Session &session, const std::vector<Row> &rows)
{
    std::array<std::size_t, column_count> widths{};
    for (const Row &row : rows) {
        for (std::size_t i = 0; i < column_count; ++i) {
            widths.at(i) = std::max(widths.at(i), width_of(row.at(i)));
        }
    }
    for (const Row &row : rows) {
        std::string line;
        for (std::size_t i = 0; i < column_count; ++i) {
            line += row.at(i);
            if (i + 1 < column_count) {
                line.append(widths.at(i) - width_of(row.at(i)) + 2, ' ');
            }
        }
        session.line(line);
    }
}

int list(const Session &session)
{
    Store store(session);
    const std::vector<Card> cards = load_cards(store);
    if (session.json) {
        Json array = Json::array();
        for (const Card &card : cards) {
            array.push_back(card.json());
        }
        session.line(dump(store.with_left_out({{"cards", array}})));
        return store.tell_left_out();
    }
    std::vector<Row> rows(1);
    std::copy(headings.begin(), headings.end(), rows.front().begin());
    std::transform(cards.begin(), cards.end(), std::back_inserter(rows), row_of);
    print_table(session, rows);
    return store.tell_left_out();
}

} // namespace

void add_list(CLI::App &app, Session &session)
{
    CLI::App *verb = add_verb(app, session, "list", "List the cards with their verdicts",
                              "  cgctl list\n"
                              "  cgctl list --json | jq '.cards[] | select(.verdict == \"denied\")'");
    verb->callback([&session] { session.action = [&session] { return list(session); }; });
}

} // namespace cgctl
