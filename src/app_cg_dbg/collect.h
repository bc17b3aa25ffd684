// The "collect" command: all dumps into a file, and standard output with them, for good.
#ifndef APP_CG_DBG_COLLECT_H
#define APP_CG_DBG_COLLECT_H

#include <cstdint>

extern int32_t collect_saved_stdout; // duplicate of standard output taken by the last "collect", or -1
extern int32_t collect_fd;           // the collect file as opened by the last "collect", or negative

// Writes all dumps into the collect file. Returns 0.
int32_t app_cg_collect();

// The two halves around the dumps: descriptors 0, 1 and 2 go to the collect file, and stay there.
void app_cg_collect_redirect();
void app_cg_collect_restore();

#endif
