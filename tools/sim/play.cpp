// A play on a real store and daemon.
#include "play.h"

#include <algorithm>
#include <cctype>

#include "access/live.h"
#include "admission/feed.h"
#include "base/failure.h"
#include "base/text.h"
#include "daemon/daemon_view.h"
#include "player.h"
#include "records/position_key.h"
#include "report.h"

namespace cg
{

namespace
{

using scenario::Scenario;

std::string listed(const std::vector<std::string> &names)
{
    std::string text;
    for (const std::string &name : names) {
        text += (text.empty() ? "" : ", ") + visible(name);
    }
    return text.empty() ? "none" : text;
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

// The modules that are played, in the order in which they are named.
std::vector<std::string> played(const std::vector<Scenario> &scenarios)
{
    std::vector<std::string> names;
    for (const Scenario &scenario : scenarios) {
        for (const scenario::Statement &statement : scenario.statements) {
            const auto *rule = std::get_if<scenario::ModuleRule>(&statement.what);
            if (rule != nullptr && std::find(names.begin(), names.end(), rule->module) == names.end()) {
                names.push_back(rule->module);
            }
        }
    }
    return names;
}

// The modules that the daemon asks. Throws Failure when one that is played is not among them.
std::vector<std::string> registered(const Output &output, const std::string &socket,
                                    const std::vector<std::string> &names)
{
    const DaemonView daemon = ask_for_modules(socket);
    if (!daemon.problem.empty()) {
        output.notice("cannot ask the daemon which modules it knows: " + daemon.problem);
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
                                  "` in its view of the file system, and restart it");
    }
    const std::vector<std::string> others = missing(daemon.modules, names);
    if (!others.empty()) {
        output.notice("the daemon also asks " + listed(others) +
                      ", not played here: cards wait for it unless a real module answers");
    }
    return daemon.modules;
}

std::string upper(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

// The player, the store and the event loop.
class Play
{
public:
    Play(const Output &output, const SimOptions &options, const std::vector<Scenario> &scenarios)
        : output_(output), options_(options), store_(output), live_(output, store_),
          player_(scenarios,
                  {options.speed, options.keep || options.stay, options.stay,
                   registered(output, options.socket, played(scenarios))},
                  stage())
    {
        refuse_occupied(scenarios);
        live_.on_outage([this](const Live::Outage &outage) { in_place_.lost(outage.db); });
        for (const admission::TrackedType &tracked : admission::tracked_types()) {
            const RecordType &type = record_type(tracked.descriptor->name);
            live_.subscribe(type, tracked.db, [this](const Change &change) { handle(change); });
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
    Stage stage()
    {
        return {[] { return std::chrono::system_clock::now(); },
                [this](scenario::Milliseconds time, std::function<void()> action) {
                    live_.after(time.count(), std::move(action));
                },
                [this](const NewCard &card) { store_.set(card_type_, card_type_.db, card_info_of(card)); },
                [this](const Position &position, scenario::Move move) { change_card(position, move); },
                [this](const std::string &role) { set_role(role); },
                [this](const DueAnswer &answer) { write_answer(answer); },
                [this](admission::Time at, const Event &event) { report_event(output_, at, event); },
                [this] { finished(); }};
    }

    // A card that is there is a real one: it would be overwritten, and pulled at the end.
    void refuse_occupied(const std::vector<Scenario> &scenarios)
    {
        for (const Scenario &scenario : scenarios) {
            for (const scenario::Statement &statement : scenario.statements) {
                const auto *plug = std::get_if<scenario::Plug>(&statement.what);
                if (plug != nullptr &&
                    store_.exists(card_type_, card_type_.db, key_of(plug->card.position))) {
                    const std::string position = plug->card.position.text();
                    throw Failure(failed, visible(scenario.file) + ':' + std::to_string(statement.line) +
                                              ": there is a card at " + position +
                                              "; play it elsewhere, or `cgctl card pull " + position + '`');
                }
            }
        }
    }

    void handle(const Change &change)
    {
        if (change.cmd == VX_MOM_CMD_SUBSCRIBED) {
            if (in_place_.told(change.type.descriptor)) {
                std::exchange(started_, true) ? player_.resynchronized() : player_.start();
            }
        } else if (change.error_code != 0) {
            output_.notice(std::string("a record of ") + change.type.name() + " could not be read (result " +
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

    // Unless the request is gone: a late answer would be taken for the reply to the card's next request.
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
            report_results(output_, player_, player_.is_finished());
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
                output_.notice(position.text() + " is left plugged: " + failure.what());
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

    const Output &output_;
    const SimOptions &options_;
    const RecordType &card_type_ = record_type("p_dev.card_info");
    Store store_;
    Live live_;
    admission::InPlace in_place_;
    bool started_ = false;
    bool reported_ = false;
    Player player_;
};

} // namespace

int play(const Output &output, const SimOptions &options, const std::vector<Scenario> &scenarios)
{
    if (!options.endpoint.empty()) {
        setenv("VX_MOM_ENDPOINT", options.endpoint.c_str(), 1);
    }
    return Play(output, options, scenarios).run();
}

} // namespace cg
