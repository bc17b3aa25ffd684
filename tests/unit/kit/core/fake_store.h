// In place of the store client: one store in memory for all clients, of which the test is one.
//
// It defines the functions of builtin/store/client.h, so that the kit's core is linked with it as it is.
// Handlers are called from fake_loop::deliver().
#ifndef FAKE_STORE_H
#define FAKE_STORE_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "store/client.h"

namespace fake_store
{

// An empty store that can be reached. Clients of the test before must be gone.
void reset();

// Other programs' writes and deletions, delivered to subscriptions by the next fake_loop::deliver().
void write(const ProtobufCMessage &record);
void erase(const ProtobufCMessage &key);
// A change whose record does not decode; the key is the type's name, a colon and the slot.
void deliver_undecodable(const ProtobufCMessageDescriptor &type, const std::string &reason,
                         int32_t command = VX_MOM_CMD_SET, const std::string &key = {});

// Calls `each` for every record of a type.
void for_each(const ProtobufCMessageDescriptor &type,
              const std::function<void(const ProtobufCMessage &)> &each);

// The connection is lost and returns; before the first return there is none. Unless the data is the same,
// all records are delivered again.
void lose(const std::string &reason);
void restore(bool same_data);
// As restore(), from the beginning.
void connect();

// Has reads, or writes, of clients fail for this reason; empty: they succeed again.
void refuse_reads(const std::string &reason);
void refuse_writes(const std::string &reason);
// Has the next subscription fail for this reason.
void refuse_subscription(const std::string &reason);
// Has a client's connection fail, as settings that are of no use do.
void refuse_connection(const std::string &reason);

// What clients have done: how many reads, and the causes of the writes, as "REVISION KEY"; "none" without.
std::size_t reads();
const std::vector<std::string> &causes();
// What the client that was made last was given.
const store::Options &options();

} // namespace fake_store

#endif
