// The cards that a module on trial is asked about.
#include "try/test_card.h"

#include <set>

#include "base/failure.h"
#include "base/text.h"
#include "records/new_card.h"

namespace cg
{

namespace
{

int32_t parse_number(const std::string &name, const std::string &text)
{
    const auto value = to_number(text, 0, INT32_MAX);
    if (!value) {
        throw Failure(wrong_usage, "--card: " + name + '=' + visible(text) + ": not a whole number from 0");
    }
    return static_cast<int32_t>(*value);
}

void set_member(TestCard &card, const std::string &name, const std::string &value)
{
    if (name == "name") {
        card.name = value;
    } else if (name == "serial" && from_hex(value)) {
        card.serial = value;
    } else if (name == "node-type") {
        card.node_type = node_type_value(value);
    } else if (name == "type") {
        card.type = parse_number(name, value);
    } else if (name == "devid") {
        card.position.devid = parse_number(name, value);
    } else if (name == "slot") {
        card.position.slotid = parse_number(name, value);
    } else if (name == "sslot") {
        card.position.sslotid = parse_number(name, value);
    } else if (name == "nodeid") {
        card.node_id = parse_number(name, value);
    } else {
        throw Failure(wrong_usage, "--card: " + in_quotes(name + '=' + value) +
                                       ": not one of name=, type=, devid=, slot=, sslot=, node-type=, "
                                       "nodeid=, serial= with hexadecimal digits");
    }
}

} // namespace

// A value may contain blanks: a member ends where the next word with '=' begins.
TestCard parse_test_card(const std::string &text)
{
    TestCard card;
    std::string name;
    std::string value;
    for (const std::string &word : split(text, ' ')) {
        const std::size_t equals = word.find('=');
        if (equals == std::string::npos) {
            if (name.empty() && !word.empty()) {
                throw Failure(wrong_usage,
                              "--card: " + in_quotes(word) + ": no '='; as in 'name=fan type=230 slot=3'");
            }
            value += word.empty() ? "" : ' ' + word;
            continue;
        }
        if (!name.empty()) {
            set_member(card, name, value);
        }
        name = word.substr(0, equals);
        value = word.substr(equals + 1);
    }
    if (name.empty()) {
        throw Failure(wrong_usage, "--card: empty; as in 'name=fan type=230 slot=3'");
    }
    set_member(card, name, value);
    if (card.name.empty()) {
        card.name = "card " + card.position.text();
    }
    return card;
}

std::vector<TestCard> parse_test_cards(const std::vector<std::string> &texts)
{
    static const std::vector<std::string> defaults{"slot=1 type=200 nodeid=101 serial=00e0fc01",
                                                   "slot=2 type=230 nodeid=102",
                                                   "slot=3 type=300 nodeid=103 node-type=sub_lc"};
    std::vector<TestCard> cards;
    std::set<Position> positions;
    for (const std::string &text : texts.empty() ? defaults : texts) {
        cards.push_back(parse_test_card(text));
        if (!positions.insert(cards.back().position).second) {
            throw Failure(wrong_usage, "--card: two cards at " + cards.back().position.text() +
                                           "; give each its own slot, as in slot=4");
        }
    }
    if (cards.size() == 1) {
        cards.push_back(cards.front());
        cards.back().position.slotid++;
    }
    return cards;
}

} // namespace cg
