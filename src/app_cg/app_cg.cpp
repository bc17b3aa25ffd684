#include "app_cg/app_cg.h"

app_cg_global_t g_app_cg_global;
