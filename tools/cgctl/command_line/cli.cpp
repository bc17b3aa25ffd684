// From arguments to a verb, and from failures to an exit status.
//
// What stands behind "--" is removed before the parser sees it: it is another program's command line, and the
// parser would find our own options and verbs in it.
#include "command_line/cli.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <exception>
#include <ostream>
#include <sstream>

#include "base/failure.h"
#include "base/text.h"
#include "command_line/verbs.h"
#include "loop/settings.h"

#ifndef CGCTL_VERSION
#error "the build says which version this is"
#endif

namespace cg
{

namespace
{

constexpr const char *description = "cgctl - inspect and control the admission of cards\n"
                                    "\n"
                                    "The store is where VX_MOM_ENDPOINT says (unix:/path, tcp:host:port or "
                                    "sentinel:NAME@host:port,...), as for\n"
                                    "the daemon; the daemon's debug shell is at SSAT_SOCKET. Data goes to "
                                    "standard output, messages to standard\n"
                                    "error.\n"
                                    "Exit status: 0 done, 1 failed or not found, 2 wrong usage.";

constexpr const char *examples = "Examples:\n"
                                 "  cgctl\n"
                                 "  cgctl list --state waiting,denied\n"
                                 "  cgctl show 1/3/0 --json\n"
                                 "  cgctl doctor\n"
                                 "  cgctl module run voltage -- ./check-voltage\n"
                                 "`cgctl VERB --help` shows the options of a verb.";

// A verb's help stands in one column, its name in another; 28 leaves room for the longest option.
constexpr std::size_t column_width = 28;

// Shows of a value what completion and the manual page show.
class HelpForm : public CLI::Formatter
{
public:
    HelpForm()
    {
        column_width(cg::column_width);
        label("SUBCOMMAND", "VERB");
        label("Positionals", "Arguments");
    }
    std::string make_usage(const CLI::App *app, std::string name) const override
    {
        const std::string usage = CLI::Formatter::make_usage(app, std::move(name));
        return describe(*app).takes_command ? usage.substr(0, usage.find('\n')) + " -- COMMAND [ARG...]\n"
                                            : usage;
    }
    std::string make_option_opts(const CLI::Option *option) const override
    {
        const std::string value = option->get_positional() ? shown_words(*option) : shown_value(*option);
        const bool needs = option->get_required() && !option->get_positional();
        return (value.empty() ? "" : ' ' + value) + (needs ? " (required)" : "");
    }
};

void add_everything(CLI::App &app, Session &session)
{
    app.name("cgctl");
    app.footer(examples);
    app.formatter(std::make_shared<HelpForm>());
    app.set_version_flag("--version", "cgctl " CGCTL_VERSION, "Print the version and end");
    app.set_help_flag("-h,--help", "Print this help and end");
    app.add_option("--endpoint", session.endpoint, "Where the store is, in place of VX_MOM_ENDPOINT")
        ->type_name("ENDPOINT");
    app.add_option("--socket", session.socket, "Where the debug shell is, in place of SSAT_SOCKET")
        ->type_name("FILE");
    app.add_flag("--json", session.json, "Print JSON, errors included");
    app.fallthrough();
    app.require_subcommand(0, 1); // without one the cards are listed
    for (const auto add : verbs) {
        add(app, session);
    }
}

std::vector<std::string> verb_names(const CLI::App &app)
{
    std::vector<std::string> names;
    for (const CLI::App *verb :
         app.get_subcommands([](const CLI::App *verb) { return !verb->get_group().empty(); })) {
        names.push_back(verb->get_name());
    }
    return names;
}

// The verb that was reached, or the program.
const CLI::App &reached(const CLI::App &app)
{
    const std::vector<CLI::App *> chosen = app.get_subcommands();
    return chosen.empty() ? app : reached(*chosen.front());
}

std::string full_name(const CLI::App &app)
{
    return app.get_parent() == nullptr ? app.get_name() : full_name(*app.get_parent()) + ' ' + app.get_name();
}

// The parser's own text names what is wrong with options; for verbs it only says that one is missing.
std::string usage_message(const CLI::App &app, const CLI::ParseError &error)
{
    const CLI::App &last = reached(app);
    const std::string where = "; see `" + full_name(last) + " --help`";
    const std::vector<std::string> names = verb_names(last);
    const std::vector<std::string> extras = app.remaining(true);
    const bool verb_wanted = !names.empty() && last.get_subcommands().empty();
    const auto word = std::find_if(extras.begin(), extras.end(),
                                   [](const std::string &extra) { return !extra.starts_with('-'); });
    if (verb_wanted && word != extras.end()) {
        return "unknown verb " + in_quotes(*word) + " of " + full_name(last) + "; " +
               suggestion(*word, names);
    }
    if (verb_wanted && extras.empty() && error.get_name() == "RequiredError") {
        return full_name(last) + " requires a verb; " + suggestion("", names);
    }
    // What a check refuses it explains itself.
    return visible(error.what()) + (error.get_name() == "ValidationError" ? "" : where);
}

// Has mistakes in the platform's settings reported as ours are, as long as it lives.
class SettingMistakes
{
public:
    explicit SettingMistakes(const Session &session)
    {
        platform::on_setting_mistake([&session](const std::string &text) { session.notice(visible(text)); });
    }
    ~SettingMistakes() { platform::on_setting_mistake({}); }
    SettingMistakes(const SettingMistakes &) = delete;
    SettingMistakes &operator=(const SettingMistakes &) = delete;
};

// Returns the arguments before "--" and leaves the command behind it in the session.
std::vector<std::string> split_command(const std::vector<std::string> &arguments, Session &session)
{
    const auto marker = std::find(arguments.begin(), arguments.end(), "--");
    if (marker != arguments.end()) {
        session.has_command = true;
        session.command.assign(marker + 1, arguments.end());
    }
    return {arguments.begin(), marker};
}

// Leaves in the session what to do, the help included.
void parse(CLI::App &app, Session &session, std::vector<std::string> arguments)
{
    try {
        std::reverse(arguments.begin(), arguments.end()); // the parser pops them from the back
        app.parse(arguments);
    } catch (const CLI::Success &help) {
        session.action = [&app, &session, help] {
            app.exit(help, session.out, session.err);
            return done;
        };
        return;
    } catch (const CLI::ParseError &error) {
        throw Failure(wrong_usage, usage_message(app, error));
    }
    if (session.has_command && !app.got_subcommand("module") && !app.got_subcommand("complete")) {
        throw Failure(wrong_usage, "\"--\" with a command behind it is for `cgctl module run`, `module test` "
                                   "and `module replay` only");
    }
}

int parse_and_act(CLI::App &app, Session &session, const std::vector<std::string> &arguments)
{
    parse(app, session, arguments);
    if (!session.endpoint.empty()) {
        platform::replace_setting("VX_MOM_ENDPOINT", session.endpoint);
    }
    const int status = session.action();
    session.check_output();
    return status;
}

} // namespace

Verb all_verbs()
{
    std::ostringstream unused;
    Session session{{unused, unused}};
    CLI::App app(description);
    add_everything(app, session);
    return describe(app);
}

std::string usage_problem(const std::vector<std::string> &arguments)
{
    std::ostringstream unused;
    Session session{{unused, unused}};
    const std::vector<std::string> own = split_command(arguments, session);
    try {
        CLI::App app(description);
        add_everything(app, session);
        parse(app, session, own);
    } catch (const Failure &failure) {
        return failure.what();
    }
    return "";
}

int run(const std::vector<std::string> &arguments, std::ostream &out, std::ostream &err)
{
    Session session{{out, err}};
    const std::vector<std::string> own = split_command(arguments, session);
    // An error of the parser itself should come as asked, too.
    session.json = std::find(own.begin(), own.end(), "--json") != own.end();
    const SettingMistakes reported(session);
    try {
        CLI::App app(description);
        add_everything(app, session);
        return parse_and_act(app, session, own);
    } catch (const Failure &failure) {
        if (*failure.what() != '\0') {
            session.error(failure.what());
        }
        return failure.status();
    } catch (const std::exception &error) {
        session.error(error.what());
        return failed;
    }
}

} // namespace cg
