// The store, as the verbs use it: records as JSON, failures as exceptions.
//
// One object stands for the one platform context of the process. Connections are made when a database is
// first needed, so that a verb that touches one database does not depend on the others.
//
// What the platform logs during a call that fails is the reason for that; everything else it logs is a
// notice. Its own log was rejected: that form is for a daemon, and a program that reads our errors wants
// JSON.
#ifndef ACCESS_STORE_H
#define ACCESS_STORE_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "records/record_text.h"
#include "records/record_types.h"
#include "vx_thread.h"

namespace cg
{

struct Output;

class Store
{
public:
    // Checks the settings and creates the platform's context. Throws Failure. The output outlives this.
    explicit Store(const Output &output);

    // For what is asynchronous. Lives as long as this object.
    [[nodiscard]] vx_global_t *context() const { return context_.get(); }

    // Connects to a database and waits for it. Throws Failure when the store does not answer. The functions
    // below do it by themselves.
    void connect(int32_t db);

    // The record with a key (the fields of the index; those missing are 0 or empty), or nothing.
    std::optional<Json> read(const RecordType &type, int32_t db, const Json &key);

    // Every record of a type, sorted by key. Those that do not decode are not among them; the functions
    // for what was left out tell of them.
    std::vector<Json> scan(const RecordType &type, int32_t db);

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
    struct Finish {
        void operator()(vx_global_t *context) const noexcept { vx_global_finish(context); }
    };

    // What the platform logs comes here.
    class Listening
    {
    public:
        explicit Listening(Store &store);
        ~Listening();
        Listening(const Listening &) = delete;
        Listening &operator=(const Listening &) = delete;
    };

    void take_log(int32_t level, const std::string &text);
    int32_t call(const std::function<int32_t()> &platform_call);
    [[nodiscard]] std::string reason(int32_t result) const;
    void check(int32_t result, const char *what, const RecordType &type, int32_t db) const;

    const Output &output_;
    std::string where_;
    Listening listening_;
    bool in_call_ = false;
    std::vector<std::string> told_; // by the platform during the present or the last call
    std::set<std::string> noticed_;
    std::set<std::string> left_out_;
    std::unique_ptr<vx_global_t, Finish> context_;
    std::set<int32_t> connected_;
};

// A record with this key and nothing else.
Json record_with_key(const RecordType &type, const Json &key);

} // namespace cg

#endif
