// Start of logging, and the verbosity. A level file can preset it, so that a daemon that fails at start can
// be watched from its first line.
#define APP_CG_LOG_SOURCE "app_cg_dbg.cpp"

#include "app_cg_dbg/logging.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

uint32_t app_cg_verbosity = 1;

namespace
{

constexpr char LEVEL_FILE[] = "/data/.vxos/vsd/0/plibpub/app_cg/app_cg/app_cg_dbg.txt";
constexpr std::size_t LEVEL_TEXT_LEN = 15;

void read_level_file()
{
    const int fd = open(LEVEL_FILE, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return;
    }
    char text[LEVEL_TEXT_LEN + 1] = {}; // one more than is read: the text ends whatever the file holds
    if (read(fd, text, LEVEL_TEXT_LEN) >= 0) {
        // What is no number counts as 0, what does not fit wraps; both are what operators know.
        const long level = std::strtol(text, nullptr, 10); // NOLINT(cert-err34-c)
        app_cg_log_level(static_cast<int32_t>(static_cast<uint32_t>(level)));
    }
    close(fd);
}

} // namespace

int32_t app_cg_zlog_init()
{
    APP_CG_INFO("enter");
    read_level_file();
    g_app_cg_global.zlog_handle = vx_zlog_init("app_cg");
    if (g_app_cg_global.zlog_handle == nullptr) {
        APP_CG_ERROR("%s zlog init fail", "app_cg");
        return APP_CG_ERR_RESOURCE;
    }
    APP_CG_INFO("leave");
    return 0;
}

int32_t app_cg_log_level(int32_t level)
{
    APP_CG_WARN("set debug level %d", level);
    app_cg_verbosity = static_cast<uint32_t>(level);
    return 0;
}
