// The check that every callback makes of a store result before it looks at the record.
//
// A macro, not a function: the messages carry the name of the callback that received the result.
#ifndef APP_CG_STORE_RESULT_H
#define APP_CG_STORE_RESULT_H

#include "app_cg/app_cg.h"
#include "app_cg_dbg/logging.h"

// Logs and returns -21 from the enclosing function for a missing result, or one with an error code.
#define APP_CG_CHECK_STORE_RESULT(result)                                                                    \
    do {                                                                                                     \
        if ((result) == nullptr) {                                                                           \
            APP_CG_ERROR("result NULL");                                                                     \
            return APP_CG_ERR_STORE;                                                                         \
        }                                                                                                    \
        if ((result)->error_code != 0) {                                                                     \
            APP_CG_ERROR("result error_code %d", (result)->error_code);                                      \
            return APP_CG_ERR_STORE;                                                                         \
        }                                                                                                    \
    } while (0)

#endif
