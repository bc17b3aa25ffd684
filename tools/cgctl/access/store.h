// The store, as the verbs use it: failures as exceptions that name store, database and type.
//
// Connections are made when a database is first needed, so that a verb that touches one database does not
// depend on the others. What the client says besides the reasons of failures is a notice: its log is for a
// daemon, and a program that reads our errors wants JSON.
#ifndef ACCESS_STORE_H
#define ACCESS_STORE_H

#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "loop/loop.h"
#include "store/client.h"

namespace cg
{

struct Output;

// A server that could not be used, or that refused.
struct AwayServer {
    std::string server{};          // its endpoint
    std::set<int32_t> databases{}; // that were wanted of it
    std::string problem{};         // why, of the first of them; can be printed
};

// "the store at ENDPOINT cannot be used, databases 28 and 33 PROBLEM"; can be printed.
std::string text_of(const AwayServer &away);

// Everything below throws Failure when the store does not do what it is asked. A `key` is a record of which
// only the index counts.
class Store
{
public:
    // Checks the settings and makes the loop and the client. The output outlives this.
    explicit Store(const Output &output);

    // For what is asynchronous. Both live as long as this object.
    [[nodiscard]] platform::Loop &loop() { return *loop_; }
    [[nodiscard]] store::Client &client() { return *client_; }

    // Connects to a database and waits for it. The functions below do it by themselves.
    void connect(int32_t db);
    // The same, but returns false when the database's server does not answer or refuses; it is in away()
    // then, and is not waited for again.
    bool try_connect(int32_t db);

    // The record with a key, or nothing.
    std::optional<store::Record> read(int32_t db, const ProtobufCMessage &key);
    // Whether a record with this key exists.
    bool exists(int32_t db, const ProtobufCMessage &key);
    // Every record of a type in the order of their last changes, in its usual database or in another one.
    // Those that do not decode are not among them: each is a notice, and in left_out().
    std::vector<store::Record> scan(const ProtobufCMessageDescriptor &type);
    std::vector<store::Record> scan(const ProtobufCMessageDescriptor &type, int32_t db);

    // Writes a whole record.
    void set(int32_t db, const ProtobufCMessage &record);
    // Writes the fields with these numbers.
    void set_fields(int32_t db, const ProtobufCMessage &record, std::span<const int32_t> fields);
    // Writes the field of this name.
    void set_field(int32_t db, const ProtobufCMessage &record, const char *field);
    // Deletes one record.
    void erase(int32_t db, const ProtobufCMessage &key);
    // Deletes every record with the same first `key_count` key fields.
    void erase_matching(int32_t db, const ProtobufCMessage &key, int32_t key_count);

    // The keys of all records that scan() left out.
    [[nodiscard]] const std::set<std::string> &left_out() const { return left_out_; }
    // What try_connect() did not reach, in the order asked.
    [[nodiscard]] const std::vector<AwayServer> &away() const { return away_; }
    // For the end of a verb that showed records: returns `done`, or, when some were left out, says so and
    // returns `failed`.
    [[nodiscard]] int report_left_out() const;

private:
    void notice(const std::string &text);
    store::Status reach(int32_t db);

    const Output &output_;
    std::set<std::string> noticed_;
    std::set<std::string> left_out_;
    std::optional<platform::Loop> loop_;
    std::optional<store::Client> client_; // on the loop
    std::set<int32_t> connected_;
    std::vector<AwayServer> away_;
};

} // namespace cg

#endif
