// What the service log says of the daemon's exits.
#include "daemon_exit.h"

#include <algorithm>
#include <utility>

namespace recorder
{

bool has_exit(const std::string &noted, const std::vector<ServiceLine> &lines)
{
    const auto before = parse_service_line(noted);
    bool runs = before && before->is_start;
    return std::any_of(lines.begin(), lines.end(), [&](const ServiceLine &line) {
        return !line.event.is_start || std::exchange(runs, true);
    });
}

std::optional<history::Time> last_exit(const std::string &noted, const std::vector<ServiceLine> &lines)
{
    std::optional<history::Time> end;
    bool runs = false;
    const auto consider = [&](const history::LifeEvent &event) {
        const bool was_running = std::exchange(runs, event.is_start);
        if (!event.is_start || was_running) {
            end = std::max(event.at, end.value_or(event.at));
        }
    };
    if (const auto before = parse_service_line(noted)) {
        consider(*before);
    }
    for (const ServiceLine &line : lines) {
        consider(line.event);
    }
    return end;
}

} // namespace recorder
