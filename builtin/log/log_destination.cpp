// Where log records go.
//
// spdlog knows six levels of its own, and ours have other names and one more. So the level's name is part of
// the text that spdlog is given, rather than squeezed into its enumeration.
#include "log/log_destination.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include <spdlog/logger.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>

#include "log/journal_destination.h"
#include "loop/descriptor.h"
#include "loop/health.h"
#include "loop/number.h"
#include "loop/standard_descriptors.h"
#include "loop/standard_error.h"

namespace platform
{
namespace
{

// The level's name, or the number.
std::string log_level_name(int32_t level)
{
    switch (level) {
    case 40:
        return "info";
    case 60:
        return "notice";
    case 80:
        return "warn";
    case 100:
        return "error";
    case 120:
        return "fatal";
    default:
        return std::to_string(level);
    }
}

// Standard error as it is when the log is opened. A duplicate, because the process may point descriptor 2
// elsewhere later, and its log must not follow.
class StandardErrorSink final : public spdlog::sinks::base_sink<std::mutex>
{
public:
    StandardErrorSink() : fd_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, first_own_descriptor))
    {
        if (!fd_) {
            throw std::system_error(errno, std::generic_category(), "standard error");
        }
    }

protected:
    void sink_it_(const spdlog::details::log_msg &message) override
    {
        spdlog::memory_buf_t line;
        formatter_->format(message, line);
        std::string_view rest(rest_);
        write_without_waiting(fd_.get(), rest);
        rest_.erase(0, rest_.size() - rest.size());
        std::string_view text(line.data(), line.size());
        if (rest_.empty()) {
            write_without_waiting(fd_.get(), text);
        }
        if (text.size() == line.size()) {
            throw spdlog::spdlog_ex("no room");
        }
        rest_ += text;
    }
    void flush_() override {}

private:
    Descriptor fd_;
    std::string rest_; // of a line that has been written in part
};

constexpr size_t room_for_the_rest = 48; // level, line number, separators

void write_line(spdlog::logger &logger, const LogRecord &record)
{
    std::string text;
    text.reserve(logger.name().size() + record.file.size() + record.function.size() + record.text.size() +
                 room_for_the_rest);
    text.append(log_level_name(record.level));
    text.append(" ").append(logger.name()).append(" ").append(record.file).append(":");
    text.append(std::to_string(record.line)).append(" ").append(record.function).append(": ");
    text.append(record.text);
    logger.log(spdlog::level::info, spdlog::string_view_t(text));
}

// One line per record, on a sink of spdlog.
LogAttempt open_lines(const std::string &module, spdlog::sink_ptr sink)
{
    const auto logger = std::make_shared<spdlog::logger>(module, std::move(sink));
    const auto failed = std::make_shared<bool>(false);
    logger->set_level(spdlog::level::trace);
    logger->flush_on(spdlog::level::trace);
    logger->set_pattern("%Y-%m-%d %H:%M:%S.%e%z %v");
    logger->set_error_handler([failed](const std::string &) { *failed = true; }); // else it is printed
    return [logger, failed](const LogRecord &record) {
        *failed = false;
        write_line(*logger, record);
        return !*failed;
    };
}

// A file of spdlog, opened again after a failure. spdlog itself would go on writing into a file that it could
// not open again when it was rotated, which ends the process, and tries the opening several times with
// pauses; so what comes within a second after a failure is lost.
class RotatedFile
{
public:
    // Throws std::exception when it cannot be opened.
    RotatedFile(std::string module, std::string path, size_t max_bytes, size_t files)
        : module_(std::move(module)), path_(std::move(path)), max_bytes_(max_bytes), files_(files)
    {
        open();
    }

    bool write(const LogRecord &record)
    {
        if (!lines_ && std::chrono::steady_clock::now() < closed_until_) {
            return false;
        }
        try {
            if (!lines_) {
                open();
            }
            if (lines_(record)) {
                return true;
            }
        } catch (const std::exception &) { // handled as any failure
        }
        lines_ = {};
        closed_until_ = std::chrono::steady_clock::now() + std::chrono::seconds(1);
        return false;
    }

private:
    void open()
    {
        lines_ = open_lines(
            module_, std::make_shared<spdlog::sinks::rotating_file_sink_mt>(path_, max_bytes_, files_));
    }

    std::string module_;
    std::string path_;
    size_t max_bytes_;
    size_t files_;
    LogAttempt lines_; // empty while it is closed
    std::chrono::steady_clock::time_point closed_until_;
};

// Counts the records that are lost, and logs how many with the first one that is written again.
class CountedLosses
{
public:
    explicit CountedLosses(LogAttempt attempt) : attempt_(std::move(attempt)) {}

    // Several threads may log.
    void write(const LogRecord &record)
    {
        const std::lock_guard lock(mutex_);
        if ((lost_ == 0 || report()) && attempt_(record)) {
            return;
        }
        lost_++;
        note_health("log_dropped", ++lost_ever_);
    }

private:
    bool report()
    {
        constexpr int32_t warn = 80;
        const std::string text =
            "log: records that could not be written here and are lost: " + std::to_string(lost_);
        const bool is_written = attempt_({"log_destination.cpp", __func__, text, __LINE__, warn});
        lost_ = is_written ? 0 : lost_;
        return is_written;
    }

    std::mutex mutex_;
    LogAttempt attempt_;
    uint64_t lost_ = 0; // since the last record that was written
    uint64_t lost_ever_ = 0;
};

size_t number_in(std::string_view text, int64_t least, int64_t most)
{
    const auto number = whole_number(text, least, most);
    if (!number) {
        throw std::invalid_argument("'" + std::string(text) + "' is not a whole number from " +
                                    std::to_string(least) + " to " + std::to_string(most));
    }
    return static_cast<size_t>(*number);
}

// Cuts the text up to the next colon off the front.
std::string_view next_part(std::string_view &text)
{
    const size_t colon = text.find(':');
    const std::string_view part = text.substr(0, colon);
    text = colon == std::string_view::npos ? std::string_view{} : text.substr(colon + 1);
    return part;
}

LogAttempt open_file(std::string_view description, const std::string &module)
{
    const std::string path{next_part(description)};
    if (!path.starts_with('/')) {
        throw std::invalid_argument("the file's path must begin with /");
    }
    size_t max_bytes = size_t{1024} * 1024;
    size_t files = 4;
    if (!description.empty()) {
        max_bytes = number_in(next_part(description), 1024, std::numeric_limits<int32_t>::max());
    }
    if (!description.empty()) {
        files = number_in(description, 0, 1000);
    }
    const auto opened = std::make_shared<RotatedFile>(module, path, max_bytes, files);
    return [opened](const LogRecord &record) { return opened->write(record); };
}

LogAttempt open_attempt(const std::string &where, const std::string &module)
{
    constexpr std::string_view file = "file:";
    if (where == "stderr") {
        return open_lines(module, std::make_shared<StandardErrorSink>());
    }
    if (where.starts_with(file)) {
        return open_file(std::string_view(where).substr(file.size()), module);
    }
    if (where == "journal") {
        return open_journal(module);
    }
    throw std::invalid_argument("expected stderr, file:/path[:max_bytes[:files]], journal or none");
}

} // namespace

LogDestination open_log_destination(const std::string &where, const std::string &module)
{
    if (where == "none") {
        return {};
    }
    const auto counted = std::make_shared<CountedLosses>(open_attempt(where, module));
    return [counted](const LogRecord &record) { counted->write(record); };
}

} // namespace platform
