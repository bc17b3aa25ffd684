// "collect": the dumps of "dump_all", written into a file for the support engineer.
//
// Descriptors 0, 1 and 2 stay on that file afterwards: whatever the process prints later, a crash report of
// the C library included, is collected too. The restore closes the file's descriptor before it duplicates
// it, so its dup2 calls fail and change nothing; that is the behaviour that is wanted, and the saved
// descriptor is never used.
#define APP_CG_LOG_SOURCE "app_cg_dbg.cpp"

#include "app_cg_dbg/collect.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <initializer_list>

#include "app_cg/card_nodes.h"
#include "app_cg/check_modules.h"
#include "app_cg_dbg/debug_commands.h"

int32_t collect_saved_stdout = -1;
int32_t collect_fd = -1;

namespace
{

constexpr char COLLECT_FOLDER[] = "/data/collect";
constexpr std::size_t COLLECT_TEXT_LEN = 256;

void move_standard_descriptors(int32_t fd)
{
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        dup2(fd, standard);
    }
}

} // namespace

void app_cg_collect_redirect()
{
    char command[COLLECT_TEXT_LEN] = {};
    char file[COLLECT_TEXT_LEN] = {};
    std::snprintf(command, sizeof command, "mkdir -p %s", COLLECT_FOLDER);
    std::snprintf(file, sizeof file, "%s/app_cg.log", COLLECT_FOLDER);

    // A folder that could not be made shows in the open below.
    [[maybe_unused]] const int made = std::system(command);
    collect_saved_stdout = dup(STDOUT_FILENO);
    collect_fd = open(file, O_RDWR | O_CREAT, 0644);
    if (collect_fd < 0) {
        std::printf("%s open fail\r\n", file);
        return;
    }
    move_standard_descriptors(collect_fd);
}

void app_cg_collect_restore()
{
    if (collect_fd >= 0) {
        close(collect_fd);
    }
    std::fflush(stdout);
    move_standard_descriptors(collect_fd);
}

int32_t app_cg_collect()
{
    app_cg_collect_redirect();
    app_cg_dump_wait_obj();
    app_cg_show_time();
    app_cg_dump_all_node();
    app_cg_collect_restore();
    return 0;
}
