// The daemon's level file: whatever it holds, the verbosity is what a reading of its first 15 bytes says.
#include <cctype>
#include <cstdarg>
#include <cstring>

#include "app_cg_dbg/logging.h"

#include "daemon_log.h"
#include "memory_file.h"

namespace
{

using fuzz::require;

constexpr const char *level_file = "/data/.vxos/vsd/0/plibpub/app_cg/app_cg/app_cg_dbg.txt";

const fuzz::MemoryFile &input()
{
    static const fuzz::MemoryFile file;
    return file;
}

int opened = 0;

// The number at the front of the text, wrapped to 32 bits; 0 when there is none.
uint32_t level_in(std::string_view text)
{
    text = text.substr(0, std::min<size_t>(text.size(), 15));
    size_t at = 0;
    while (at < text.size() && std::strchr(" \t\n\v\f\r", text[at]) != nullptr && text[at] != '\0') {
        ++at;
    }
    const bool negative = at < text.size() && text[at] == '-';
    if (at < text.size() && (text[at] == '-' || text[at] == '+')) {
        ++at;
    }
    uint64_t number = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        number = number * 10 + static_cast<uint64_t>(text[at] - '0');
    }
    return static_cast<uint32_t>(negative ? 0 - number : number);
}

} // namespace

extern "C" {

// The names are the linker's: --wrap=open leads calls of open here and leaves the system's as __real_open.
int __real_open(const char *path, int flags, ...);

int __wrap_open(const char *path, int flags, ...)
{
    if (std::strcmp(path, level_file) == 0) {
        ++opened;
        return __real_open(input().path().c_str(), flags);
    }
    va_list values;
    va_start(values, flags);
    const auto mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(values, mode_t) : 0;
    va_end(values);
    return __real_open(path, flags, mode);
}
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view text = fuzz::view_of(data, size);
    input().hold(text);
    opened = 0;
    g_app_cg_global.zlog_handle = &log_category;
    app_cg_verbosity = 4; // so that every message is formatted
    require(app_cg_zlog_init() == 0, "logging starts whatever the file holds");
    require(opened == 1, "the file was read");
    require(app_cg_verbosity == level_in(text), "the verbosity is the number in the file");
    return 0;
}
