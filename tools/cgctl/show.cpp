// cgctl show: everything about one card. First what became of it and how, then every record.
#include "card_text.h"
#include "failure.h"
#include "overview.h"
#include "text.h"
#include "verbs.h"

namespace cgctl
{

namespace
{

using admission::Answer;
using admission::Decision;
using admission::TrackedCard;

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

class Facts
{
public:
    Facts(const Session &session, const Terminal &terminal, const CardRow &row, admission::Time now)
        : session_(session), terminal_(terminal), row_(row), card_(row.tracked), now_(now)
    {
    }

    void print() const
    {
        title();
        fact("state", toned(terminal_, tone_of(card_.state), state_text(card_, row_.left)));
        fact("since", since_text(card_, now_));
        fact("reason", visible(row_.reason));
        if (card_.request) {
            fact("asked", card_.requested_at ? moment(*card_.requested_at) : "when is not known");
            answers(card_.answers, card_.waiting_for);
        }
        if (card_.last) {
            last_check(*card_.last);
        }
        if (card_.power_off) {
            fact("power", toned(terminal_, Tone::bad, "a request to power it off stands"));
        }
        if (card_.cannot_start) {
            fact("status", "marked as unable to start");
        }
    }

private:
    void title() const
    {
        std::string text = "card " + row_.position().text();
        if (row_.stored) {
            const auto &facts = card_.card;
            text += ": " + visible(facts.name) + ", " + short_type(facts.node_type) + ", type " +
                    std::to_string(facts.config_dev_type) +
                    (facts.serial.empty() ? "" : ", serial " + facts.serial) +
                    (facts.online ? ", on line" : ", off line");
        }
        session_.line(toned(terminal_, Tone::heading, text));
    }

    void fact(const std::string &name, const std::string &text) const
    {
        if (!text.empty()) {
            session_.line("  " + name + std::string(column - std::min(column, name.size()), ' ') + text);
        }
    }

    [[nodiscard]] std::string moment(admission::Time time) const
    {
        const auto ago = std::chrono::duration_cast<std::chrono::milliseconds>(now_ - time);
        return clock_text(time, now_) + " (" + span_text(ago) + " ago)";
    }

    static std::string answer_text(const Answer &answer)
    {
        return visible(answer.module) + (answer.ret == 0 ? " PASS" : " DENY") +
               (answer.took ? " after " + seconds_text(*answer.took) : "") +
               (answer.reason.empty() ? "" : ": " + visible(answer.reason)) +
               (answer.registered ? "" : " (no module of the folder: passed over)");
    }

    void answers(const std::vector<Answer> &given, const std::vector<std::string> &missing) const
    {
        std::string name = "answers";
        for (const Answer &answer : given) {
            fact(name, answer_text(answer));
            name = "";
        }
        for (const std::string &module : missing) {
            fact(name, visible(module) + " has not answered");
            name = "";
        }
    }

    void last_check(const Decision &decision) const
    {
        fact(card_.request ? "before" : "decided",
             decision_text(decision) + ", " + moment(decision.decided_at));
        if (card_.request) {
            return;
        }
        fact("asked", decision.requested_at ? moment(*decision.requested_at) : "");
        answers(decision.answers, decision.silent);
        fact("role", decision.role ? role_word(*decision.role) : "");
        if (!decision.complete) {
            fact("", "(the recorder did not see this check from its beginning)");
        }
    }

    static constexpr std::size_t column = 10;

    const Session &session_;
    const Terminal &terminal_;
    const CardRow &row_;
    const TrackedCard &card_;
    admission::Time now_;
};

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

const CardRow &found_row(const Overview &overview, const Position &position)
{
    const CardRow *row = overview.find(position);
    if (row == nullptr) {
        throw Failure(failed, "no card at " + position.text() + "; `cgctl list` shows those that there are");
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
    const CardRow &row = found_row(overview, position);
    const std::vector<FoundRecord> records = records_of_card(store, position);
    if (session.json) {
        session.line(dump(json_of(overview, row, records)));
        return done;
    }
    Facts(session, terminal, row, overview.now()).print();
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
    verb->callback(
        [options, &session] { session.action = [options, &session] { return show(session, *options); }; });
}

} // namespace cgctl
