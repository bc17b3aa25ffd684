// Where a part of the platform says what happens to it; see the header.
#include "log/messages.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <utility>

#include "log/text.h"

namespace platform
{

void Messages::write(const char *file, const char *func, long line, int32_t level, const char *format, ...)
{
    std::array<char, 1024> text{};
    va_list values;
    va_start(values, format);
    (void)std::vsnprintf(text.data(), text.size(), format, values);
    va_end(values);
    const std::string shown = visible(text.data());
    if (call_ != nullptr) {
        call_->last_ = shown;
    }
    if (!handler_) {
        log_write(file, func, line, level, "%s", text.data());
    } else if (call_ != nullptr) {
        call_->said_.emplace_back(level, shown);
    } else {
        handler_(level, shown);
    }
}

void Messages::tell_starter(const std::string &text)
{
    if (!handler_) {
        platform::tell_starter(text);
    }
}

Messages::DuringCall::DuringCall(Messages &messages)
    : messages_(messages), around_(std::exchange(messages.call_, this))
{
}

Messages::DuringCall::~DuringCall()
{
    messages_.call_ = around_;
    for (const auto &[level, text] : said_) {
        messages_.handler_(level, text);
    }
}

std::string Messages::DuringCall::reason()
{
    said_.clear();
    return std::move(last_);
}

} // namespace platform
