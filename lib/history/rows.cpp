// Decisions and open checks as rows.
#include "rows.h"

#include <algorithm>
#include <limits>

#include "admission/words.h"

namespace history
{

namespace
{

using std::chrono::milliseconds;

// Names and reasons are of any length in the store; the daemon uses 256 bytes of a reason.
constexpr std::size_t longest_text = 256;

constexpr const char *decision_columns =
    "SELECT d.id, d.devid, d.slotid, d.sslotid, d.card_name, d.serial, d.node_type, d.config_dev_type,"
    " d.nodeid, d.tipc_nodeid, d.online, d.outcome, d.admitted, d.requested_at, d.decided_at, d.decider,"
    " d.reason, d.role, d.complete, d.result, d.request FROM decisions d ";

// Never within a character.
std::string cut(const std::string &text)
{
    constexpr unsigned char continued = 0x80;
    constexpr unsigned char marks = 0xc0;
    if (text.size() <= longest_text) {
        return text;
    }
    std::size_t end = longest_text;
    const std::size_t longest_character = 3; // of the bytes before its last one
    while (end > longest_text - longest_character &&
           (static_cast<unsigned char>(text[end]) & marks) == continued) {
        --end;
    }
    return text.substr(0, end);
}

// Of a write within one set of data its writer is enough; the revision is of no use in another.
std::string text_of(const admission::Write &write)
{
    return write.origin.number == 0 ? "" : store::text_of(write.origin);
}

// The columns devid to online, which begin at 1.
CardFacts card_of(const Statement &row)
{
    CardFacts card;
    card.position = {row.small(1), row.small(2), row.small(3)};
    card.name = row.text(4);
    card.serial = row.text(5);
    card.node_type = row.small(6);
    card.config_dev_type = row.small(7);
    card.nodeid = row.small(8);
    card.tipc_nodeid = row.small(9);
    card.online = row.number(10) != 0;
    return card;
}

Answer answer_of(const Statement &row)
{
    Answer answer;
    answer.module = row.text(0);
    answer.ret = row.small(1);
    answer.reason = row.text(2);
    answer.at = row.time(3);
    answer.registered = row.number(4) != 0;
    if (!row.is_null(5) && row.number(5) >= 0) {
        answer.took = milliseconds(row.number(5));
    }
    return answer;
}

std::vector<Answer> answers_of(Statement &statement)
{
    std::vector<Answer> answers;
    while (statement.step()) {
        answers.push_back(answer_of(statement));
    }
    return answers;
}

std::vector<std::string> names_of(Statement &statement)
{
    std::vector<std::string> names;
    while (statement.step()) {
        names.push_back(statement.text(0));
    }
    return names;
}

void write_answers(const Database &database, const char *sql, int64_t owner,
                   const std::vector<Answer> &answers, int64_t number = 0)
{
    Statement statement(database, sql);
    for (const Answer &answer : answers) {
        const auto took = answer.took ? std::optional<int64_t>(answer.took->count()) : std::nullopt;
        statement.with(owner, number++, cut(answer.module), answer.ret, cut(answer.reason), answer.at,
                       answer.registered, took);
        statement.run();
    }
}

void write_names(const Database &database, const char *sql, int64_t owner,
                 const std::vector<std::string> &names)
{
    Statement statement(database, sql);
    int64_t number = 0;
    for (const std::string &name : names) {
        statement.with(owner, number++, cut(name)).run();
    }
}

Decision decision_of(const Statement &row)
{
    Decision decision;
    decision.card = card_of(row);
    decision.outcome = admission::outcome_of(row.text(11)).value_or(Outcome::unseen);
    if (!row.is_null(12)) {
        decision.admitted = row.number(12) != 0;
    }
    if (!row.is_null(13)) {
        decision.requested_at = row.time(13);
    }
    decision.decided_at = row.time(14);
    decision.decider = row.text(15);
    decision.reason = row.text(16);
    if (!row.is_null(17)) {
        decision.role = row.small(17);
    }
    decision.complete = row.number(18) != 0;
    decision.result.origin = store::parse_origin(row.text(19));
    decision.request.origin = store::parse_origin(row.text(20));
    return decision;
}

std::vector<Decision> decisions_of(const Database &database, Statement &rows)
{
    std::vector<Decision> decisions;
    Statement answers(database, "SELECT module, ret, reason, at, registered, took_ms FROM answers"
                                " WHERE decision_id = ? ORDER BY number");
    Statement silent(database, "SELECT module FROM silent WHERE decision_id = ? ORDER BY number");
    while (rows.step()) {
        decisions.push_back(decision_of(rows));
        decisions.back().answers = answers_of(answers.with(rows.number(0)));
        decisions.back().silent = names_of(silent.with(rows.number(0)));
    }
    return decisions;
}

} // namespace

std::vector<Decision> read_decisions(const Database &database, const Filter &filter)
{
    std::string where = "WHERE (?1 IS NULL OR d.decided_at >= ?1) AND (?2 IS NULL OR d.decided_at < ?2)"
                        " AND (?3 IS NULL OR d.outcome = ?3)"
                        " AND (?4 IS NULL OR (d.devid = ?4 AND d.slotid = ?5 AND d.sslotid = ?6)) ";
    if (!filter.module.empty()) {
        where += "AND (EXISTS (SELECT 1 FROM answers a WHERE a.decision_id = d.id AND a.module = ?8)"
                 " OR EXISTS (SELECT 1 FROM silent s WHERE s.decision_id = d.id AND s.module = ?8)) ";
    }
    where += "ORDER BY d.decided_at DESC, d.id DESC LIMIT ?7";
    Statement rows(database, (decision_columns + where).c_str());
    const Position at = filter.position.value_or(Position{});
    rows.with(filter.from, filter.until,
              filter.outcome ? std::optional(admission::word_of(*filter.outcome)) : std::nullopt,
              filter.position ? std::optional(at.devid) : std::nullopt, at.slotid, at.sslotid,
              static_cast<int64_t>(std::min<std::size_t>(filter.newest.value_or(INT64_MAX), INT64_MAX)));
    if (!filter.module.empty()) {
        rows.bind(7, filter.module);
    }
    std::vector<Decision> decisions = decisions_of(database, rows);
    std::reverse(decisions.begin(), decisions.end());
    return decisions;
}

std::vector<Decision> read_last_decisions(const Database &database)
{
    const std::string sql = std::string(decision_columns) + "JOIN last_decisions l ON l.decision_id = d.id"
                                                            " ORDER BY d.devid, d.slotid, d.sslotid";
    Statement rows(database, sql.c_str());
    return decisions_of(database, rows);
}

std::vector<OpenCheck> read_open_checks(const Database &database)
{
    Statement rows(database,
                   "SELECT id, devid, slotid, sslotid, card_name, serial, node_type,"
                   " config_dev_type, nodeid, tipc_nodeid, online, requested_at, any_will_do, request"
                   " FROM open_checks ORDER BY devid, slotid, sslotid");
    Statement answers(database, "SELECT module, ret, reason, at, registered, took_ms FROM open_answers"
                                " WHERE check_id = ? ORDER BY number");
    Statement waiting(database, "SELECT module FROM open_waiting WHERE check_id = ? ORDER BY number");
    std::vector<OpenCheck> checks;
    while (rows.step()) {
        OpenCheck check;
        check.card = card_of(rows);
        if (!rows.is_null(11)) {
            check.requested_at = rows.time(11);
        }
        check.answers = answers_of(answers.with(rows.number(0)));
        check.waiting_for = names_of(waiting.with(rows.number(0)));
        check.any_will_do = rows.number(12) != 0;
        check.request.origin = store::parse_origin(rows.text(13));
        checks.push_back(std::move(check));
    }
    return checks;
}

int64_t write_decision(const Database &database, const Decision &decision)
{
    const CardFacts &card = decision.card;
    Statement(database, "INSERT INTO decisions (devid, slotid, sslotid, card_name, serial, node_type,"
                        " config_dev_type, nodeid, tipc_nodeid, online, outcome, admitted, requested_at,"
                        " decided_at, decider, reason, role, complete, result, request)"
                        " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)")
        .with(card.position.devid, card.position.slotid, card.position.sslotid, cut(card.name),
              cut(card.serial), card.node_type, card.config_dev_type, card.nodeid, card.tipc_nodeid,
              card.online, admission::word_of(decision.outcome), decision.admitted, decision.requested_at,
              decision.decided_at, cut(decision.decider), cut(decision.reason), decision.role,
              decision.complete, text_of(decision.result), text_of(decision.request))
        .run();
    const int64_t id = database.last_id();
    write_answers(database, "INSERT INTO answers VALUES (?, ?, ?, ?, ?, ?, ?, ?)", id, decision.answers);
    write_names(database, "INSERT INTO silent VALUES (?, ?, ?)", id, decision.silent);
    Statement(database, "INSERT OR REPLACE INTO last_decisions VALUES (?, ?, ?, ?)")
        .with(card.position.devid, card.position.slotid, card.position.sslotid, id)
        .run();
    return id;
}

void write_late_answer(const Database &database, const Position &position, const Answer &answer)
{
    constexpr int64_t most = 16;
    Statement decision(database, "SELECT l.decision_id, (SELECT coalesce(max(number), -1) + 1 FROM answers a"
                                 " WHERE a.decision_id = l.decision_id), (SELECT count(*) FROM answers a"
                                 " WHERE a.decision_id = l.decision_id AND a.registered = ?4"
                                 " AND (NOT ?4 OR a.module = ?5))"
                                 " FROM last_decisions l WHERE devid = ?1 AND slotid = ?2 AND sslotid = ?3");
    decision.with(position.devid, position.slotid, position.sslotid, answer.registered, cut(answer.module));
    if (decision.step() && decision.number(2) < most) {
        write_answers(database, "INSERT INTO answers VALUES (?, ?, ?, ?, ?, ?, ?, ?)", decision.number(0),
                      {answer}, decision.number(1));
    }
}

void write_open_check(const Database &database, const OpenCheck &check)
{
    const CardFacts &card = check.card;
    erase_open_check(database, card.position);
    Statement(database, "INSERT INTO open_checks (devid, slotid, sslotid, card_name, serial, node_type,"
                        " config_dev_type, nodeid, tipc_nodeid, online, requested_at, any_will_do, request)"
                        " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)")
        .with(card.position.devid, card.position.slotid, card.position.sslotid, cut(card.name),
              cut(card.serial), card.node_type, card.config_dev_type, card.nodeid, card.tipc_nodeid,
              card.online, check.requested_at, check.any_will_do, text_of(check.request))
        .run();
    const int64_t id = database.last_id();
    write_answers(database, "INSERT INTO open_answers VALUES (?, ?, ?, ?, ?, ?, ?, ?)", id, check.answers);
    write_names(database, "INSERT INTO open_waiting VALUES (?, ?, ?)", id, check.waiting_for);
}

void erase_open_check(const Database &database, const Position &position)
{
    Statement(database, "DELETE FROM open_checks WHERE devid = ? AND slotid = ? AND sslotid = ?")
        .with(position.devid, position.slotid, position.sslotid)
        .run();
}

} // namespace history
