// A scan that also names what it could not deliver.
//
// The porting surface delivers what does not decode as nothing, which is right for a daemon that serves on. A
// tool that shows the records to somebody has to say that there are more.
#ifndef STORE_FULL_SCAN_H
#define STORE_FULL_SCAN_H

#include <cstdint>
#include <string>
#include <vector>

#include "vx_mom.h"

namespace vx_mom
{

// As vx_mom_scan_sync(); appends to `left_out` the keys of the records of this type that do not decode.
int32_t full_scan(vx_global_t *global, int32_t db, const ProtobufCMessage *pattern, vx_mom_pmsg_f callback,
                  void *arg, std::vector<std::string> &left_out) noexcept;

} // namespace vx_mom

#endif
