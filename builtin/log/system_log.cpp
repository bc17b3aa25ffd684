// The way to the system log; see the header.
#include "log/system_log.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <exception>
#include <string_view>
#include <utility>

#include <poll.h>
#include <unistd.h>

#include "log/platform_log.h"
#include "log/unix_datagram.h"
#include "loop/descriptor_reserve.h"
#include "loop/health.h"
#include "loop/loop.h"
#include "loop/platform_context.h"

namespace platform
{

namespace
{

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds search_period{1000};
constexpr milliseconds time_to_end{1000};
constexpr milliseconds search_period_at_end{20};
constexpr size_t lines_per_turn = 256;   // others on the loop must have their turns
constexpr size_t bytes_beside_text = 64; // of a line that waits
// More than a message holds where the system's settings are the usual ones; what it does hold shows when the
// line is sent.
constexpr size_t longest_line = size_t{256} * 1024;

size_t bytes_of(const std::string &line)
{
    return line.size() + bytes_beside_text;
}

// Cuts a line to so many bytes, a mark included that shows it, and through no UTF-8 character: a journal
// would show no text at all.
void truncate_line(std::string &line, size_t most)
{
    constexpr std::string_view mark = "[truncated]";
    if (line.size() <= std::max(most, mark.size())) {
        return;
    }
    size_t end = std::max(most, mark.size()) - mark.size();
    for (int bytes = 1; bytes < 4 && end > 0 && (static_cast<unsigned char>(line[end]) & 0xc0U) == 0x80U;
         bytes++) {
        end--;
    }
    line.replace(end, std::string::npos, mark);
    line.shrink_to_fit();
}

} // namespace

// What hangs on a loop. The context owns it, since it may end before this does, and after it.
struct SystemLog::LoopPart {
    vx_global_t *context = nullptr;
    bool waits_for_room = false;
    Watch room;
    Timer search;
};

std::string system_log_line(int priority, const std::string &ident, const std::string &text)
{
    constexpr std::array<const char *, 12> months{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                  "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const time_t now = std::time(nullptr);
    tm local{};
    (void)localtime_r(&now, &local);
    std::array<char, 80> head{};
    (void)std::snprintf(head.data(), head.size(), "<%d>%s %2d %02d:%02d:%02d ", priority,
                        months.at(static_cast<size_t>(local.tm_mon)), local.tm_mday, local.tm_hour,
                        local.tm_min, local.tm_sec);
    return head.data() + ident + "[" + std::to_string(getpid()) + "]: " + text;
}

SystemLog::SystemLog(std::string socket, size_t most) : path_(std::move(socket)), most_(most) {}

SystemLog::~SystemLog()
{
    leave_loop();
    try {
        finish();
    } catch (const std::exception &) {
        return; // memory that ran out; what waits is lost
    }
}

void SystemLog::write(std::string line)
{
    truncate_line(line, longest_line);
    const size_t bytes = bytes_of(line);
    if (waiting_bytes_ + bytes > most_) {
        (void)flush();
    }
    if (waiting_bytes_ + bytes > most_) {
        drop();
    } else {
        waiting_.push_back(std::move(line));
        waiting_bytes_ += bytes;
    }
    if (!flush()) {
        wait_on_loop();
    }
}

// Returns 0 or a negative errno; without a socket when nobody can be reached.
int SystemLog::send(const std::string &line) noexcept
{
    int result = -ENOTCONN;
    for (int attempt = 0; attempt < 2; attempt++) {
        if (!socket_) {
            result = connect();
        }
        if (socket_) {
            result = send_datagram(socket_, line);
        }
        if (result == 0 || result == -EAGAIN || result == -EMSGSIZE || !socket_) {
            break;
        }
        use({}); // who listened has gone; another one may be there by now
    }
    return result;
}

// Connects with who listens now; the socket stays as it is where that is not possible. Returns 0 or a
// negative errno.
int SystemLog::connect() noexcept
{
    const LentDescriptors for_the_socket;
    Descriptor fresh;
    const int result = connect_datagram(fresh, path_);
    if (result == 0) {
        use(std::move(fresh));
    }
    return result;
}

// Sends what waits, as far as it goes in one turn. Returns whether that was all of it.
bool SystemLog::flush()
{
    for (size_t lines = 0; !waiting_.empty(); lines++) {
        const int result = lines < lines_per_turn ? send(waiting_.front()) : -EAGAIN;
        if (result != 0 && result != -EMSGSIZE) {
            problem_ = result;
            return false;
        }
        std::string &line = waiting_.front();
        waiting_bytes_ -= bytes_of(line);
        if (result == 0) {
            waiting_.pop_front();
        } else { // longer than a message may be
            truncate_line(line, line.size() / 2);
            waiting_bytes_ += bytes_of(line);
        }
    }
    report_end_of_drops();
    return true;
}

// No exception may end the loop on account of the system log.
void SystemLog::flush_from_loop()
{
    try {
        if (flush()) {
            waiting_.shrink_to_fit();
            leave_loop();
        } else {
            wait_on_loop();
        }
    } catch (const std::exception &) {
        return; // memory that ran out; the next line tries again
    }
}

// Waits for room, and now and then for another service: one that hangs may have been replaced by one that
// reads, under the same name on another socket.
void SystemLog::wait_on_loop()
{
    vx_global_t *context = running_context();
    std::shared_ptr<LoopPart> part = loop_part_.lock();
    if (context == nullptr || (part != nullptr && part->context != context)) {
        return;
    }
    if (part == nullptr) {
        part = std::make_shared<LoopPart>();
        part->context = context;
        slot_of(context, Slot::system_log) = part;
        loop_part_ = part;
    }
    if (!part->search.is_armed()) {
        part->search = Timer(context, search_period, [this] {
            (void)connect();
            flush_from_loop();
        });
    }
    if (socket_ && !part->waits_for_room) {
        part->room = Watch(context, socket_.get(), Watch::Until::writable, [this] { flush_from_loop(); });
        part->waits_for_room = true;
    }
}

void SystemLog::leave_loop() noexcept
{
    if (const std::shared_ptr<LoopPart> part = loop_part_.lock()) {
        part->room.cancel();
        part->waits_for_room = false;
        part->search.cancel();
    }
}

// In place of the present socket, which is watched no longer.
void SystemLog::use(Descriptor socket) noexcept
{
    if (const std::shared_ptr<LoopPart> part = loop_part_.lock()) {
        part->room.cancel();
        part->waits_for_room = false;
    }
    socket_ = std::move(socket);
}

void SystemLog::drop()
{
    dropped_++;
    note_health("system_log_dropped", dropped_);
    if (dropped_unreported_ == 0 && problem_ == -EAGAIN) {
        PLATFORM_LOG(
            log_warn,
            "system log: dropping lines: %s is not read, and no more can wait; restart the system log's "
            "service",
            path_.c_str());
    } else if (dropped_unreported_ == 0) {
        PLATFORM_LOG(log_warn, "system log: dropping lines: %s cannot be reached: %s, and no more can wait",
                     path_.c_str(), strerror(-problem_));
    }
    dropped_unreported_++;
}

void SystemLog::report_end_of_drops()
{
    if (dropped_unreported_ != 0) {
        PLATFORM_LOG(log_warn, "system log: lines dropped: %llu; all others have left",
                     static_cast<unsigned long long>(std::exchange(dropped_unreported_, 0)));
    }
}

void SystemLog::finish()
{
    const auto limit = steady_clock::now() + time_to_end;
    while (!flush()) {
        const auto left = std::chrono::ceil<milliseconds>(limit - steady_clock::now());
        if (left <= milliseconds(0)) {
            break;
        }
        const milliseconds pause = socket_ ? left : std::min(left, search_period_at_end);
        pollfd room{socket_.get(), POLLOUT, 0}; // poll() passes over what is no socket
        (void)poll(&room, 1, static_cast<int>(pause.count()));
    }
    if (!waiting_.empty()) {
        PLATFORM_LOG(log_warn, "system log: lines dropped: %llu, and lost at the process's end: %zu",
                     static_cast<unsigned long long>(dropped_unreported_), waiting_.size());
    }
}

} // namespace platform
