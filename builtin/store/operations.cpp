// The calls on records; see the header. Nothing of a reply is held while a callback runs: callbacks make
// calls themselves.
#include "store/operations.h"

#include <algorithm>
#include <iterator>

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

int32_t unstorable(const Calls &calls, const ProtobufCMessage &record)
{
    LOG_TO(calls.messages(), platform::log_error, "record type %s, or a field of it, cannot be stored",
           record.descriptor->name);
    return invalid;
}

} // namespace

int32_t set(Calls &calls, const ProtobufCMessage &record)
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

int32_t hmset(Calls &calls, const ProtobufCMessage &record, const int32_t *fields, int32_t count)
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

int32_t del(Calls &calls, const ProtobufCMessage &record)
{
    const std::string type = record.descriptor->name;
    Command call = begin_call(calls, del_function, record, type, 0);
    call.push_back(calls.new_mark());
    return calls.change(std::move(call), type);
}

int32_t pdel(Calls &calls, const ProtobufCMessage &record, int32_t key_count)
{
    const std::string type = record.descriptor->name;
    const size_t fields = key_field_count(*record.descriptor);
    const auto given = static_cast<size_t>(key_count);
    if (given > fields) {
        LOG_TO(calls.messages(), platform::log_error, "%s has %zu key fields, not %d", type.c_str(), fields,
               key_count);
        return invalid;
    }
    if (given == fields) {
        return del(calls, record); // one record: no need to look through the others
    }
    return calls.change({"FCALL", pdel_function, "2", counter_key(type), index_key(type), calls.channels(),
                         encode_key_prefix(record, given), calls.new_mark()},
                        type);
}

int32_t scan(Calls &calls, const ProtobufCMessageDescriptor &type, const std::function<void(Record &&)> &each,
             std::vector<LeftOut> &left_out)
{
    std::vector<StoredRecord> records;
    Snapshot snapshot;
    while (!snapshot.done) {
        const int32_t error = read_slice(calls, type.name, snapshot);
        if (error != ok) {
            return error;
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
    return ok;
}

int32_t exists(Calls &calls, const ProtobufCMessage &record)
{
    const std::string key = encode_key(record);
    const Answer answer = calls.ask({{"HLEN", key}}, Purpose::read);
    if (answer.error != ok) {
        return answer.error;
    }
    const redisReply *reply = answer.replies[0].get();
    if (reply->type != REDIS_REPLY_INTEGER) {
        LOG_TO(calls.messages(), platform::log_error, "record %s: the store answers: %s", key.c_str(),
               text_of(reply).c_str());
        return is_error(reply, "WRONGTYPE") ? bad_data : refused;
    }
    return reply->integer > 0 ? 1 : 0;
}

int32_t hgetall(Calls &calls, const ProtobufCMessage &record, std::optional<Record> &found)
{
    const std::string key = encode_key(record);
    Stored stored;
    bool is_there = false;
    const int32_t error = read_record(calls, key, stored, is_there);
    if (error != ok || !is_there) {
        return error;
    }
    std::string why;
    MessagePtr message = decode(calls, *record.descriptor, key, stored.fields, why);
    if (message == nullptr) {
        if (!calls.messages().go_to_log()) {
            LOG_TO(calls.messages(), platform::log_error, "record %s does not decode: %s", key.c_str(),
                   why.c_str());
        }
        return bad_data;
    }
    found = Record{key, stored.revision, std::move(stored.mark), std::move(message)};
    return ok;
}

} // namespace store
