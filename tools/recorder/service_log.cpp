// The service log: the file in which the daemon's service unit notes each start and exit.
#include "service_log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

#include "base/text.h"
#include "loop/descriptor.h"

namespace recorder
{

namespace
{

// The unit's script keeps the file far below that; but the daemon's account could write anything.
constexpr std::size_t most_lines = 10000;
constexpr std::size_t longest_line = 128;
constexpr std::size_t longest_word = 16;

bool is_word(const std::string &text)
{
    return !text.empty() && text.size() <= longest_word &&
           text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+-") ==
               std::string::npos;
}

} // namespace

std::optional<history::LifeEvent> parse_service_line(const std::string &line)
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

std::vector<ServiceLine> lines_behind(const std::string &text, std::vector<ServiceLine> lines)
{
    const auto known = std::find_if(lines.rbegin(), lines.rend(),
                                    [&](const ServiceLine &line) { return line.text == text; });
    lines.erase(lines.begin(), known.base());
    return lines;
}

ServiceLog::ServiceLog(std::string path) : path_(std::move(path)) {}

bool ServiceLog::has_changed() const
{
    struct stat status {
    };
    return lstat(path_.c_str(), &status) != 0 || status.st_ino != inode_ || status.st_size != offset_;
}

void ServiceLog::parse_line(std::vector<ServiceLine> &lines)
{
    if (const auto event = parse_service_line(partial_)) {
        lines.push_back({*event, partial_});
    }
    if (lines.size() > 2 * most_lines) {
        lines.erase(lines.begin(), lines.end() - most_lines);
    }
    partial_.clear();
}

void ServiceLog::parse(std::string_view bytes, std::vector<ServiceLine> &lines)
{
    while (!bytes.empty()) {
        const std::size_t end = std::min(bytes.find('\n'), bytes.size());
        if (!in_overlong_line_) {
            partial_ += bytes.substr(0, end);
        }
        if (partial_.size() > longest_line) {
            partial_.clear();
            in_overlong_line_ = true;
            met_overlong_line_ = true;
        }
        if (end == bytes.size()) {
            return;
        }
        if (!std::exchange(in_overlong_line_, false)) {
            parse_line(lines);
        }
        bytes.remove_prefix(end + 1);
    }
}

std::vector<ServiceLine> ServiceLog::read_appended()
{
    std::vector<ServiceLine> lines;
    // A pipe in its place must not block us.
    const platform::Descriptor file(::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat status {
    };
    const bool is_readable = file.get() >= 0 && fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode);
    if (!is_readable) {
        inode_ = 0;
        return lines;
    }
    const bool is_same = status.st_ino == inode_ && status.st_size >= offset_;
    if (!is_same) {
        inode_ = status.st_ino;
        offset_ = 0;
        partial_.clear();
        in_overlong_line_ = false;
    }
    std::array<char, 4096> bytes{};
    while (offset_ < status.st_size) {
        const ssize_t count = pread(file.get(), bytes.data(), bytes.size(), offset_);
        if (count <= 0) {
            break;
        }
        parse({bytes.data(), static_cast<std::size_t>(count)}, lines);
        offset_ += count;
    }
    return is_same ? lines : lines_behind(last_line_, std::move(lines));
}

std::vector<ServiceLine> ServiceLog::poll()
{
    if (!has_changed()) {
        return {};
    }
    std::vector<ServiceLine> lines = read_appended();
    if (lines.size() > most_lines) {
        lines.erase(lines.begin(), lines.end() - most_lines);
    }
    if (!lines.empty()) {
        last_line_ = lines.back().text;
    }
    return lines;
}

} // namespace recorder
