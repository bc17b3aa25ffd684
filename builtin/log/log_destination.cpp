// Where log records go.
//
// spdlog knows six levels of its own, and ours have other names and one more. So the level's name is part of
// the text that spdlog is given, rather than squeezed into its enumeration.
#include "log/log_destination.h"

#include <cerrno>
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
#include "loop/number.h"
#include "loop/standard_descriptors.h"

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
        for (size_t done = 0; done < line.size();) {
            const ssize_t written = ::write(fd_.get(), line.data() + done, line.size() - done);
            if (written > 0) {
                done += static_cast<size_t>(written);
            } else if (errno != EINTR) {
                return;
            }
        }
    }
    void flush_() override {}

private:
    Descriptor fd_;
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
LogDestination open_lines(const std::string &module, spdlog::sink_ptr sink)
{
    const auto logger = std::make_shared<spdlog::logger>(module, std::move(sink));
    logger->set_level(spdlog::level::trace);
    logger->flush_on(spdlog::level::trace);
    logger->set_pattern("%Y-%m-%d %H:%M:%S.%e%z %v");
    return [logger](const LogRecord &record) { write_line(*logger, record); };
}

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

LogDestination open_file(std::string_view description, const std::string &module)
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
    return open_lines(module, std::make_shared<spdlog::sinks::rotating_file_sink_mt>(path, max_bytes, files));
}

} // namespace

LogDestination open_log_destination(const std::string &where, const std::string &module)
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
    if (where == "none") {
        return {};
    }
    throw std::invalid_argument("expected stderr, file:/path[:max_bytes[:files]], journal or none");
}

} // namespace platform
