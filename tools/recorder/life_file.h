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

class LifeFile
{
public:
    // `last_line` is the last one that was taken before, or empty.
    LifeFile(std::string path, std::string last_line);

    // What was appended since the last call; the first call, and one that finds another or a shorter file,
    // takes all that stands behind the last line known. Lines that are none of ours are passed over.
    std::vector<history::LifeEvent> poll();

    // Whether the last poll() could read it.
    [[nodiscard]] bool is_readable() const { return readable_; }
    [[nodiscard]] const std::string &last_line() const { return last_line_; }

private:
    std::string read_news();

    std::string path_;
    std::string last_line_;
    bool readable_ = false;
    unsigned long inode_ = 0;
    long offset_ = 0;
};

// "MILLISECONDS start PID" or "MILLISECONDS exit CODE STATUS"; nothing for another line.
std::optional<history::LifeEvent> parse_life(const std::string &line);

} // namespace recorder

#endif
