// cgctl sim: plays scenarios against the running store and daemon.
//
// It stands in for everything around the daemon: the chassis manager that writes the cards, and the check
// modules.
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include "access/live.h"
#include "admission/feed.h"
#include "base/failure.h"
#include "base/text.h"
#include "cards/daemon_view.h"
#include "command_line/verbs.h"
#include "records/position_key.h"
#include "sim_report.h"

namespace cg
{

namespace
{

constexpr std::size_t largest_file = std::size_t{1} << 20U;
constexpr double least_speed = 0.01;
constexpr double most_speed = 1000;

struct SimOptions {
    std::vector<std::string> files{};
    std::string speed = "1";
    bool check = false;
    bool keep = false;
    bool stay = false;
};

std::string read_all(std::istream &input, const std::string &name)
{
    std::string text;
    char character = 0;
    while (input.get(character)) {
        text += character;
        if (text.size() > largest_file) {
            throw Failure(wrong_usage, visible(name) + ": too long for a scenario; up to a megabyte");
        }
    }
    if (input.bad()) {
        throw Failure(failed, visible(name) + ": cannot be read");
    }
    return text;
}

std::string text_of_file(const std::string &name)
{
    if (name == "-") {
        return read_all(std::cin, "standard input");
    }
    std::ifstream file(name);
    if (!file || file.peek() == std::ifstream::traits_type::eof()) {
        const bool is_empty = file.eof() && !file.bad();
        throw Failure(failed, visible(name) + (is_empty ? ": there is nothing in it" : ": cannot be read"));
    }
    return read_all(file, name);
}

// Throws Failure without a message when there are mistakes: they are told then.
std::vector<scenario::Scenario> read_files(const Session &session, const SimOptions &options)
{
    std::vector<scenario::Scenario> scenarios;
    bool right = true;
    for (const std::string &file : options.files) {
        const std::string text = text_of_file(file);
        scenarios.push_back(scenario::read_scenario(file == "-" ? "standard input" : file, text));
        if (!scenarios.back().problems.empty()) {
            report_mistakes(session, scenarios.back(), text);
            right = false;
        }
    }
    if (!right) {
        throw Failure(wrong_usage, "");
    }
    return scenarios;
}

double speed_of(const std::string &text)
{
    char *end = nullptr;
    const double speed = strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(speed) || speed < least_speed || speed > most_speed) {
        throw Failure(wrong_usage, "--speed " + visible(text) + ": not a factor from 0.01 to 1000");
    }
    return speed;
}

// The modules that are played, in the order in which they are named.
std::vector<std::string> played(const std::vector<scenario::Scenario> &scenarios)
{
    std::vector<std::string> names;
    for (const scenario::Scenario &scenario : scenarios) {
        for (const scenario::Statement &statement : scenario.statements) {
            const auto *rule = std::get_if<scenario::ModuleRule>(&statement.what);
            if (rule != nullptr && std::find(names.begin(), names.end(), rule->module) == names.end()) {
                names.push_back(rule->module);
            }
        }
    }
    return names;
}

std::string listed(const std::vector<std::string> &names)
{
    std::string text;
    for (const std::string &name : names) {
        text += (text.empty() ? "" : ", ") + visible(name);
    }
    return text.empty() ? "nobody" : text;
}

std::vector<std::string> missing(const std::vector<std::string> &wanted,
                                 const std::vector<std::string> &there)
{
    std::vector<std::string> names;
    std::copy_if(wanted.begin(), wanted.end(), std::back_inserter(names), [&](const std::string &name) {
        return std::find(there.begin(), there.end(), name) == there.end();
    });
    return names;
}

// The modules that the daemon asks. Throws Failure when one that is played is not among them.
std::vector<std::string> registered(const Session &session, const std::vector<std::string> &names)
{
    const DaemonView daemon = ask_daemon(session);
    if (!daemon.problem.empty()) {
        session.notice("whether the daemon knows the modules was not looked at: " + daemon.problem);
        return names;
    }
    const std::vector<std::string> unknown = missing(names, daemon.modules);
    if (!unknown.empty()) {
        std::string files;
        for (const std::string &name : unknown) {
            files += " /etc/app_cg/deny_check/" + visible(name);
        }
        throw Failure(failed, "the daemon does not know " + listed(unknown) + ", it asks " +
                                  listed(daemon.modules) + "; `touch" + files +
                                  "` in its view of the file system, and start it anew");
    }
    const std::vector<std::string> others = missing(daemon.modules, names);
    if (!others.empty()) {
        session.notice("the daemon also asks " + listed(others) +
                       ", not played here: unless somebody else answers, cards wait for it");
    }
    return daemon.modules;
}

// The play: the player, the store and the event loop.
class Play
{
public:
    Play(const Session &session, const SimOptions &options, const std::vector<scenario::Scenario> &scenarios,
         std::vector<std::string> modules)
        : session_(session), options_(options), store_(session), live_(session, store_),
          player_(scenarios,
                  {speed_of(options.speed), options.keep || options.stay, options.stay, std::move(modules)},
                  stage())
    {
        refuse_occupied(scenarios);
        live_.on_outage([this](const Live::Outage &outage) { in_place_.lost(outage.db); });
        for (const admission::TrackedType &tracked : admission::tracked_types()) {
            const RecordType &type = record_type(tracked.descriptor->name);
            live_.subscribe(type, tracked.db, [this](const Change &change) { take(change); });
        }
    }

