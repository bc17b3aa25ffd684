// Where a part of the platform says what happens to it; see the header.
#include "log/messages.h"

#include <cassert>
#include <cstdarg>
#include <utility>

namespace platform
{

void Messages::write(const char *file, const char *func, long line, int32_t level, const char *format, ...)
{
    va_list values;
    va_start(values, format);
    const std::string text = log_text(format, values);
    va_end(values);
    if (call_ != nullptr) {
        call_->last_ = text;
    }
    if (!handler_) {
        log_line(file, func, line, level, text);
    } else if (call_ != nullptr) {
        call_->said_.emplace_back(level, text);
    } else {
        handler_(level, text);
    }
}

void Messages::notify_starter(const std::string &text)
{
    if (!handler_) {
        platform::notify_starter(text);
    }
}

Messages::DuringCall::DuringCall(Messages &messages)
    : messages_(messages), around_(std::exchange(messages.call_, this))
{
}

Messages::DuringCall::~DuringCall()
{
    assert(messages_.call_ == this); // else a reason would be given with another call's failure
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
