// A play on a real store and daemon.
#include "play.h"

#include <algorithm>
#include <list>

#include "admission/follower.h"
#include "base/failure.h"
#include "base/text.h"
#include "chassis.h"
#include "daemon/daemon_view.h"
#include "log/platform_log.h"
#include "loop/loop.h"
#include "loop/settings.h"
#include "modules/module_folder.h"
#include "player.h"
#include "report.h"
#include "store/client.h"

namespace cg
{

namespace
{

using scenario::Scenario;
using Names = std::set<std::string>;

std::string listed(const Names &names, const char *separator = ", ")
{
    return names.empty() ? "none" : visible(joined({names.begin(), names.end()}, separator));
}

Names without(Names names, const Names &others)
{
    std::erase_if(names, [&](const std::string &name) { return others.contains(name); });
    return names;
}

// The modules that are played.
Names played(const std::vector<Scenario> &scenarios)
{
    Names names;
    for_each_statement<scenario::ModuleRule>(
        scenarios, [&](const auto &rule, const auto &...) { names.insert(rule.module); });
    return names;
}

// The modules that the daemon asks, in its order. Throws Failure when one that is played is not among them.
std::vector<std::string> registered(const Output &output, const std::string &socket, const Names &names)
{
    const DaemonView daemon = ask_for_modules(socket);
    if (!daemon.problem.empty()) {
        output.notice("cannot ask the daemon which modules it knows: " + daemon.problem);
        return {names.begin(), names.end()};
    }
    const Names known(daemon.modules.begin(), daemon.modules.end());
    if (const Names unknown = without(names, known); !unknown.empty()) {
        const std::string folder = std::string(default_module_folder) + '/';
        throw Failure(failed, "the daemon does not know " + listed(unknown) + ", it asks " + listed(known) +
                                  "; `touch " + folder + listed(unknown, (' ' + folder).c_str()) +
                                  "` in its view of the file system, and restart it");
    }
    if (const Names others = without(known, names); !others.empty()) {
        output.notice("the daemon also asks " + listed(others) +
                      ", not played here: cards wait for it unless a real module answers");
    }
    return daemon.modules;
}

// Where the store is, before the client asks; and nothing into the daemon's log, which the settings may name.
platform::Loop loop_with(const SimOptions &options)
{
    if (!options.endpoint.empty()) {
        platform::replace_setting("VX_MOM_ENDPOINT", options.endpoint);
    }
    setenv("VX_ZLOG", "none", 1);
    return platform::Loop("cg_sim");
}

// The player, the store and the event loop.
class Play
{
public:
    Play(const Output &output, const SimOptions &options, const std::vector<Scenario> &scenarios)
        : output_(output), options_(options), loop_(loop_with(options)),
          client_(loop_.context(), {.notice =
                                        [this](int32_t level, const std::string &text) {
                                            if (level >= platform::log_warn) {
                                                output_.notice(visible(text));
                                            }
                                        }}),
          player_(scenarios,
                  {options.speed, options.keep || options.stay, options.stay,
                   registered(output, options.socket, played(scenarios))},
                  stage())
    {
        follower_.start(true);
        refuse_occupied(scenarios);
    }

    int run()
    {
        std::exception_ptr failure;
        try {
            loop_.run();
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
                    std::erase_if(timers_, [](const platform::Timer &timer) { return !timer.is_armed(); });
                    timers_.push_back(loop_.after(time, std::move(action)));
                },
                [this](const NewCard &card) { chassis_.plug(card); },
                [this](const Position &position, scenario::Move move) { chassis_.change(position, move); },
                [this](PDev__DmRoleE role) { chassis_.set_role(role); },
                [this](const DueAnswer &answer) { chassis_.answer(answer); },
                [this](admission::Time at, const Event &event) { report_event(output_, at, event); },
                [this] { finished(); }};
    }

    // A card that is there is a real one: it would be overwritten, and pulled at the end.
    void refuse_occupied(const std::vector<Scenario> &scenarios)
    {
        const auto refuse = [this](const scenario::Plug &plug, const Scenario &scenario, std::size_t line) {
            const std::string position = plug.card.position.text();
            if (chassis_.has_card(plug.card.position)) {
                throw Failure(failed, visible(scenario.file) + ':' + std::to_string(line) +
                                          ": there is a card at " + position +
                                          "; play it elsewhere, or `cgctl card pull " + position + '`');
            }
        };
        for_each_statement<scenario::Plug>(scenarios, refuse);
    }

    admission::Follower::Listener listener()
    {
        return {[this](const ProtobufCMessage &record, bool deleted, const admission::Change &change) {
                    player_.heard(deleted, record, change);
                },
                [this](int32_t /*db*/, const std::string &key, const std::string &reason) {
                    output_.notice("record " + key + " does not decode: " + reason);
                },
                [this](int32_t /*db*/) {
                    if (follower_.in_place().is_complete()) {
                        player_.synchronized();
                    }
                },
                [this](const store::ConnectionEvent &event) { output_.notice(admission::text_of(event)); }};
    }

    void finished()
    {
        report_if_due();
        if (!options_.stay) {
            loop_.stop();
        }
    }

    void report_if_due()
    {
        if (!std::exchange(reported_, true)) {
            report_results(output_, player_);
        }
    }

    // What the end of the play did not pull, since it never came or the play goes on.
    void clean_up()
    {
        const std::set<Position> left = player_.plugged();
        for (const Position &position : left) {
            try {
                chassis_.change(position, scenario::Move::pull);
            } catch (const Failure &failure) {
                output_.notice(position.text() + " is left plugged: " + failure.what());
            }
        }
        for (const admission::TrackedCard *card : player_.tracker().cards()) {
            if (card->power_off && player_.has_played(card->card.position)) {
                chassis_.forget_power_off(card->card.position);
            }
        }
    }

    const Output &output_;
    const SimOptions &options_;
    platform::Loop loop_;
    store::Client client_;
    Chassis chassis_{client_};
    std::list<platform::Timer> timers_;
    admission::Follower follower_{client_, listener()};
    bool reported_ = false;
    Player player_;
};

} // namespace

int play(const Output &output, const SimOptions &options, const std::vector<Scenario> &scenarios)
{
    return Play(output, options, scenarios).run();
}

} // namespace cg
