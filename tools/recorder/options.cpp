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

using cg::Failure;

constexpr const char *description =
    "cg_recorderd - keep what became of each line card, by whom, and why\n"
    "\n"
    "It reads the store (VX_MOM_ENDPOINT, VX_MOM_AUTH_FILE as for cgctl) and writes nothing into it. `cgctl "
    "history`\n"
    "and `cgctl modules` show what it has recorded; Prometheus gets its metrics over HTTP.\n"
    "Exit status: 0 told to stop, 1 failed, 2 wrong usage.";
constexpr const char *examples = "Examples:\n"
                                 "  cg_recorderd --keep-days 90 --keep-mib 64\n"
                                 "  cg_recorderd --history ./history.sqlite --listen off --life ''";

struct Texts {
    std::string history{};
    std::string listen = "127.0.0.1:9717";
    std::string modules = cg::default_module_folder;
    std::string life = "/run/app_cg/life";
    std::string keep_days = "365";
    std::string keep_mib = "256";
    std::string silence_after = std::to_string(cg::check_timeout.count());
};

void add_options(CLI::App &app, Texts &texts)
{
    app.name("cg_recorderd");
    app.footer(examples);
    app.set_version_flag("--version", "cg_recorderd " RECORDER_VERSION, "Print the version and end");
    app.set_help_flag("-h,--help", "Print this help and end");
    app.add_option("--history", texts.history,
                   std::string("The file to write (default: CG_HISTORY, or ") + history::default_path + ')');
    app.add_option("--listen", texts.listen,
                   "Where metrics are served: 127.0.0.1:PORT (default 9717), or off");
    app.add_option("--modules", texts.modules, "Folder of the check modules (default " + texts.modules + ')');
    app.add_option("--life", texts.life,
                   "File in which the daemon's service notes its starts and ends (default " + texts.life +
                       ')');
    app.add_option("--keep-days", texts.keep_days, "Forget decisions older than so many days (default 365)");
    app.add_option("--keep-mib", texts.keep_mib, "Forget the oldest ones of a larger file (default 256)");
    app.add_option("--silence-after", texts.silence_after,
                   "Seconds after which the daemon admits a card (default 300)");
}

int64_t number(const char *option, const std::string &text, int64_t most)
{
    const auto value = cg::to_number(text, 1, most);
    if (!value) {
        throw Failure(cg::wrong_usage, std::string(option) + ' ' + cg::visible(text) +
                                           ": not a number from 1 to " + std::to_string(most));
    }
    return *value;
}

// There is no access control on it, so it is for this machine.
std::string place_to_listen(const std::string &text)
{
    constexpr int64_t most_port = 65535;
    if (text == "off") {
        return "";
    }
    const std::size_t colon = text.rfind(':');
    const bool is_good = colon != std::string::npos && text.starts_with("127.") &&
                         text.find_first_not_of("0123456789.") == colon &&
                         cg::to_number(text.substr(colon + 1), 0, most_port);
    if (!is_good) {
        throw Failure(cg::wrong_usage, "--listen " + cg::visible(text) +
                                           ": not an address of this machine itself; 127.0.0.1:PORT, or off");
    }
    return text;
}

Options checked(const Texts &texts)
{
    constexpr int64_t most_days = 36500;
    constexpr int64_t most_mib = int64_t{1} << 20U;
    constexpr int64_t most_seconds = 86400;
    Options options;
    options.settings.history = history::path_or_default(texts.history);
    options.settings.modules = texts.modules;
    options.settings.life = texts.life;
    options.settings.limits.age = std::chrono::hours(24 * number("--keep-days", texts.keep_days, most_days));
    options.settings.limits.bytes = number("--keep-mib", texts.keep_mib, most_mib) << 20U;
    options.settings.silence_after =
        std::chrono::seconds(number("--silence-after", texts.silence_after, most_seconds));
    options.listen = place_to_listen(texts.listen);
    return options;
}

} // namespace

std::optional<Options> parse_options(std::vector<std::string> arguments, std::ostream &out)
{
    CLI::App app(description);
    Texts texts;
    add_options(app, texts);
    try {
        std::reverse(arguments.begin(), arguments.end()); // the parser takes them from the back
        app.parse(arguments);
    } catch (const CLI::Success &help) {
        app.exit(help, out, out);
        return std::nullopt;
    } catch (const CLI::ParseError &error) {
        throw Failure(cg::wrong_usage,
                      cg::visible(error.what()) + "; `cg_recorderd --help` tells what is right");
    }
    return checked(texts);
}

} // namespace recorder