    int run()
    {
        std::exception_ptr failure;
        try {
            live_.run();
        } catch (...) {
            failure = std::current_exception();
        }
        report_if_due();
        if (!options_.keep) {
            clean_up();
        }
        if (failure) {
            std::rethrow_exception(failure);
        }
        const auto &results = player_.results();
        const bool held = std::all_of(results.begin(), results.end(),
                                      [](const ExpectationResult &result) { return result.held; });
        return player_.is_finished() && held ? done : failed;
    }

private:
    SimStage stage()
    {
        return {[] { return std::chrono::system_clock::now(); },
                [this](scenario::Milliseconds time, std::function<void()> action) {
                    live_.after(time.count(), std::move(action));
                },
                [this](const NewCard &card) { store_.set(card_type_, card_type_.db, card_info_of(card)); },
                [this](const Position &position, scenario::Move move) { change_card(position, move); },
                [this](const std::string &role) { set_role(role); },
                [this](const DueAnswer &answer) { write_answer(answer); },
                [this](const SimEvent &event) { report_event(session_, event); },
                [this] { finished(); }};
    }

    // A card that is there is somebody's: it would be overwritten, and pulled at the end.
    void refuse_occupied(const std::vector<scenario::Scenario> &scenarios)
    {
        for (const scenario::Scenario &scenario : scenarios) {
            for (const scenario::Statement &statement : scenario.statements) {
                const auto *plug = std::get_if<scenario::Plug>(&statement.what);
                if (plug != nullptr &&
                    store_.exists(card_type_, card_type_.db, key_of(plug->card.position))) {
                    const std::string position = plug->card.position.text();
                    throw Failure(failed, visible(scenario.file) + ':' +
                                              std::to_string(statement.place.line) + ": there is a card at " +
                                              position + "; play it elsewhere, or `cgctl card pull " +
                                              position + '`');
                }
            }
        }
    }

    void take(const Change &change)
    {
        if (change.cmd == VX_MOM_CMD_SUBSCRIBED) {
            if (in_place_.told(change.type.descriptor)) {
                std::exchange(started_, true) ? player_.all_told() : player_.start();
            }
        } else if (change.error_code != 0) {
            session_.notice(std::string("a record of ") + change.type.name() + " could not be read (result " +
                            std::to_string(change.error_code) + ")");
        } else if (change.message != nullptr) {
            const bool existing = change.existing || !in_place_.is_complete(change.db);
            player_.heard(change.cmd, *change.message, existing);
        }
    }

    void change_card(const Position &position, scenario::Move move)
    {
        if (move == scenario::Move::pull) {
            store_.erase(card_type_, card_type_.db, key_of(position));
            return;
        }
        Json card = record_with_key(card_type_, key_of(position));
        card["is_online"] = move == scenario::Move::online;
        store_.set_fields(card_type_, card_type_.db, card,
                          {static_cast<int32_t>(field_number(card_type_, "is_online="))});
    }

