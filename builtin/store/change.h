// What the store has to say: records, their changes, and what becomes of a connection.
#ifndef STORE_CHANGE_H
#define STORE_CHANGE_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "store/codec/message.h"
#include "store/origin.h"
#include "vx_mom.h"

namespace store
{

// A record that was read.
struct Record {
    std::string key;       // its key in the store: the type's name, then the index
    uint64_t revision = 0; // of its last change, counted for each type in each database from 1
    std::string mark;      // what its last writer said of himself
    MessagePtr message;    // never null

    // Who made the last change, and what he was handling then.
    [[nodiscard]] Origin origin() const { return parse_origin(mark); }
};

// What stands where a record should, and does not decode.
struct LeftOut {
    std::string key;
    std::string why;
};

// A change of a record, or another thing that a subscription has to say.
struct Change {
    int32_t command = 0; // VX_MOM_CMD_SET, _HMSET, _DELETED or _SUBSCRIBED
    int32_t database = 0;
    const ProtobufCMessageDescriptor *type = nullptr; // that was subscribed to
    // As it now is, or was before its deletion. Null with VX_MOM_CMD_SUBSCRIBED, and with an error.
    const ProtobufCMessage *record = nullptr;
    std::string_view key{};    // of the record, as in the store
    uint64_t revision = 0;     // of this change; 0: it was missed while the client was away
    std::string_view mark{};   // what its writer said of himself
    bool existing = false;     // it comes before VX_MOM_CMD_SUBSCRIBED, or makes good for what was missed
    int32_t error = 0;         // not 0: what stands there does not decode
    std::string_view reason{}; // of the error

    // Who made the change, and what he was handling then.
    [[nodiscard]] Origin origin() const { return parse_origin(mark); }
};
using ChangeHandler = std::function<void(const Change &)>;

// What happens to the lasting connection of a database.
struct ConnectionEvent {
    enum class Kind {
        connected, // for the first time
        lost,      // `reason` says why
        returned,  // its subscriptions go on by themselves
    };
    Kind kind;
    int32_t database;
    std::string reason{}; // of a loss
    // Of a return: the store has what it had, and no write was given up, so that subscriptions deliver only
    // what was changed meanwhile; else they deliver everything.
    bool same_data = false;
    std::string server{}; // its endpoint, where the client uses several; else empty
};
using ConnectionHandler = std::function<void(const ConnectionEvent &)>;

} // namespace store

#endif
