// JSON for programs.
#include "forms/json_form.h"

#include <array>

#include "admission/card_text.h"
#include "base/text.h"
#include "p_dev.pb-c.h"
#include "records/databases.h"

namespace cg
{

namespace
{

Json or_null(const std::string &text)
{
    return text.empty() ? Json(nullptr) : Json(text);
}

Json or_null(const std::optional<Time> &time)
{
    return time ? Json(utc_text(*time)) : Json(nullptr);
}

Json or_null(const std::optional<std::chrono::milliseconds> &span)
{
    return span ? Json(static_cast<double>(span->count()) / 1000) : Json(nullptr);
}

void print(const Page &page, const Json &json)
{
    page.session.line(dump(json));
}

// With the keys of the records that were left out, when there are some.
void print(const Page &page, Json json, const std::set<std::string> &left_out)
{
    if (!left_out.empty()) {
        json["left_out"] = left_out;
    }
    print(page, json);
}

// ---- cards

Json position_json(const Position &position)
{
    return {{"card", position.text()},
            {"devid", position.devid},
            {"slotid", position.slotid},
            {"sslotid", position.sslotid}};
}

Json result_json(const std::optional<bool> &says_pass)
{
    return says_pass ? Json(*says_pass ? "PASS" : "DENY") : Json(nullptr);
}

// What the records say.
Json stored_json(const Card &card)
{
    return {{"name", card.facts.name},
            {"node_type", enum_text(p_dev__dm_node_type_e__descriptor, card.facts.node_type)},
            {"is_online", card.facts.online},
            {"verdict", card.verdict()},
            {"results",
             {{"by_tipc", result_json(card.by_tipc)},
              {"by_position", result_json(card.by_position)},
              {"custom_status", card.custom_status
                                    ? Json(enum_text(p_dev__dm_ctm_status_e__descriptor, *card.custom_status))
                                    : Json(nullptr)}}}};
}

Json card_json(const CardRow &row, const Overview &overview)
{
    Json json = position_json(row.position());
    if (row.stored) {
        json.update(stored_json(*row.stored));
    }
    json["request"] = row.stored ? row.stored->request : row.tracked.request;
    json["power_off"] = !overview.knows(device_database) ? Json(nullptr)
                        : row.stored                     ? Json(row.stored->power_off)
                                                         : Json(row.tracked.power_off);
    json.update(admission_json(row.tracked, row.left));
    json["reason"] = or_null(row.reason);
    return json;
}

Json sources_json(const Overview &overview)
{
    return {{"history",
             {{"file", overview.past.file},
              {"problem", or_null(overview.past.problem)},
              {"alive_at", or_null(overview.past.alive_at)}}},
            {"daemon", {{"problem", or_null(overview.daemon.problem)}}}};
}

Json away_json(const AwayServer &away)
{
    return {{"databases", away.databases}, {"server", away.server}, {"problem", away.problem}};
}

Json record_json(const FoundRecord &found)
{
    return {{"db", found.db},
            {"type", found.type->name()},
            {"key", key_part(*found.type, found.record)},
            {"record", payload_part(*found.type, found.record)}};
}

template <typename Data, typename JsonOf>
Json array_of(const std::vector<Data> &all, const JsonOf &json_of)
{
    Json array = Json::array();
    for (const Data &one : all) {
        array.push_back(json_of(one));
    }
    return array;
}

// What a list and one card begin with; with the servers that were away, when there are some.
Json overview_json(const Overview &overview)
{
    Json json{{"version", 1}, {"sources", sources_json(overview)}};
    if (!overview.away.empty()) {
        json["away"] = array_of(overview.away, away_json);
    }
    return json;
}

void print_cards(const Page &page, const CardList &list)
{
    Json json = overview_json(list.overview);
    json["cards"] =
        array_of(list.rows, [&list](const CardRow *row) { return card_json(*row, list.overview); });
    print(page, json, list.left_out);
}

// The whole object is one card of the list, with the records.
void print_card(const Page &page, const CardSheet &sheet)
{
    Json json = overview_json(sheet.overview);
    json.update(card_json(sheet.row, sheet.overview));
    json["records"] = array_of(sheet.records, record_json);
    print(page, json);
}

// ---- events

// The word of an event, and the members that only this kind has.
struct EventParts {
    const char *word;
    Json members;
};

struct EventForm {
    EventParts operator()(const CardChange &change) const
    {
        constexpr std::array words{"plugged", "changed", "online", "offline", "pulled"};
        const char *word = words.at(static_cast<std::size_t>(change.kind));
        if (change.kind == CardChange::Kind::pulled) {
            return {word, Json::object()};
        }
        return {word,
                {{"node_type", short_type(change.card.node_type)},
                 {"serial", change.card.serial},
                 {"is_online", change.card.online}}};
    }
    EventParts operator()(const Asked &asked) const { return {"asked", {{"waiting_for", asked.modules}}}; }
    EventParts operator()(const admission::Answer &answer) const
    {
        return {"answer", {{"answer", answer_json(answer)}}};
    }
    EventParts operator()(const admission::Decision &decision) const
    {
        return {"decision", {{"decision", decision_json(decision)}}};
    }
    EventParts operator()(const PowerChange &power) const { return {"power", {{"power_off", power.off}}}; }
    EventParts operator()(const RoleChange &role) const
    {
        return {"role", {{"role", role.role ? Json(role_word(*role.role)) : Json(nullptr)}}};
    }
    EventParts operator()(const StoreChange &store) const
    {
        Json members{{"db", store.db},
                     {"server", or_null(store.server)},
                     {"connected", store.connected},
                     {"problem", store.connected ? Json(nullptr) : Json(store.problem)}};
        if (store.connected) {
            members["same_data"] = store.same_data;
        }
        return {"store", members};
    }
    EventParts operator()(const DaemonChange &daemon) const
    {
        return {"daemon",
                {{"answers", daemon.answers},
                 {"problem", daemon.answers ? Json(nullptr) : Json(daemon.problem)}}};
    }
    EventParts operator()(const RecorderChange &recorder) const
    {
        return {
            "recorder",
            {{"at_work", recorder.at_work}, {"alive_at", utc_text(recorder.alive_at)}, {"problem", nullptr}}};
    }
    EventParts operator()(const HistoryChange &history) const
    {
        return {"recorder",
                {{"at_work", nullptr}, {"alive_at", nullptr}, {"problem", or_null(history.problem)}}};
    }
};

void print_event(const Page &page, const Event &event)
{
    print(page, event_json(event));
}

void print_listening(const Page &page)
{
    print(page,
          {{"version", 1}, {"time", utc_text(std::chrono::system_clock::now())}, {"event", "listening"}});
}

// ---- history

Json recorded_json(const history::Decision &decision)
{
    const history::CardFacts &card = decision.card;
    Json json = position_json(card.position);
    json.update({{"name", card.name},
                 {"serial", card.serial},
                 {"node_type", short_type(card.node_type)},
                 {"config_dev_type", card.config_dev_type},
                 {"nodeid", card.nodeid},
                 {"tipc_nodeid", card.tipc_nodeid},
                 {"is_online", card.online}});
    json.update(decision_json(decision));
    json["took_s"] = or_null(admission::duration_of(decision));
    return json;
}

Json gap_json(const history::Gap &gap)
{
    return {{"from", utc_text(gap.from)}, {"until", or_null(gap.until)}, {"why", gap.why}};
}

Json life_json(const history::LifeEvent &event)
{
    if (event.is_start) {
        return {{"at", utc_text(event.at)}, {"event", "start"}, {"pid", event.pid}};
    }
    return {{"at", utc_text(event.at)}, {"event", "exit"}, {"code", event.code}, {"status", event.status}};
}

void print_history(const Page &page, const Recorded &recorded)
{
    print(page, {{"version", 1},
                 {"file", recorded.file},
                 {"begun_at", or_null(recorded.begun_at)},
                 {"recorded_until", or_null(recorded.alive_at)},
                 {"decisions", array_of(recorded.decisions, recorded_json)},
                 {"gaps", array_of(recorded.gaps, gap_json)},
                 {"daemon", array_of(recorded.life, life_json)}});
}

// ---- modules

Json module_json(const ModuleFigures &module)
{
    const history::ModuleStatistics &numbers = module.numbers;
    return {{"name", numbers.module},
            {"registered", module.registered},
            {"never_answered", module.never_answered()},
            {"silences_since_answer", numbers.silences_since},
            {"answers", numbers.answers},
            {"passes", numbers.passes},
            {"denials", numbers.denials},
            {"unregistered_answers", numbers.unregistered},
            {"silences", numbers.silences},
            {"median_s", or_null(numbers.median)},
            {"percentile_95_s", or_null(numbers.percentile_95)},
            {"waited_for", numbers.waited_for},
            {"last_answer", numbers.last ? answer_json(*numbers.last) : Json(nullptr)}};
}

void print_modules(const Page &page, const ModuleTable &table)
{
    print(page, {{"version", 1},
                 {"file", table.file},
                 {"folder", table.folder},
                 {"recorded_until", or_null(table.recorded_until)},
                 {"since", or_null(table.since)},
                 {"modules", array_of(table.modules, module_json)}});
}

// ---- findings

void print_findings(const Page &page, const std::vector<Finding> &findings)
{
    print(page, array_of(findings, finding_json));
}

// ---- records

void print_record(const Page &page, const FoundRecord &found)
{
    print(page, record_json(found));
}

void print_records(const Page &page, const std::vector<FoundRecord> &records,
                   const std::set<std::string> &left_out)
{
    print(page, {{"records", array_of(records, record_json)}}, left_out);
}

void print_record_change(const Page &page, const RecordChange &change)
{
    Json json{{"time", utc_text(change.at)}, {"cmd", change.command}};
    json.update(record_json(change.found));
    print(page, json);
}

void print_subscribed(const Page &page, const RecordType &type)
{
    print(page, {{"time", utc_text(std::chrono::system_clock::now())},
                 {"cmd", "subscribed"},
                 {"db", type.db},
                 {"type", type.name()}});
}

} // namespace

Json event_json(const Event &event)
{
    const auto [word, members] = std::visit(EventForm{}, event.what);
    Json json{{"version", 1},
              {"time", utc_text(event.at)},
              {"event", word},
              {"card", event.position ? Json(event.position->text()) : Json(nullptr)},
              {"name", event.position ? Json(event.name) : Json(nullptr)},
              {"meanwhile", event.meanwhile}};
    json.update(members);
    return json;
}

Json finding_json(const Finding &finding)
{
    constexpr std::array words{"ok", "warn", "fail", "skipped"};
    return {{"version", 2},
            {"name", finding.check},
            {"state", words.at(static_cast<std::size_t>(finding.severity))},
            {"server", finding.server.empty() ? Json(nullptr) : Json(visible(finding.server))},
            {"databases", finding.server.empty() ? Json(nullptr) : Json(finding.databases)},
            {"found", visible(finding.found)},
            {"fix", visible(finding.fix)}};
}

const Form json_form{
    .cards = print_cards,
    .card = print_card,
    .event = print_event,
    .listening = print_listening,
    .history = print_history,
    .modules = print_modules,
    .finding = [](const Page &, const Finding &) {},
    .findings = print_findings,
    .record = print_record,
    .records = print_records,
    .record_change = print_record_change,
    .subscribed = print_subscribed,
};

} // namespace cg
