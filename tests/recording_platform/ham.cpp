// The process manager and the check for a second instance.
#include "ham.h"

#include "state.h"

using namespace recording;

int32_t reg_process_exit_action(int32_t first, int32_t action)
{
    record_line("reg_process_exit_action(" + std::to_string(first) + ", " + std::to_string(action) + ")");
    return finish_call("reg_process_exit_action");
}

int32_t vx_initframe_duplicate_check(void)
{
    record_line("vx_initframe_duplicate_check()");
    return finish_call("vx_initframe_duplicate_check");
}
