// The calls on records; see the header. Nothing of a reply is held while a callback runs: callbacks make
// calls themselves.
#include "store/operations.h"

#include <algorithm>
#include <iterator>

#include "log/text.h"
#include "loop/platform_context.h"
#include "store/codec/key.h"
#include "store/codec/names.h"
#include "store/functions.h"
#include "store/snapshot.h"

namespace store
{

namespace
{

// The beginning of a call about one record, with room for its fields.
Command begin_call(const Calls &calls, const char *function, const ProtobufCMessage &record,
                   const std::string &type, size_t fields)
{
    Command call;
    call.reserve(8 + 2 * fields);
    for (const char *word : {"FCALL", function, "3"}) {
        call.emplace_back(word);
    }
    call.push_back(encode_key(record));
    call.push_back(counter_key(type));
    call.push_back(index_key(type));
    call.push_back(calls.channels());
    return call;
}

void append_pairs(Fields &&fields, Command &call)
{
    for (auto &[name, value] : fields) {
        call.push_back(std::move(name));
        call.push_back(std::move(value));
    }
}

Status unstorable(const Calls &calls, const ProtobufCMessage &record)
{
    return calls.failure(invalid, "record type %s, or a field of it, cannot be stored",
                         record.descriptor->name);
}

} // namespace

Status set(Calls &calls, const ProtobufCMessage &record)
{
    Content content;
    if (!encode_record(record, content)) {
        return unstorable(calls, record);
    }
    const std::string type = record.descriptor->name;
    Command call = begin_call(calls, set_function, record, type, content.present.size());
    call.push_back(calls.new_mark());
    append_pairs(std::move(content.present), call);
    return calls.change(std::move(call), type);
}

Status hmset(Calls &calls, const ProtobufCMessage &record, const int32_t *fields, int32_t count)
{
    Content content;
    if (!encode_fields(record, fields, count, content)) {
        return unstorable(calls, record);
    }
    const std::string type = record.descriptor->name;
    Command call = begin_call(calls, hmset_function, record, type, static_cast<size_t>(count));
    call.push_back(calls.new_mark());
    call.push_back(std::to_string(2 * content.present.size()));
    append_pairs(std::move(content.present), call);
    std::move(content.absent.begin(), content.absent.end(), std::back_inserter(call));
    return calls.change(std::move(call), type);
}

Status del(Calls &calls, const ProtobufCMessage &record)
{
    const std::string type = record.descriptor->name;
    Command call = begin_call(calls, del_function, record, type, 0);
    call.push_back(calls.new_mark());
    return calls.change(std::move(call), type);
}

Status pdel(Calls &calls, const ProtobufCMessage &record, int32_t key_count)
{
    const std::string type = record.descriptor->name;
    const size_t fields = key_field_count(*record.descriptor);
    const auto given = static_cast<size_t>(key_count);
    if (given > fields) {
        return calls.failure(invalid, "%s has %zu key fields, not %d", type.c_str(), fields, key_count);
    }
    if (given == fields) {
        return del(calls, record); // one record: no need to look through the others
    }
    return calls.change({"FCALL", pdel_function, "2", counter_key(type), index_key(type), calls.channels(),
                         encode_key_prefix(record, given), calls.new_mark()},
                        type);
}

Status scan(Calls &calls, const ProtobufCMessageDescriptor &type, const std::function<void(Record &&)> &each,
            std::vector<LeftOut> &left_out)
{
    std::vector<StoredRecord> records;
    Snapshot snapshot;
    while (!snapshot.done) {
        if (Status status = read_slice(calls, type.name, snapshot); !status) {
            return status;
        }
        std::move(snapshot.records.begin(), snapshot.records.end(), std::back_inserter(records));
        std::move(snapshot.left_out.begin(), snapshot.left_out.end(), std::back_inserter(left_out));
    }
    sort_by_revision(records);
    for (StoredRecord &record : records) {
        std::string why;
        if (MessagePtr message = decode(calls, type, record.key, record.fields, why)) {
            const platform::Handling handling(
                calls.context(), {platform::Activity::Kind::record, record.revision, record.key});
            each({record.key, record.revision, std::move(record.mark), std::move(message)});
        } else {
            left_out.push_back({std::move(record.key), std::move(why)});
        }
    }
    return {};
}

Status exists(Calls &calls, const ProtobufCMessage &record, bool &found)
{
    const std::string key = encode_key(record);
    const Answer answer = calls.ask({{"HLEN", key}}, Purpose::read);
    if (!answer.status) {
        return answer.status;
    }
    const redisReply *reply = answer.replies[0].get();
    if (reply->type != REDIS_REPLY_INTEGER) {
        return unreadable(calls, key, reply);
    }
    found = reply->integer > 0;
    return {};
}

Status hgetall(Calls &calls, const ProtobufCMessage &record, std::optional<Record> &found)
{
    const std::string key = encode_key(record);
    Stored stored;
    bool is_there = false;
    Status status = read_record(calls, key, stored, is_there);
    if (!status || !is_there) {
        return status;
    }
    std::string why;
    MessagePtr message = decode(calls, *record.descriptor, key, stored.fields, why);
    if (message == nullptr) {
        return {bad_data, platform::visible("record " + key + " does not decode: " + why)};
    }
    found = Record{key, stored.revision, std::move(stored.mark), std::move(message)};
    return {};
}

} // namespace store
