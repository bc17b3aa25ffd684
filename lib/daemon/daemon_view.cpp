// What the running daemon says of its cards.
#include "daemon/daemon_view.h"

#include <chrono>
#include <optional>
#include <set>
#include <sstream>

#include "base/text.h"
#include "shell/client.h"

namespace cg
{

namespace
{

constexpr const char *daemon_name = "app_cg";
// Short: at an outage of the store the daemon answers late, and then a list without this is better than none.
constexpr std::chrono::seconds patience{3};

constexpr std::string_view line_start = "node[0x";
constexpr std::string_view reason_start = " reason[";
constexpr std::string_view reason_end = "] stat[";

// The number in "NAME[123]"; nothing when it does not stand there.
std::optional<int64_t> number_of(std::string_view text, const std::string &name)
{
    const std::size_t at = text.find(name + '[');
    if (at == std::string_view::npos) {
        return std::nullopt;
    }
    text.remove_prefix(at + name.size() + 1);
    return to_number(text.substr(0, text.find(']')), INT32_MIN, UINT32_MAX);
}

void parse_line(std::string_view line, const std::vector<std::string> &modules, std::set<Position> &doubtful,
                std::map<Position, DaemonCard> &cards)
{
    const std::size_t reason_at = line.find(reason_start);
    const std::size_t reason_ends = line.rfind(reason_end);
    if (reason_at == std::string_view::npos || reason_ends == std::string_view::npos ||
        reason_ends < reason_at) {
        return;
    }
    const std::string_view before = line.substr(0, reason_at);
    const std::string_view after = line.substr(reason_ends);
    const auto devid = number_of(before, " devid");
    const auto slotid = number_of(before, " slotid");
    const auto sslotid = number_of(before, " sslotid");
    const auto count = number_of(after, "app_cg_wait_obj_num");
    const auto bits = number_of(after, "app_cg_wait_obj_bmp");
    if (!devid || !slotid || !sslotid || !count || !bits) {
        return;
    }
    DaemonCard card;
    const std::size_t reason_begins = reason_at + reason_start.size();
    card.reason = line.substr(reason_begins, reason_ends - reason_begins);
    card.names_known = *count == static_cast<int64_t>(modules.size());
    for (std::size_t i = 0; card.names_known && i < modules.size(); ++i) {
        if (((static_cast<uint64_t>(*bits) >> i) & 1U) != 0) {
            card.waiting_for.push_back(modules[i]);
        }
    }
    const Position position{static_cast<int32_t>(*devid), static_cast<int32_t>(*slotid),
                            static_cast<int32_t>(*sslotid)};
    if (!cards.emplace(position, std::move(card)).second) {
        doubtful.insert(position);
    }
}

// What a command of the daemon's prints. Why it does not is left in the view.
std::string ask(DaemonView &view, const std::string &socket, const std::string &command)
{
    try {
        const std::string path = socket.empty() ? ssat::socket_path(daemon_name) : socket;
        const ssat::Reply reply = ssat::run(path, daemon_name, command, {}, patience);
        if (reply.output_at.empty()) {
            return reply.output;
        }
        view.problem = "the daemon's output has gone to its collect file since \"collect\"";
    } catch (const ssat::Error &error) {
        view.problem = error.what();
        view.is_silent =
            error.failure() == ssat::Failure::nobody_there || error.failure() == ssat::Failure::timed_out;
    }
    return {};
}

} // namespace

std::vector<std::string> modules_in(const std::string &dump)
{
    std::vector<std::string> names;
    std::istringstream lines(dump);
    for (std::string line; std::getline(lines, line);) {
        const std::string before = "], name[";
        const std::size_t at = line.find(before);
        if (line.starts_with("wait mod[") && at != std::string::npos && line.ends_with("]")) {
            names.push_back(line.substr(at + before.size(), line.size() - at - before.size() - 1));
        }
    }
    return names;
}

std::map<Position, DaemonCard> daemon_cards_in(std::string_view dump, const std::vector<std::string> &modules)
{
    std::map<Position, DaemonCard> cards;
    std::set<Position> doubtful;
    const std::string next_line = '\n' + std::string(line_start);
    std::size_t at = dump.starts_with(line_start) ? 0 : dump.find(next_line);
    while (at != std::string_view::npos) {
        const std::size_t next = dump.find(next_line, at + 1); // a reason may hold line breaks of its own
        parse_line(dump.substr(at, next - at), modules, doubtful, cards);
        at = next;
    }
    for (const Position &position : doubtful) {
        cards.erase(position);
    }
    return cards;
}

DaemonView ask_daemon(const std::string &socket)
{
    DaemonView view = ask_for_modules(socket);
    if (view.problem.empty()) {
        const std::string dump = ask(view, socket, "dump_node");
        view.cards = daemon_cards_in(dump, view.modules);
    }
    return view;
}

DaemonView ask_for_modules(const std::string &socket)
{
    DaemonView view;
    view.modules = modules_in(ask(view, socket, "dump_check_module"));
    return view;
}

std::string silence_text(const DaemonView &daemon)
{
    return "the daemon does not answer, so cards that come now may start unchecked: " +
           visible(daemon.problem);
}

} // namespace cg
