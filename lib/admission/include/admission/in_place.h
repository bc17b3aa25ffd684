// Which record types the tracker wants to hear of, and whose existing records were notified of.
#ifndef ADMISSION_IN_PLACE_H
#define ADMISSION_IN_PLACE_H

#include <protobuf-c/protobuf-c.h>

#include <array>
#include <optional>
#include <set>
#include <vector>

#include "base/times.h"

namespace admission
{

// A record type that the tracker wants to hear of, and the database that it lives in.
struct TrackedType {
    const ProtobufCMessageDescriptor *descriptor;
    int32_t db;
};

// All of them, in the order in which they should be subscribed to: a card before what is about it. Of the
// results those of database 1, since every device writes its own there; those by position only a master does.
const std::array<TrackedType, 7> &tracked_types();
// The databases that they live in, each once.
const std::set<int32_t> &tracked_databases();

// Which types' existing records were notified of.
//
// A check's end is spread over several types, which are notified of one after the other; what happens in
// between reaches the later ones as existing. So a change is news only when all types of its database are in
// place: else a check that was decided just then would seem to have been withdrawn. The databases may be on
// several servers, so one of them may be complete long before another.
class InPlace
{
public:
    // All existing records of the type were notified of.
    void told(const ProtobufCMessageDescriptor *type);
    // Everything in the database will be notified of again.
    void lost(int32_t db);
    // Whether that goes for all types of a database, or of all.
    [[nodiscard]] bool is_complete(int32_t db) const;
    [[nodiscard]] bool is_complete() const;
    // For every few seconds: the types that are still missing ten seconds after others were first in place.
    // Nothing passes for news meanwhile, so somebody should know. Each such time is reported once.
    // away  databases of which nothing can be expected.
    std::vector<const ProtobufCMessageDescriptor *> overdue(cg::Time now, const std::set<int32_t> &away);

private:
    std::optional<cg::Time> partly_since_;
    bool overdue_told_ = false;
    std::set<const ProtobufCMessageDescriptor *> types_;
};

} // namespace admission

#endif
