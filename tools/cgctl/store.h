// The store, as the verbs use it: records as JSON, failures as exceptions.
//
// One object stands for the one platform context of the process. Connections are made when a database is
// first needed, so that a verb that touches one database does not depend on the others.
#ifndef CGCTL_STORE_H
#define CGCTL_STORE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "record_text.h"
#include "record_types.h"
#include "vx_thread.h"

namespace cgctl
{

struct Session;

class Store
{
public:
    // Creates the platform's context. Throws Failure.
    explicit Store(const Session &session);

    // For what is asynchronous. Lives as long as this object.
    [[nodiscard]] vx_global_t *context() const { return context_.get(); }

    // Connects to a database and waits for it. Throws Failure when the store does not answer. The functions
    // below do it by themselves.
    void connect(int32_t db);

    // The record with a key (the fields of the index; those missing are 0 or empty), or nothing.
    std::optional<Json> read(const RecordType &type, int32_t db, const Json &key);

    // Every record of a type, sorted by key. Records that cannot be decoded are left out by the platform.
    std::vector<Json> scan(const RecordType &type, int32_t db);

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
    struct Finish {
        void operator()(vx_global_t *context) const noexcept { vx_global_finish(context); }
    };

    void check(int32_t result, const char *what, const RecordType &type, int32_t db) const;

    std::string where_;
    std::unique_ptr<vx_global_t, Finish> context_;
    std::set<int32_t> connected_;
};

// A record with this key and nothing else.
Json record_with_key(const RecordType &type, const Json &key);

} // namespace cgctl

#endif
