// The one place where the JSON class is instantiated; record_text.h says why.
#include "record_text.h"

template class nlohmann::basic_json<nlohmann::ordered_map>;
