// The journal; see the header. An entry is a datagram of NAME=value lines, as the journal's native protocol
// has it. The protocol's other form, for entries that are too long for a datagram, is not used: the records
// of this system are a kilobyte at most, and what quotes something far longer is cut. service_notice.h says
// why the library for it is not used.
#include "log/journal_destination.h"

#include <cerrno>
#include <cstdint>
#include <memory>
#include <system_error>

#include <syslog.h>
#include <unistd.h>

#include "log/unix_datagram.h"

namespace platform
{

namespace
{

constexpr size_t longest_text = 32768;
constexpr const char *journal_socket = "/run/systemd/journal/socket";

int journal_priority(int32_t level)
{
    if (level >= 120) {
        return LOG_CRIT;
    }
    if (level >= 100) {
        return LOG_ERR;
    }
    if (level >= 80) {
        return LOG_WARNING;
    }
    if (level >= 60) {
        return LOG_NOTICE;
    }
    return level >= 40 ? LOG_INFO : LOG_DEBUG;
}

std::string journal_entry(const std::string &module, const LogRecord &record)
{
    std::string entry;
    append_journal_field(entry, "MESSAGE", record.text.substr(0, longest_text));
    append_journal_field(entry, "PRIORITY", std::to_string(journal_priority(record.level)));
    append_journal_field(entry, "SYSLOG_IDENTIFIER", module);
    append_journal_field(entry, "CODE_FILE", record.file);
    append_journal_field(entry, "CODE_LINE", std::to_string(record.line));
    append_journal_field(entry, "CODE_FUNC", record.function);
    return entry;
}

} // namespace

void append_journal_field(std::string &entry, std::string_view name, std::string_view value)
{
    entry += name;
    if (value.find('\n') == std::string_view::npos) {
        entry += '=';
    } else {
        entry += '\n';
        for (unsigned shift = 0; shift < 64; shift += 8) {
            entry += static_cast<char>(static_cast<uint64_t>(value.size()) >> shift & 0xffU);
        }
    }
    entry += value;
    entry += '\n';
}

LogAttempt open_journal(const std::string &module)
{
    if (access(journal_socket, W_OK) != 0) {
        throw std::system_error(errno, std::generic_category(), journal_socket);
    }
    const auto socket = std::make_shared<const Descriptor>(open_datagram_socket());
    return [module, socket](const LogRecord &record) {
        return send_datagram(*socket, journal_socket, journal_entry(module, record)) == 0;
    };
}

} // namespace platform
