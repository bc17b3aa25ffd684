// The doctor's checks of the daemon's work: cards, requests and answers that should have gone on.
//
// What is still on its way is no fault. So each look at cards and answers is taken twice, a moment apart, and
// only what is wrong in both is told.
#include "doctor/card_checks.h"

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <set>
#include <tuple>

#include "base/text.h"
#include "cards/cards.h"
#include "modules/contract.h"
#include "records/position_key.h"
#include "store/codec/names.h"

namespace cg
{

namespace
{

constexpr int moment_ms = 1000;
constexpr std::chrono::seconds longest_check = check_timeout + std::chrono::seconds{10}; // to act on it
constexpr const char *restart = "`systemctl restart app_cg`: it checks every card again";

std::vector<Json> scan(Examination &examination, const char *name)
{
    const RecordType &type = record_type(name);
    return examination.store().scan(type, type.db);
}

std::set<std::string> cards_left_alone(Examination &examination)
{
    std::set<std::string> found;
    for (const Card &card : cards_in(read_records(examination.store()))) {
        if (card.is_online() && card.node_type() != "DM_TYPE_MB" && card.verdict() == "none") {
            found.insert(card.position.text());
        }
    }
    return found;
}

// An answer in the store, and whether anybody can take it.
struct Answer {
    Position position;
    std::string module;
    std::string problem;

    friend bool operator<(const Answer &a, const Answer &b)
    {
        return std::tie(a.position, a.module, a.problem) < std::tie(b.position, b.module, b.problem);
    }
};

std::set<Answer> answers_left(Examination &examination)
{
    const std::vector<std::string> modules = examination.registered_modules();
    std::set<Position> cards;
    for (const Json &record : scan(examination, "card_info")) {
        cards.insert(position_in(record["index"]));
    }
    std::set<Answer> found;
    for (const Json &record : scan(examination, "app_cg_card_check_ack")) {
        Answer answer{position_in(record["index"]), record["index"]["mod_name"].get<std::string>(), ""};
        const bool is_module = std::find(modules.begin(), modules.end(), answer.module) != modules.end();
        answer.problem = !is_module                         ? " is not a module of the folder"
                         : !cards.contains(answer.position) ? " answered for a card that is not there"
                                                            : "";
        found.insert(std::move(answer));
    }
    return found;
}

// What look() finds now and a moment later.
template <typename Look>
auto found_twice(Examination &examination, const Look &look)
{
    auto first = look(examination);
    if (!first.empty()) {
        (void)poll(nullptr, 0, moment_ms);
        auto second = look(examination);
        std::erase_if(first, [&](const auto &thing) { return !second.contains(thing); });
    }
    return first;
}

std::string deletion(const Examination &examination, const Answer &answer)
{
    const Position &at = answer.position;
    return examination.cgctl("del app_cg_card_check_ack devid=" + std::to_string(at.devid) + " slotid=" +
                             std::to_string(at.slotid) + " t_sslotid=" + std::to_string(at.sslotid) + ' ' +
                             shell_word("mod_name=" + answer.module));
}

// The type of a key's record; null when it is none that is known.
const RecordType *type_of(const std::string &key)
{
    const std::string name = key.substr(0, key.find(':'));
    const auto &types = record_types();
    const auto found =
        std::find_if(types.begin(), types.end(), [&](const RecordType &type) { return type.name() == name; });
    return found == types.end() ? nullptr : &*found;
}

} // namespace

// The server knows how long nobody has touched a record. Others may have looked at it meanwhile, so this is
// the least that the check has been open; it has to be asked before we look at the records ourselves.
Finding check_open_checks(Examination &examination)
{
    constexpr int32_t database = 1;
    const std::string type = "p_libpub.app_cg_card_check_info";
    const store::Inspected requests = examination.ask({"SMEMBERS", store::index_key(type)}, database);
    if (requests.is_error()) {
        return refused(requests, '`' + examination.redis_cli("DEL " + store::index_key(type), database) +
                                     "`, then " + restart);
    }
    std::vector<std::string> open;
    for (const store::Inspected &request : requests.items) {
        const store::Inspected age = examination.ask({"OBJECT", "IDLETIME", request.text}, database);
        if (age.is_error()) {
            return refused(age, "see the server's log");
        }
        if (to_number(age.text, 0, INT64_MAX).value_or(0) > longest_check.count()) {
            open.push_back(request.text.substr(std::min(request.text.size(), type.size() + 3)));
        }
    }
    if (!open.empty()) {
        for (std::string &card : open) {
            std::replace(card.begin(), card.end(), ':', '/');
        }
        std::sort(open.begin(), open.end());
        return {Severity::fail, "checks open for more than 300 seconds: " + listed(open), restart};
    }
    return {Severity::ok, "none is open for more than 300 seconds"};
}

Finding check_records(Examination &examination)
{
    for (const RecordType &type : record_types()) {
        if (type.db >= 0) {
            (void)examination.store().scan(type, type.db);
        }
    }
    const Json shown = examination.store().with_left_out(Json::object());
    if (!shown.contains("left_out")) {
        return {Severity::ok, "every record decodes"};
    }
    std::vector<std::string> keys;
    std::vector<std::string> fixes;
    for (const Json &key : shown["left_out"]) {
        const auto text = key.get<std::string>();
        keys.push_back(text);
        const RecordType *type = type_of(text);
        fixes.push_back('`' + examination.redis_cli("DEL " + shell_word(text), type ? type->db : 0) + '`');
    }
    return {Severity::fail, "the daemon cannot read " + listed(keys),
            "whoever writes them has to write them again; these remove them: " + listed(fixes)};
}

Finding check_cards(Examination &examination)
{
    const std::set<std::string> behind = found_twice(examination, cards_left_alone);
    if (!behind.empty()) {
        return {Severity::fail,
                "online with neither a request nor a verdict: " + listed({behind.begin(), behind.end()}),
                restart};
    }
    return {Severity::ok, "each online card has a request or a verdict"};
}

Finding check_acknowledgements(Examination &examination)
{
    std::vector<std::string> stale;
    std::vector<std::string> unheard;
    std::vector<std::string> fixes;
    for (const Answer &answer : found_twice(examination, answers_left)) {
        const std::string title = in_quotes(answer.module);
        if (answer.problem.empty()) {
            unheard.push_back(answer.position.text() + " by " + title);
        } else {
            stale.push_back(answer.position.text() + ": " + title + answer.problem);
            fixes.push_back(deletion(examination, answer));
        }
    }
    if (!unheard.empty()) {
        return {Severity::fail, "answers that the daemon has not handled: " + listed(unheard), restart};
    }
    if (!stale.empty()) {
        return {Severity::warn, "answers that nobody waits for: " + listed(stale), listed(fixes)};
    }
    return {Severity::ok, "no stale acknowledgements"};
}

} // namespace cg
