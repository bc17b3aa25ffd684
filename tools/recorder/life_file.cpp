// The file in which the daemon's service unit notes each start and end.
#include "life_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

#include "base/text.h"
#include "base/descriptor.h"

namespace recorder
{

namespace
{

// The unit's script keeps it far below that. The daemon's account could write what it likes.
constexpr std::size_t most_at_once = std::size_t{256} << 10U;
constexpr std::size_t longest_word = 16;

bool is_word(const std::string &text)
{
    return !text.empty() && text.size() <= longest_word &&
           text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+-") ==
               std::string::npos;
}

std::string read_from(int file, long offset)
{
    std::string text(most_at_once, '\0');
    const ssize_t count = pread(file, text.data(), text.size(), offset);
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return text;
}

} // namespace

std::optional<history::LifeEvent> parse_life(const std::string &line)
{
    const std::vector<std::string> words = cg::split(line, ' ');
    if (words.size() < 3) {
        return std::nullopt;
    }
    const auto at = cg::to_number(words[0], 0, INT64_MAX / 1'000'000);
    history::LifeEvent event;
    event.at = history::Time(std::chrono::milliseconds(at.value_or(0)));
    event.is_start = words[1] == "start";
    if (event.is_start && at && words.size() == 3) {
        event.pid = cg::to_number(words[2], 0, INT32_MAX).value_or(0);
        return event;
    }
    if (words[1] == "exit" && at && words.size() == 4 && is_word(words[2]) && is_word(words[3])) {
        event.code = words[2];
        event.status = words[3];
        return event;
    }
    return std::nullopt;
}

std::vector<LifeLine> lines_behind(const std::string &noted, std::vector<LifeLine> lines)
{
    const auto known =
        std::find_if(lines.rbegin(), lines.rend(), [&](const LifeLine &line) { return line.text == noted; });
    lines.erase(lines.begin(), known.base());
    return lines;
}

bool tell_of_an_end(const std::string &noted, const std::vector<LifeLine> &lines)
{
    const auto before = parse_life(noted);
    bool runs = before && before->is_start;
    return std::any_of(lines.begin(), lines.end(), [&](const LifeLine &line) {
        return !line.event.is_start || std::exchange(runs, true);
    });
}

std::optional<history::Time> last_end(const std::string &noted, const std::vector<LifeLine> &lines)
{
    std::optional<history::Time> end;
    bool runs = false;
    const auto take = [&](const history::LifeEvent &event) {
        const bool was_running = std::exchange(runs, event.is_start);
        if (!event.is_start || was_running) {
            end = std::max(event.at, end.value_or(event.at));
        }
    };
    if (const auto before = parse_life(noted)) {
        take(*before);
    }
    for (const LifeLine &line : lines) {
        take(line.event);
    }
    return end;
}

LifeFile::LifeFile(std::string path) : path_(std::move(path)) {}

// The last one may be about to be written, so it is read again; but one that fills all that is read at once
// would be read again for ever.
std::string LifeFile::whole_lines(std::string text)
{
    const bool is_full = text.size() == most_at_once;
    const std::size_t last = text.rfind('\n');
    if (last == std::string::npos) {
        in_overlong_line_ = in_overlong_line_ || is_full;
        met_overlong_line_ = met_overlong_line_ || in_overlong_line_;
        offset_ += in_overlong_line_ ? static_cast<long>(text.size()) : 0;
        return "";
    }
    offset_ += static_cast<long>(last) + 1;
    text.resize(last + 1);
    if (std::exchange(in_overlong_line_, false)) {
        text.erase(0, text.find('\n') + 1);
    }
    return text;
}

std::string LifeFile::read_news()
{
    // A pipe in its place would hold us up.
    const cg::Descriptor file(::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat status {
    };
    readable_ = file.get() >= 0 && fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode);
    if (!readable_) {
        inode_ = 0;
        return "";
    }
    const bool is_same = status.st_ino == inode_ && status.st_size >= offset_;
    if (!is_same) {
        offset_ = 0;
        in_overlong_line_ = false;
    }
    inode_ = status.st_ino;
    std::string news = whole_lines(read_from(file.get(), offset_));
    if (!is_same && !last_line_.empty()) {
        const std::size_t known = ('\n' + news).rfind('\n' + last_line_ + '\n');
        news.erase(0, known == std::string::npos ? 0 : known + last_line_.size() + 1);
    }
    return news;
}

std::vector<LifeLine> LifeFile::poll()
{
    std::vector<LifeLine> lines;
    for (const std::string &line : cg::split(read_news(), '\n')) {
        if (const auto event = parse_life(line)) {
            lines.push_back({*event, line});
            last_line_ = line;
            runs_ = event->is_start;
        }
    }
    return lines;
}

} // namespace recorder
