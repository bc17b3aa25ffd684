// Which record types the tracker wants to hear of, and whose existing records were notified of.
#ifndef ADMISSION_IN_PLACE_H
#define ADMISSION_IN_PLACE_H

#include <protobuf-c/protobuf-c.h>

#include <array>
#include <map>
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
    // For every few seconds while a database answers: its types that are still missing ten seconds after it
    // first did. None of its changes passes for news meanwhile, so somebody should know. Each such time is
    // reported once.
    std::vector<const ProtobufCMessageDescriptor *> overdue(int32_t db, cg::Time now);

private:
    struct Wait {
        cg::Time since;
        bool is_reported = false;
    };

    std::map<int32_t, Wait> waits_; // for databases that answer and are not complete
    std::set<const ProtobufCMessageDescriptor *> types_;
};

} // namespace admission

#endif
