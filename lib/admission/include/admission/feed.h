// Records as the tracker's events.
#ifndef ADMISSION_FEED_H
#define ADMISSION_FEED_H

#include "admission/card_tracker.h"
#include "admission/in_place.h"

namespace admission
{

// Reports a change to the tracker.
//
// record    of one of the tracked types; others, and records without a key, are passed over.
// deleted   whether the record is gone, and as it last was; else it is as given.
// change    when it was heard of, whether it is news (not before all types of its database are in place), and
//           the write that it is.
void feed(CardTracker &tracker, const ProtobufCMessage &record, bool deleted, const Change &change);

// The facts in a card_info, which must have its index. Without a static part the node type is 0.
CardFacts facts_of(const ProtobufCMessage &card_info);

} // namespace admission

#endif
