// The store's notifications, as the tracker takes them.
#ifndef ADMISSION_FEED_H
#define ADMISSION_FEED_H

#include <protobuf-c/protobuf-c.h>

#include <array>
#include <set>

#include "admission/card_tracker.h"
#include "admission/change.h"

namespace admission
{

// A record type that the tracker wants to hear of, and the database that it lives in.
struct TrackedType {
    const ProtobufCMessageDescriptor *descriptor;
    int32_t db;
};

// All of them, in the order in which they should be subscribed to: a card before what is about it.
const std::array<TrackedType, 7> &tracked_types();

// Which types' existing records were told.
//
// A check's end is spread over several types, which are told one after the other; what happens in between
// reaches the later ones as existing. So a change is news only when all types of its database are in place:
// else a check that was decided just then would seem to have been withdrawn.
class InPlace
{
public:
    // All existing records of the type were told. Returns whether that goes for all types now.
    bool told(const ProtobufCMessageDescriptor *type);
    // Everything in the database will be told anew.
    void lost(int32_t db);
    [[nodiscard]] bool is_complete(int32_t db) const;
    [[nodiscard]] bool is_empty() const { return types_.empty(); }
    // For every few seconds: the types that are still not told ten seconds after others were first found to
    // be. Nothing passes for news meanwhile, so somebody should know. Each such time is told of once.
    std::vector<const ProtobufCMessageDescriptor *> overdue(Time now);

private:
    std::optional<Time> partly_since_;
    bool overdue_told_ = false;
    std::set<const ProtobufCMessageDescriptor *> types_;
};

// Tells the tracker of a change.
//
// cmd       VX_MOM_CMD_SET, VX_MOM_CMD_HMSET, VX_MOM_CMD_SCANNED (the record is as given) or
//           VX_MOM_CMD_DELETED (it was so); others are passed over.
// record    of one of the types above; others, and records without a key, are passed over.
// change    when it was heard of, whether it is news (not before all types of its database are in place), and
//           the write that it is.
void feed(CardTracker &tracker, int32_t cmd, const ProtobufCMessage &record, const Change &change);
// The same of a write that nothing is known of.
void feed(CardTracker &tracker, int32_t cmd, const ProtobufCMessage &record, bool existing, Time at);

// The facts in a card_info, which must have its index. Without a static part the node type is 0.
CardFacts facts_of(const ProtobufCMessage &card_info);

} // namespace admission

#endif
