// Text for people.
#include "forms/text_form.h"

#include <algorithm>
#include <array>
#include <map>
#include <tuple>
#include <utility>

#include "admission/card_facts.h"
#include "admission/card_text.h"
#include "admission/follower.h"
#include "base/table.h"
#include "base/text.h"
#include "records/databases.h"

namespace cg
{

namespace
{

void print_table(const Page &page, const std::vector<Column> &columns,
                 const std::vector<std::vector<Cell>> &cells)
{
    for (const std::string &line : table_lines(columns, cells, page.terminal)) {
        page.session.line(line);
    }
}

// ---- cards

// In a pipe each text is as it is in the other views, whole.
std::vector<Cell> cells_of(const CardRow &row, const Overview &overview, const Terminal &terminal)
{
    const admission::TrackedCard &tracked = row.tracked;
    const Time now = overview.now;
    const char *no_request = overview.knows(device_database) ? "-" : "?";
    Cell state{state_text(tracked, row.left), tone_of(tracked)};
    Cell since{since_text(tracked, now)};
    Cell reason{visible(row.reason)};
    if (terminal.is_one) {
        std::tie(state.text, state.rest) = state_parts(tracked, row.left);
        since.text = tracked.since ? short_clock_text(*tracked.since, now) : "";
        since.rest = tracked.since ? ago_text(*tracked.since, now) : "";
        reason.rest = std::exchange(reason.text, "");
    }
    return {{row.position().text()},
            {row.stored ? visible(tracked.card.name) : "-"},
            {row.stored ? short_type(tracked.card.node_type) : "-"},
            std::move(state),
            std::move(since),
            {tracked.power_off ? "off" : no_request, tracked.power_off ? Tone::bad : Tone::plain},
            std::move(reason)};
}

// One line for each source that was missing, and what is not known for that.
void notice_what_is_missing(const Session &session, const Overview &overview)
{
    const Past &past = overview.past;
    if (!past.problem.empty()) {
        session.notice(visible(past.problem) + ": times, answers and reasons are not known");
    } else if (Heartbeat{past.alive_at}.is_old(overview.now)) {
        session.notice(recorder_away_text(past, overview.now));
    }
    const bool is_waited = std::any_of(overview.rows.begin(), overview.rows.end(), [](const CardRow &row) {
        return row.tracked.state == admission::State::waiting;
    });
    if (overview.daemon.is_silent) {
        session.notice(silence_text(overview.daemon));
    } else if (!overview.daemon.problem.empty() && is_waited) {
        session.notice("cannot ask the daemon which modules it is waiting for: " +
                       visible(overview.daemon.problem));
    }
}

void print_cards(const Page &page, const CardList &list)
{
    // The least widths keep what tells the cards apart, and the beginning of each state.
    const std::vector<Column> columns{
        {"CARD", 0},  {"NAME", 6, 16}, {"TYPE", 0}, {"STATE", 16}, {"SINCE", 8, 0, Rest::dropped},
        {"POWER", 0}, {"REASON", 12}};
    std::vector<std::vector<Cell>> cells;
    Summary summary;
    for (const CardRow *row : list.rows) {
        cells.push_back(cells_of(*row, list.overview, page.terminal));
        summary.add(row->tracked);
    }
    if (!cells.empty()) {
        print_table(page, columns, cells);
        page.session.notice(summary.text());
    }
    notice_what_is_missing(page.session, list.overview);
}

void print_fields(const Session &session, const FoundRecord &found, const Json &fields)
{
    for (const std::string &line : to_lines(*found.type->descriptor, fields, Shown::all)) {
        session.line("  " + line);
    }
}

void print_card(const Page &page, const CardSheet &sheet)
{
    constexpr std::size_t column = 10;
    const Session &session = page.session;
    const auto print = [&](const std::string &name, const std::string &text, Tone tone) {
        session.line("  " + name + std::string(column - std::min(column, name.size()), ' ') +
                     toned(page.terminal, tone, text));
    };
    const CardRow &row = sheet.row;
    session.line(toned(page.terminal, Tone::heading, "card " + row.position().text()));
    for (const auto &[name, text] : facts_of_card(row.tracked, row.left, sheet.overview.now)) {
        print(name, text, name == "state" ? tone_of(row.tracked) : Tone::plain);
    }
    // The daemon's word where there is no history; else the decision has it already.
    if (!row.reason.empty() && !row.tracked.last) {
        print("reason", visible(row.reason), Tone::plain);
    }
    for (const FoundRecord &found : sheet.records) {
        session.line("");
        session.line(std::string(found.type->name()) + " (database " + std::to_string(found.db) + ")");
        print_fields(session, found, found.record);
    }
    notice_what_is_missing(session, sheet.overview);
}

// ---- events

struct EventForm {
    Time at;

