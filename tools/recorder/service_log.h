// The service log: the file in which the daemon's service unit notes each start and exit.
//
// Only the service manager knows how the daemon ended, and asking it would take a bus and rights on it. So
// the unit appends a line to a file, and this follows it as tail(1) does. It is for operators: the metrics
// and the history have exit statuses from here, and nothing about cards is concluded from it.
#ifndef RECORDER_SERVICE_LOG_H
#define RECORDER_SERVICE_LOG_H

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

#include "history/history.h"

namespace recorder
{

// A line that reports a start or an exit.
struct ServiceLine {
    history::LifeEvent event{};
    std::string text{};
};

class ServiceLog
{
public:
    // Reads nothing yet; there may be no such file.
    explicit ServiceLog(std::string path);

    // Returns what was appended since the last call. The first call returns what is there; one that finds
    // another or a shorter file returns what follows the last line known. At most 10,000 lines, the newest
    // ones. Lines of another form are skipped, however long they are. A file that did not change is not
    // opened.
    std::vector<ServiceLine> poll();

    // Whether there was a line that is longer than any of the unit's.
    [[nodiscard]] bool met_overlong_line() const { return met_overlong_line_; }

private:
    [[nodiscard]] bool has_changed() const;
    std::vector<ServiceLine> read_appended();
    void parse(std::string_view bytes, std::vector<ServiceLine> &lines);
    void parse_line(std::vector<ServiceLine> &lines);

    std::string path_;
    std::string last_line_; // the newest one that poll() has returned
    std::string partial_;   // of the line whose end is not there yet
    bool met_overlong_line_ = false;
    bool in_overlong_line_ = false; // the next byte belongs to it
    ino_t inode_ = 0;
    off_t offset_ = 0;
};

// Returns the lines that follow the one with this text; all of them when it is not among them.
std::vector<ServiceLine> lines_behind(const std::string &text, std::vector<ServiceLine> lines);

// Reads "MILLISECONDS start PID" or "MILLISECONDS exit CODE STATUS"; nothing for another line.
std::optional<history::LifeEvent> parse_service_line(const std::string &line);

} // namespace recorder

#endif
