// Who made a change, and what its writer was handling then.
//
// The loop and the store client call a program's callbacks and make its writes, so they know for certain
// which notification or timer a write belongs to. Each write says it: published with the change, and kept
// with the record until the next one. Who follows a program from outside would have to guess it
// otherwise, from times and from what the records look like.
//
// As text: the writer, "INSTANCE.NUMBER", a blank, and the cause: "-" for none, "timer", "connection", or the
// revision and the key of the record whose notification was being handled, "42 p_dev.card_info:0:1:3:0".
// Without a blank the cause is not known: writers of earlier builds do not say it.
#ifndef STORE_ORIGIN_H
#define STORE_ORIGIN_H

#include <cstdint>
#include <string>
#include <string_view>

namespace store
{

struct Cause {
    enum class Kind {
        unknown,    // the writer did not say it
        none,       // a command, or the program's own initiative
        record,     // a record's notification, live or of an existing record
        timer,      // a timer fired
        connection, // a connection came up, was lost, or returned
    };
    Kind kind = Kind::unknown;
    uint64_t revision = 0; // of the record's change; with Kind::record
    std::string key{};     // of the record, its type's name first; with Kind::record

    friend bool operator==(const Cause &, const Cause &) = default;
};

struct Origin {
    std::string
        instance{};      // of the writing client: another one is another life of the program; empty: unknown
    uint64_t number = 0; // of the instance's writes, counted from 1; 0: unknown
    Cause cause{};

    friend bool operator==(const Origin &, const Origin &) = default;
};

// The text that a write carries.
std::string text_of(const Origin &origin);

// Appends a cause to the writer, which such a text begins with.
void append_cause(Cause::Kind kind, uint64_t revision, std::string_view key, std::string &mark);

// Reads such a text. Whatever is malformed is unknown: others may write what they like into their records.
Origin parse_origin(std::string_view text);

} // namespace store

#endif