    std::string operator()(const CardChange &change) const
    {
        const std::string type = short_type(change.card.node_type);
        switch (change.kind) {
        case CardChange::Kind::plugged:
            return "plugged, " + type + (change.card.online ? ", online" : ", offline");
        case CardChange::Kind::changed:
            return "replaced, or its data changed: " + type;
        case CardChange::Kind::online:
            return "online";
        case CardChange::Kind::offline:
            return "offline";
        default:
            return "pulled";
        }
    }
    std::string operator()(const Asked &asked) const
    {
        return "check requested" + (asked.modules.empty() ? "" : " of " + visible(joined(asked.modules)));
    }
    std::string operator()(const admission::Answer &answer) const { return answer_text(answer); }
    std::string operator()(const admission::Decision &decision) const { return decision_text(decision); }
    std::string operator()(const PowerChange &power) const
    {
        return power.off ? "power-off requested" : "power-off request withdrawn";
    }
    std::string operator()(const RoleChange &role) const
    {
        return role.role ? "this device's role is " + role_word(*role.role)
                         : "this device's role is not known";
    }
    std::string operator()(const StoreChange &store) const
    {
        using Kind = ::store::ConnectionEvent::Kind;
        return admission::text_of(::store::ConnectionEvent{store.connected ? Kind::returned : Kind::lost,
                                                           store.db, store.problem, store.same_data,
                                                           store.server});
    }
    std::string operator()(const DaemonChange &daemon) const
    {
        return daemon.answers ? "the daemon answers again"
                              : "the daemon no longer answers, so cards that come now may start unchecked: " +
                                    visible(daemon.problem);
    }
    std::string operator()(const RecorderChange &recorder) const
    {
        return recorder.at_work
                   ? "cg_recorderd is running again"
                   : "cg_recorderd has written nothing since " + clock_text(recorder.alive_at, at);
    }
    std::string operator()(const HistoryChange &history) const
    {
        return history.problem.empty()
                   ? "the history can be read again"
                   : "whether cg_recorderd is running is not known: " + visible(history.problem);
    }
};

struct EventTone {
    Tone operator()(const CardChange & /*change*/) const { return Tone::plain; }
    Tone operator()(const Asked & /*asked*/) const { return Tone::waiting; }
    Tone operator()(const admission::Answer &answer) const
    {
        return answer.ret == 0 ? Tone::plain : Tone::bad;
    }
    Tone operator()(const admission::Decision &decision) const { return tone_of(decision); }
    Tone operator()(const PowerChange &power) const { return power.off ? Tone::bad : Tone::plain; }
    Tone operator()(const RoleChange & /*role*/) const { return Tone::plain; }
    Tone operator()(const StoreChange &store) const
    {
        return warning_unless(store.connected && store.same_data);
    }
    Tone operator()(const DaemonChange &daemon) const { return daemon.answers ? Tone::plain : Tone::bad; }
    Tone operator()(const RecorderChange &recorder) const { return warning_unless(recorder.at_work); }
    Tone operator()(const HistoryChange &history) const { return warning_unless(history.problem.empty()); }

private:
    static Tone warning_unless(bool good) { return good ? Tone::plain : Tone::warning; }
};

void print_event(const Page &page, const Event &event)
{
    page.session.line(date_text(event.at) + ' ' + toned(page.terminal, tone_of(event), event_text(event)));
}

void print_listening(const Page &page)
{
    page.session.notice("listening");
}

// ---- history

std::string decision_line(const history::Decision &decision, const Recorded &recorded,
                          const Terminal &terminal)
{
    const history::CardFacts &card = decision.card;
    std::string line = clock_text(decision.decided_at, recorded.now) + "  " + card.position.text() + "  " +
                       (card.name.empty() ? "-" : visible(card.name));
    line += (card.serial.empty() ? "" : " (serial " + visible(card.serial) + ')') + "  " +
            toned(terminal, tone_of(decision), decision_text(decision));
    if (const auto span = admission::duration_of(decision)) {
        line += "  after " + seconds_text(*span);
    }
    line += decision.role ? "  as " + role_word(*decision.role) : "";
    if (!decision.complete) {
        line += decision.requested_at ? "  (not known in full)" : "  (not seen from its beginning)";
    }
    for (const history::Answer &answer : decision.answers) {
        line += recorded.with_answers ? "\n    " + answer_text(answer) : "";
    }
    return line;
}

std::string gap_line(const history::Gap &gap, Time now)
{
    return clock_text(gap.from, now) + " to " + (gap.until ? clock_text(*gap.until, now) : "now") + "  " +
           visible(gap.why) + ": decisions may be missing";
}

std::string life_line(const history::LifeEvent &event, Time now)
{
    return clock_text(event.at, now) +
           (event.is_start ? "  the daemon started, process " + std::to_string(event.pid)
                           : "  the daemon ended: " + visible(event.code) + ' ' + visible(event.status));
}

void print_history(const Page &page, const Recorded &recorded)
{
    std::multimap<Time, std::string> lines;
    for (const history::Gap &gap : recorded.gaps) {
        lines.emplace(gap.from, toned(page.terminal, Tone::warning, gap_line(gap, recorded.now)));
    }
    for (const history::LifeEvent &event : recorded.life) {
        lines.emplace(event.at, life_line(event, recorded.now));
    }
    for (const history::Decision &decision : recorded.decisions) {
        lines.emplace(decision.decided_at, decision_line(decision, recorded, page.terminal));
    }
    for (const auto &[at, line] : lines) {
        page.session.line(line);
    }
}

// ---- modules

std::string waited_for_text(const history::ModuleStatistics &numbers)
{
    return "waited for by " + std::to_string(numbers.waited_for) +
           (numbers.waited_for == 1 ? " card" : " cards");
}

Tone tone_of(const ModuleFigures &module)
{
    const bool is_bad = (module.never_answered() && module.asked) || module.fell_silent();
    return module.may_yet_answer() ? Tone::waiting : is_bad ? Tone::bad : Tone::plain;
}

std::string note_on(const ModuleFigures &module, Time now)
{
    const history::ModuleStatistics &numbers = module.numbers;
    const std::string longest_wait = "every card waits " + seconds_text(check_timeout) + " for it";
    if (module.fell_silent()) {
        const int64_t checks = numbers.silences_since;
        return "SILENT SINCE " + clock_text(numbers.last->at, now) + ": " + std::to_string(checks) +
               (checks == 1 ? " check" : " checks") + " ended without it, " + longest_wait;
    }
    if (module.never_answered() && !module.asked) {
        return "has not been waited for yet";
    }
    if (module.may_yet_answer()) {
        return "first asked: " + waited_for_text(numbers);
    }
    if (module.never_answered()) {
        return "NEVER ANSWERED: " + longest_wait;
    }
    if (module.is_stranger()) {
        return "not registered: its answers are ignored";
    }
    return numbers.waited_for > 0 ? waited_for_text(numbers) : "";
}

std::string span_or_dash(const std::optional<std::chrono::milliseconds> &span)
{
    return span ? seconds_text(*span) : "-";
}

std::string last_text(const history::ModuleStatistics &numbers, Time now, const Terminal &terminal)
{
    if (!numbers.last) {
        return "-";
    }
    const std::string verdict = numbers.last->ret == 0 ? "PASS" : "DENY";
    const Time at = numbers.last->at;
    return terminal.is_one ? verdict + ' ' + short_clock_text(at, now) : clock_text(at, now) + ' ' + verdict;
}

std::vector<Cell> cells_of(const ModuleFigures &module, Time now, const Terminal &terminal)
{
    const history::ModuleStatistics &numbers = module.numbers;
    const Tone tone = tone_of(module);
    Cell note{note_on(module, now), module.is_stranger() ? Tone::warning : tone};
    if (terminal.is_one) {
        note.rest = std::exchange(note.text, "");
    }
    return {{visible(numbers.module), tone},
            {module.registered ? "yes" : "no"},
            {std::to_string(numbers.answers)},
            {std::to_string(numbers.passes)},
            {std::to_string(numbers.denials)},
            {std::to_string(numbers.silences), numbers.silences > 0 ? Tone::warning : Tone::plain},
            {span_or_dash(numbers.median)},
            {span_or_dash(numbers.percentile_95)},
            {last_text(numbers, now, terminal)},
            std::move(note)};
}

void print_modules(const Page &page, const ModuleTable &table)
{
    if (table.modules.empty()) {
        page.session.notice(
            "no module is registered and none has answered: every card is admitted without a check");
        return;
    }
    const char *registered = page.terminal.is_one ? "REG" : "REGISTERED"; // 80 columns are few
    const std::vector<Column> columns{{"MODULE", 0}, {registered, 0}, {"ANSWERS", 0}, {"PASS", 0},
                                      {"DENY", 0},   {"SILENT", 0},   {"MEDIAN", 0},  {"95 %", 0},
                                      {"LAST", 8},   {"NOTE", 14}};
    std::vector<std::vector<Cell>> cells;
    for (const ModuleFigures &module : table.modules) {
        cells.push_back(cells_of(module, table.now, page.terminal));
    }
    print_table(page, columns, cells);
}

// ---- findings

void print_finding(const Page &page, const Finding &finding)
{
    page.session.line(finding_line(finding));
}

// ---- records

void print_record(const Page &page, const FoundRecord &found)
{
    page.session.line(title(found));
    print_fields(page.session, found, payload_part(*found.type, found.record));
}

void print_records(const Page &page, const std::vector<FoundRecord> &records,
                   const std::set<std::string> & /*left_out*/)
{
    for (const FoundRecord &found : records) {
        print_record(page, found);
    }
}

// The fields that are not at their defaults, and those that have just become so.
std::string changed_fields(const RecordChange &change)
{
    const ProtobufCMessageDescriptor &type = *change.found.type->descriptor;
    const Json payload = payload_part(*change.found.type, change.found.record);
    const std::vector<std::string> set = to_lines(type, payload, Shown::set);
    const std::vector<std::string> known =
        change.before.is_object() ? to_lines(type, change.before, Shown::all) : std::vector<std::string>{};
    const auto is_in = [](const std::vector<std::string> &fields, const std::string &field) {
        return std::find(fields.begin(), fields.end(), field) != fields.end();
    };
    std::string text;
    for (const std::string &field : to_lines(type, payload, Shown::all)) {
        text += is_in(set, field) || (!known.empty() && !is_in(known, field)) ? ' ' + field : "";
    }
    return text;
}

void print_record_change(const Page &page, const RecordChange &change)
{
    page.session.line(utc_text(change.at) + ' ' + change.command + ' ' + title(change.found) + ':' +
                      changed_fields(change));
}

void print_subscribed(const Page &page, const RecordType &type)
{
    page.session.notice(std::string("subscribed to ") + type.name() + " in database " +
                        std::to_string(type.db));
}

} // namespace

std::string event_text(const Event &event)
{
    std::string text = std::visit(EventForm{event.at}, event.what);
    if (!event.position) {
        return text;
    }
    return event.position->text() + (event.name.empty() ? "" : ' ' + visible(event.name)) + ": " + text +
           (event.meanwhile ? " (while the store was away)" : "");
}

Tone tone_of(const Event &event)
{
    return std::visit(EventTone{}, event.what);
}

std::string finding_line(const Finding &finding)
{
    constexpr std::array words{"ok", "WARN", "FAIL", "skip"};
    std::string line = words.at(static_cast<std::size_t>(finding.severity));
    line.resize(6, ' ');
    line += finding.check;
    if (finding.server.empty()) {
        line.resize(26, ' ');
    } else {
        line += " (" + databases_text(finding.databases) + ", " + visible(finding.server) + "): ";
    }
    line += visible(finding.found);
    return finding.fix.empty() ? line : line + "; fix: " + visible(finding.fix);
}

const Form text_form{
    .cards = print_cards,
    .card = print_card,
    .event = print_event,
    .listening = print_listening,
    .history = print_history,
    .modules = print_modules,
    .finding = print_finding,
    .findings = [](const Page &, const std::vector<Finding> &) {},
    .record = print_record,
    .records = print_records,
    .record_change = print_record_change,
    .subscribed = print_subscribed,
};

} // namespace cg
