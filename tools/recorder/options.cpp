// The recorder's command line.
#include "options.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>

#include "base/failure.h"
#include "base/text.h"
#include "modules/module_folder.h"

namespace recorder
{

namespace
{

constexpr const char *description =
    "cg_recorderd - record admission decisions\n"
    "\n"
    "It reads the store (VX_MOM_ENDPOINT, VX_MOM_AUTH_FILE as for cgctl) and writes nothing into it. `cgctl "
    "history`\n"
    "and `cgctl modules` show what it has recorded; Prometheus gets its metrics over HTTP.\n"
    "Exit status: 0 stopped by a signal, 1 failed, 2 wrong usage.";
constexpr const char *examples = "Examples:\n"
                                 "  cg_recorderd --keep-days 90 --keep-mib 64\n"
                                 "  cg_recorderd --history ./history.sqlite --listen off --life ''";

// The defaults stand here; the help shows them.
struct Values {
    std::string history{};
    std::string listen = "127.0.0.1:9717";
    std::string modules = cg::default_module_folder;
    std::string service_log = "/run/app_cg/life";
    int64_t keep_days = 365;
    int64_t keep_mib = 256;
    int64_t silence_after_s = std::chrono::seconds(cg::check_timeout).count();
};

// There is no access control on metrics, so they are for this machine.
std::string listen_mistake(const std::string &text)
{
    constexpr int64_t most_port = 65535;
    const std::size_t colon = text.rfind(':');
    const bool is_good = text == "off" || (colon != std::string::npos && text.starts_with("127.") &&
                                           text.find_first_not_of("0123456789.") == colon &&
                                           cg::to_number(text.substr(colon + 1), 0, most_port));
    return is_good ? "" : "not an address of this machine itself; 127.0.0.1:PORT, or off";
}

void add_options(CLI::App &app, Values &values)
{
    constexpr int most_days = 36500;
    constexpr int most_mib = 1 << 20;
    constexpr int most_seconds = 86400;
    app.name("cg_recorderd");
    app.footer(examples);
    app.set_version_flag("--version", "cg_recorderd " RECORDER_VERSION, "Print the version and exit");
    app.set_help_flag("-h,--help", "Print this help and exit");
    app.add_option("--history", values.history,
                   std::string("The file to write (default: CG_HISTORY, or ") + history::default_path + ')')
        ->type_name("FILE");
    app.add_option("--listen", values.listen, "Where metrics are served: 127.0.0.1:PORT, or off")
        ->type_name("ADDRESS")
        ->check(CLI::Validator(listen_mistake, ""));
    app.add_option("--modules", values.modules, "Folder of the check modules")->type_name("FOLDER");
    app.add_option("--life", values.service_log,
                   "Service log: the file in which the daemon's service notes its starts and exits")
        ->type_name("FILE");
    app.add_option("--keep-days", values.keep_days, "Delete decisions older than so many days")
        ->type_name("N")
        ->check(CLI::Range(1, most_days));
    app.add_option("--keep-mib", values.keep_mib, "Delete the oldest decisions of a larger file")
        ->type_name("N")
        ->check(CLI::Range(1, most_mib));
    app.add_option("--silence-after", values.silence_after_s, "Seconds after which the daemon admits a card")
        ->type_name("N")
        ->check(CLI::Range(1, most_seconds));
}

Options options_from(const Values &values)
{
    Options options;
    options.settings.history = history::path_or_default(values.history);
    options.settings.modules = values.modules;
    options.settings.service_log = values.service_log;
    options.settings.limits.age = std::chrono::hours(24 * values.keep_days);
    options.settings.limits.bytes = values.keep_mib << 20U;
    options.settings.silence_after = std::chrono::seconds(values.silence_after_s);
    options.listen = values.listen == "off" ? "" : values.listen;
    return options;
}

} // namespace

std::optional<Options> parse_options(std::vector<std::string> arguments, std::ostream &out)
{
    CLI::App app(description);
    app.option_defaults()->always_capture_default();
    Values values;
    add_options(app, values);
    try {
        std::reverse(arguments.begin(), arguments.end()); // the parser consumes them from the back
        app.parse(arguments);
    } catch (const CLI::Success &help) {
        app.exit(help, out, out);
        return std::nullopt;
    } catch (const CLI::ParseError &error) {
        throw cg::Failure(cg::wrong_usage, cg::visible(error.what()) + "; see `cg_recorderd --help`");
    }
    return options_from(values);
}

} // namespace recorder
