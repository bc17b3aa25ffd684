// The records that a module reads and writes.
//
// Apart from the module, so that the generated structures appear in one file.
#ifndef KIT_RECORDS_H
#define KIT_RECORDS_H

#include <optional>
#include <string>

#include "core/check.h"
#include "core/facts.h"
#include "records/databases.h"
#include "store/client.h"

namespace kit
{

inline constexpr int32_t database = cg::card_database; // of all these records

// The types of check requests and of cards' information, for subscriptions.
const ProtobufCMessageDescriptor &request_type();
const ProtobufCMessageDescriptor &card_type();

// The request, or the card, that a change of such a record is about; nothing when it carries no record.
std::optional<Request> request_in(const store::Change &change);
std::optional<Facts> card_in(const store::Change &change);

// Adds the device manager's information about the card; leaves the facts unchanged when there is none.
store::Status read_info(store::Client &client, Facts &facts);

// Whether this very request stands.
store::Result<bool> stands(store::Client &client, const Request &request);

// Writes a module's answer.
store::Status write_answer(store::Client &client, const Position &position, const std::string &module,
                           const Answer &answer);

} // namespace kit

#endif
