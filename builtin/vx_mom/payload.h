// What is published with every change, and the names of a type's places in the store.
//
// A payload is a row of items, each its length in decimal, a colon, and that many bytes: revision, command,
// key, number of hash fields, then name and value of each. The record's whole content travels with the change
// (for a deletion as it last was), so that a subscriber never has to read a state that is newer than the
// change it is told of. JSON was rejected: the server's scripts cannot write arbitrary bytes with it.
#ifndef VX_MOM_PAYLOAD_H
#define VX_MOM_PAYLOAD_H

#include <cstdint>
#include <string>
#include <string_view>

#include "value.h"

namespace vx_mom
{

// A change of one record.
struct Change {
    uint64_t revision = 0;
    int32_t command = 0; // enum vx_mom_cmd
    std::string key;
    Fields fields;
};

// Reads a payload. Returns false, with `change` in an unknown state, when it is not one.
bool decode_change(std::string_view payload, Change &change);

// Names of what belongs to a record type in one database. `@` cannot begin a type's name, so none of them can
// collide with a record.
std::string counter_key(const std::string &type);                    // the revision of the last change
std::string index_key(const std::string &type);                      // sorted set: keys by revision
std::string channel_name(int32_t database, const std::string &type); // channels know no databases
inline constexpr const char *data_set_key = "@set";                  // the identity of a database's data

// The function of the scripts that publishes a change, in the server's script language:
// publish(channel, revision, command, key, {name, value, ...}).
extern const char *const publish_function;

} // namespace vx_mom

#endif
