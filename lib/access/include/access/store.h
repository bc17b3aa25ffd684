// The store, as the verbs use it: records as JSON, failures as exceptions.
//
// Connections are made when a database is first needed, so that a verb that touches one database does not
// depend on the others. What the client says besides the reasons of failures is a notice: its log is for a
// daemon, and a program that reads our errors wants JSON.
#ifndef ACCESS_STORE_H
#define ACCESS_STORE_H

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "loop/loop.h"
#include "records/record_text.h"
#include "records/record_types.h"
#include "store/client.h"

namespace cg
{

struct Output;

class Store
{
public:
    // Checks the settings and makes the loop and the client. Throws Failure. The output outlives this.
    explicit Store(const Output &output);

    // For what is asynchronous. Both live as long as this object.
    [[nodiscard]] platform::Loop &loop() { return *loop_; }
    [[nodiscard]] store::Client &client() { return *client_; }

    // Connects to a database and waits for it. Throws Failure when the store does not answer. The functions
    // below do it by themselves.
    void connect(int32_t db);

    // The record with a key (the fields of the index; those missing are 0 or empty), or nothing.
    std::optional<Json> read(const RecordType &type, int32_t db, const Json &key);

    // Every record of a type, sorted by key. Those that do not decode are not among them; the functions
    // for what was left out tell of them.
    std::vector<Json> scan(const RecordType &type, int32_t db);
    // The same in the order of their last changes, each with what it says of its writer.
    void scan(const RecordType &type, int32_t db, const std::function<void(store::Record &&)> &each);

    // The object that such a verb shows, with them as "left_out" when there are some.
    [[nodiscard]] Json with_left_out(Json shown) const;

    // For the end of a verb that showed records: returns `done`, or, when some were left out, says so and
    // returns `failed`.
    [[nodiscard]] int tell_left_out() const;

    // Whether a record with this key exists.
    bool exists(const RecordType &type, int32_t db, const Json &key);

    // Writes a whole record.
    void set(const RecordType &type, int32_t db, const Json &record);

    // Writes the fields with these numbers.
    void set_fields(const RecordType &type, int32_t db, const Json &record, const std::set<int32_t> &fields);

    // Deletes one record.
    void erase(const RecordType &type, int32_t db, const Json &key);

    // Deletes every record with the same first `key_count` key fields.
    void erase_matching(const RecordType &type, int32_t db, const Json &key, int32_t key_count);

private:
    void notice(const std::string &text);
    [[nodiscard]] std::string reason(const store::Status &status) const;
    void check(const store::Status &status, const char *what, const RecordType &type, int32_t db) const;

    const Output &output_;
    std::string where_;
    std::set<std::string> noticed_;
    std::set<std::string> left_out_;
    std::optional<platform::Loop> loop_;
    std::optional<store::Client> client_; // on the loop
    std::set<int32_t> connected_;
};

// A record with this key and nothing else.
Json record_with_key(const RecordType &type, const Json &key);

} // namespace cg

#endif
