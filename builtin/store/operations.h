// The calls on records, in terms of the calls on a database; vx_mom.cpp puts the C surface over them.
#ifndef STORE_OPERATIONS_H
#define STORE_OPERATIONS_H

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "store/calls.h"
#include "store/change.h"

namespace store
{

// Each returns ok or an error. Arguments as in vx_mom.h; none is null.
int32_t set(Calls &calls, const ProtobufCMessage &record);
int32_t hmset(Calls &calls, const ProtobufCMessage &record, const int32_t *fields, int32_t count);
int32_t del(Calls &calls, const ProtobufCMessage &record);
int32_t pdel(Calls &calls, const ProtobufCMessage &record, int32_t key_count);
// `left_out` gets what is no readable record.
int32_t scan(Calls &calls, const ProtobufCMessageDescriptor &type, const std::function<void(Record &&)> &each,
             std::vector<LeftOut> &left_out);

// Returns 1, 0 or an error.
int32_t exists(Calls &calls, const ProtobufCMessage &record);

// Returns ok with the record, or without when there is none, or an error.
int32_t hgetall(Calls &calls, const ProtobufCMessage &record, std::optional<Record> &found);

} // namespace store

#endif
