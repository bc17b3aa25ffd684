// The file in which the daemon's service unit notes each start and end.
//
// The service manager knows how the daemon ended, the daemon itself does not; and to ask the manager would
// take a bus and rights on it. So the unit appends a line, and this follows it as tail(1) does.
#ifndef RECORDER_LIFE_FILE_H
#define RECORDER_LIFE_FILE_H

#include <string>
#include <vector>

#include "history/history.h"

namespace recorder
{

// A line that tells of a start or an end.
struct LifeLine {
    history::LifeEvent event{};
    std::string text{};
};

class LifeFile
{
public:
    explicit LifeFile(std::string path);

    // What was appended since the last call; the first call takes all that there is, and one that finds
    // another or a shorter file all that stands behind the last line known. Lines that are none of ours are
    // passed over, however long they are.
    std::vector<LifeLine> poll();

    // Whether the last poll() could read it.
    [[nodiscard]] bool is_readable() const { return readable_; }
    // Whether the daemon runs as far as the lines tell.
    [[nodiscard]] bool tells_of_running() const { return readable_ && runs_; }
    // Whether there was a line that is longer than anything of ours may be.
    [[nodiscard]] bool met_overlong_line() const { return met_overlong_line_; }
    // The last one that was taken; empty before there is one.
    [[nodiscard]] const std::string &last_line() const { return last_line_; }

private:
    std::string read_news();
    std::string whole_lines(std::string text);

    std::string path_;
    std::string last_line_;
    bool readable_ = false;
    bool runs_ = false;
    bool met_overlong_line_ = false;
    bool in_overlong_line_ = false; // the next byte belongs to it
    unsigned long inode_ = 0;
    long offset_ = 0;
};

// The lines behind the one noted, all of them when it is not there; of none noted all of them, too.
std::vector<LifeLine> lines_behind(const std::string &noted, std::vector<LifeLine> lines);

// Whether a daemon ended among the lines, or by what follows the one noted: two starts in a row are a daemon
// whose end nobody could note.
bool tell_of_an_end(const std::string &noted, const std::vector<LifeLine> &lines);

// When a daemon ended last, as far as the line noted and those behind it tell; nothing when they do not. One
// whose end nobody could note ended before the next start.
std::optional<history::Time> last_end(const std::string &noted, const std::vector<LifeLine> &lines);

// "MILLISECONDS start PID" or "MILLISECONDS exit CODE STATUS"; nothing for another line.
std::optional<history::LifeEvent> parse_life(const std::string &line);

} // namespace recorder

#endif
