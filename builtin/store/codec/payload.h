// What is published with every change.
//
// A payload is a row of items, each its length in decimal, a colon, and that many bytes: revision, command,
// number of hash fields, then name and value of each. The record's key is the channel's name and not
// repeated: the server lets a user publish only on the channels of his records, and would not look into a
// payload. The record's whole content travels with the change (for a deletion as it last was), so that a
// subscriber never has to read a state that is newer than the change it is told of. JSON was rejected: the
// server's functions cannot write arbitrary bytes with it.
#ifndef CODEC_PAYLOAD_H
#define CODEC_PAYLOAD_H

#include <cstdint>
#include <string>
#include <string_view>

#include "store/codec/value.h"

namespace store
{

// A change of one record; its mark is empty when its writer said nothing of itself, as writers of the
// builds before do.
struct PublishedChange : Stored {
    int32_t command = 0; // enum vx_mom_cmd
    std::string key;     // from the channel
};

// Reads a payload into everything but the key. Returns false, with `change` in an unknown state, when it is
// none.
bool decode_change(std::string_view payload, PublishedChange &change);

} // namespace store

#endif
