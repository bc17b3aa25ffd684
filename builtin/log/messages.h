// Where one part of the platform says what happens to it: to its user, or in the module's log.
//
// A daemon wants all of it in its log; a tool shows some of it in a form of its own, and gives the reason of
// a call that failed with the call. So each client of the store has an object of these.
#ifndef LOG_MESSAGES_H
#define LOG_MESSAGES_H

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "log/platform_log.h"

namespace platform
{

class Messages
{
public:
    // level  of enum LogLevel. text: one line without control characters. Must not throw (what it throws is
    // dropped), nor call the part that it receives the messages of, which may be in the middle of something.
    using Handler = std::function<void(int32_t level, const std::string &text)>;

    // An empty handler: everything goes to the log of the module, and to standard error what the one
    // who starts the program must see.
    explicit Messages(Handler handler) : handler_(std::move(handler)) {}
    Messages(const Messages &) = delete;
    Messages &operator=(const Messages &) = delete;
    ~Messages() = default;

    // Writes one message; use LOG_TO, which fills in the place.
    void write(const char *file, const char *func, long line, int32_t level, const char *format, ...)
        VX_PRINTF_FORMAT(6, 7);

    // Prints on standard error what the one who starts a program must see, unless there is a handler, which
    // has it already. text: one line.
    void notify_starter(const std::string &text);

    // Whether all of it goes to the log: then what a call returns is said there, too.
    [[nodiscard]] bool go_to_log() const { return !handler_; }

private:
    Handler handler_;
};

} // namespace platform

// A macro because the place of the call is wanted; std::source_location is unknown to the checker in use.
#define LOG_TO(messages, level, ...) (messages).write(__FILE__, __func__, __LINE__, (level), __VA_ARGS__)

#endif
