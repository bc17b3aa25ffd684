// The doctor's checks of the daemon's work: cards, requests and answers that should have gone on.
//
// What is still on its way is no fault. So cards and answers are inspected twice, a moment apart, and only
// what is wrong both times is reported.
#include "doctor/card_checks.h"

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <set>
#include <tuple>

#include "base/text.h"
#include "base/times.h"
#include "cards/cards.h"
#include "modules/contract.h"
#include "p_libpub.pb-c.h"
#include "records/databases.h"
#include "records/position_key.h"
#include "records/record_types.h"
#include "store/codec/names.h"

namespace cg
{

namespace
{

constexpr int moment_ms = 1000;
constexpr std::chrono::seconds longest_check = check_timeout + std::chrono::seconds{10}; // to act on it
constexpr const char *restart = "`systemctl restart app_cg`: it checks every card again";

// By what database 1 has: the others may be on a server that is away.
std::set<std::string> cards_left_alone(Examination &examination)
{
    StoredRecords records;
    for (const RecordType &type : record_types()) {
        records[type.descriptor] = type.db == card_database ? examination.store().scan(*type.descriptor)
                                                            : std::vector<store::Record>{};
    }
    std::set<std::string> found;
    for (const auto &[position, card] : cards_in(records)) {
        const bool is_checked = card.facts.node_type != P_DEV__DM_NODE_TYPE_E__DM_TYPE_MB;
        if (card.facts.online && is_checked && card.verdict() == std::string_view("none")) {
            found.insert(position.text());
        }
    }
    return found;
}

// An answer in the store, and why nobody waits for it, if so.
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
    const std::vector<std::string> modules = asked_of(examination.modules);
    std::set<Position> cards;
    for (const store::Record &record : examination.store().scan(p_dev__card_info__descriptor)) {
        cards.insert(position_of(*record.message).value_or(Position{}));
    }
    std::set<Answer> found;
    for (const store::Record &record :
         examination.store().scan(p_libpub__app_cg_card_check_ack__descriptor)) {
        const auto &ack = reinterpret_cast<const PLibpub__AppCgCardCheckAck &>(*record.message);
        Answer answer{position_of(*record.message).value_or(Position{}),
                      ack.index == nullptr ? "" : ack.index->mod_name, ""};
        const bool is_module = std::find(modules.begin(), modules.end(), answer.module) != modules.end();
        answer.problem = !is_module                         ? " is not a module of the folder"
                         : !cards.contains(answer.position) ? " answered for a card that is not there"
                                                            : "";
        found.insert(std::move(answer));
    }
    return found;
}

// What inspect() finds now and a moment later.
template <typename Inspect>
auto found_twice(Examination &examination, const Inspect &inspect)
{
    auto first = inspect(examination);
    if (!first.empty()) {
        (void)poll(nullptr, 0, moment_ms);
        auto second = inspect(examination);
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

// The server knows how long a record was idle. Others may have read it meanwhile, so this is the least that
// the check has been open; it has to be asked before we read the records ourselves.
Finding check_open_checks(Examination &examination)
{
    const int32_t database = home_of(p_libpub__app_cg_card_check_info__descriptor);
    const std::string type = p_libpub__app_cg_card_check_info__descriptor.name;
    const store::Inspected requests = examination.host().ask({"SMEMBERS", store::index_key(type)}, database);
    if (requests.is_error()) {
        return refused(requests, '`' +
                                     examination.host().redis_cli("DEL " + store::index_key(type), database) +
                                     "`, then " + restart);
    }
    const std::string longest = seconds_text(longest_check);
    std::vector<std::string> open;
    for (const store::Inspected &request : requests.items) {
        const store::Inspected age = examination.host().ask({"OBJECT", "IDLETIME", request.text}, database);
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
        return {Severity::fail, "checks open for more than " + longest + ": " + listed(open), restart};
    }
    return {Severity::ok, "none is open for more than " + longest};
}

Finding check_records(ExaminedServer &server)
{
    for (const RecordType &type : record_types()) {
        if (server.databases.contains(type.db)) {
            (void)server.whole.store().scan(*type.descriptor);
        }
    }
    std::vector<std::string> keys;
    std::vector<std::string> fixes;
    for (const std::string &key : server.whole.store().left_out()) {
        const RecordType *type = type_of(key);
        if (type != nullptr && server.databases.contains(type->db)) {
            keys.push_back(key);
            fixes.push_back('`' + server.redis_cli("DEL " + shell_word(key), type->db) + '`');
        }
    }
    if (keys.empty()) {
        return {Severity::ok, "every record decodes"};
    }
    return {Severity::fail, "the daemon cannot read " + listed(keys),
            "their writers have to write them again; these commands remove them: " + listed(fixes)};
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
        return {Severity::warn, "stale answers: " + listed(stale), listed(fixes)};
    }
    return {Severity::ok, "no stale acknowledgements"};
}

} // namespace cg