    void set_role(const std::string &role)
    {
        const RecordType &type = record_type("p_dev.dp_lib_grole");
        Json record = Json::object();
        assign(type, record, "my_grole=DM_ROLE_" + upper(role));
        store_.set_fields(type, type.db, record, {static_cast<int32_t>(field_number(type, "my_grole="))});
    }

    static std::string upper(std::string text)
    {
        std::transform(text.begin(), text.end(), text.begin(),
                       [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
        return text;
    }

    // Unless the request is gone: an answer to nobody would meet the card's next request.
    void write_answer(const DueAnswer &answer)
    {
        const RecordType &request = record_type("p_libpub.app_cg_card_check_info");
        const RecordType &type = record_type("p_libpub.app_cg_card_check_ack");
        if (store_.exists(request, request.db, key_of(answer.position))) {
            store_.set(type, type.db,
                       {{"index",
                         {{"devid", answer.position.devid},
                          {"slotid", answer.position.slotid},
                          {"t_sslotid", answer.position.sslotid},
                          {"mod_name", answer.module}}},
                        {"ret", answer.pass ? 0 : 1},
                        {"reason", answer.reason}});
        }
    }

    void finished()
    {
        report_if_due();
        if (!options_.stay) {
            live_.stop();
        }
    }

    void report_if_due()
    {
        if (!std::exchange(reported_, true)) {
            report_results(session_, player_, player_.is_finished());
        }
    }

    // What the end of the play did not pull, since it never came or the play goes on. Nobody acts on
    // power-off requests here, and one that is left would be taken for the next card's.
    void clean_up()
    {
        const std::set<Position> left = player_.plugged();
        for (const Position &position : left) {
            try {
                store_.erase(card_type_, card_type_.db, key_of(position));
            } catch (const Failure &failure) {
                session_.notice(position.text() + " is left plugged: " + failure.what());
            }
        }
        const RecordType &power = record_type("s_dev.im_card_power_onoff");
        for (const admission::TrackedCard *card : player_.tracker().cards()) {
            const Position &position = card->card.position;
            if (card->power_off && player_.has_played(position)) {
                store_.erase_matching(power, power.db, key_of(position), 3);
            }
        }
    }

    const Session &session_;
    const SimOptions &options_;
    const RecordType &card_type_ = record_type("p_dev.card_info");
    Store store_;
    Live live_;
    admission::InPlace in_place_;
    bool started_ = false;
    bool reported_ = false;
    SimPlayer player_;
};

int sim(const Session &session, const SimOptions &options)
{
    speed_of(options.speed);
    const std::vector<scenario::Scenario> scenarios = read_files(session, options);
    if (options.check) {
        for (const scenario::Scenario &scenario : scenarios) {
            session.notice(visible(scenario.file) +
                           " is right: " + std::to_string(scenario.statements.size()) + " statements");
        }
        return done;
    }
    return Play(session, options, scenarios, registered(session, played(scenarios))).run();
}

} // namespace

void add_sim(CLI::App &app, Session &session)
{
    CLI::App *verb =
        add_verb(app, session, "sim",
                 "Play a chassis: cards come and go, check modules answer, expectations are judged",
                 "  cgctl sim night.scenario\n"
                 "  cgctl sim --check night.scenario day.scenario\n"
                 "  cgctl sim --speed 20 --json -");
    auto options = std::make_shared<SimOptions>();
    verb->add_option("FILE", options->files, "Scenarios, played one after the other; - is standard input")
        ->required()
        ->type_name("FILE");
    verb->add_flag("--check", options->check, "Only look for mistakes; no store is needed");
    verb->add_option("--speed", options->speed, "How many times faster the daemon's clock runs (default 1)")
        ->type_name("N");
    verb->add_flag("--keep", options->keep, "Leave the cards plugged");
    verb->add_flag("--stay", options->stay, "At the end, go on playing the modules until stopped");
    set_action(*verb, session, options, sim);
}

} // namespace cg
