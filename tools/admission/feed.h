// The store's notifications, as the tracker takes them.
#ifndef ADMISSION_FEED_H
#define ADMISSION_FEED_H

#include <protobuf-c/protobuf-c.h>

#include <array>

#include "card_tracker.h"

namespace admission
{

// A record type that the tracker wants to hear of, and the database that it lives in.
struct TrackedType {
    const ProtobufCMessageDescriptor *descriptor;
    int32_t db;
};

// All of them, in the order in which they should be subscribed to: a card before what is about it.
const std::array<TrackedType, 7> &tracked_types();

// Tells the tracker of a change.
//
// cmd       VX_MOM_CMD_SET, VX_MOM_CMD_HMSET, VX_MOM_CMD_SCANNED (the record is as given) or
//           VX_MOM_CMD_DELETED (it was so); others are passed over.
// record    of one of the types above; others, and records without a key, are passed over.
// existing  whether it is no news: told before the subscription's confirmation.
void feed(CardTracker &tracker, int32_t cmd, const ProtobufCMessage &record, bool existing, Time at);

// The facts in a card_info, which must have its index. Without a static part the node type is 0.
CardFacts facts_of(const ProtobufCMessage &card_info);

} // namespace admission

#endif
