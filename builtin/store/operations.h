// The calls on records, in terms of the calls on a database; vx_mom.cpp puts the C surface over them.
#ifndef STORE_OPERATIONS_H
#define STORE_OPERATIONS_H

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "store/calls.h"
#include "store/change.h"
#include "store/status.h"

namespace store
{

// Arguments as in vx_mom.h; none is null.
Status set(Calls &calls, const ProtobufCMessage &record);
Status hmset(Calls &calls, const ProtobufCMessage &record, const int32_t *fields, int32_t count);
Status del(Calls &calls, const ProtobufCMessage &record);
Status pdel(Calls &calls, const ProtobufCMessage &record, int32_t key_count);
// `left_out` gets what is no readable record.
Status scan(Calls &calls, const ProtobufCMessageDescriptor &type, const std::function<void(Record &&)> &each,
            std::vector<LeftOut> &left_out);

Status exists(Calls &calls, const ProtobufCMessage &record, bool &found);
// `found` stays empty when there is none.
Status hgetall(Calls &calls, const ProtobufCMessage &record, std::optional<Record> &found);

} // namespace store

#endif
