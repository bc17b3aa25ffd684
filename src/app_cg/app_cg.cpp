// The daemon's one global record. Connection callbacks and debug commands bring no argument of ours along, so
// what they share has to stand where all of them find it; passing it through every call was the alternative,
// but those entries would have to take it from a global all the same.
#include "app_cg/app_cg.h"

app_cg_global_t g_app_cg_global;
