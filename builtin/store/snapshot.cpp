// Reading a type's records in slices; see the header.
#include "store/snapshot.h"

#include <algorithm>

#include "store/calls.h"
#include "store/codec/names.h"
#include "store/codec/number.h"

namespace store
{

namespace
{

constexpr size_t slice_size = 128;

Status unexpected(const Calls &calls, const char *what, const std::string &key, const redisReply *reply)
{
    return calls.failure(refused, "%s %s: the store answers: %s", what, key.c_str(), text_of(reply).c_str());
}

// The members of the index that come next, without those met already.
Status read_index(Calls &calls, const std::string &type, Snapshot &snapshot, std::vector<std::string> &keys)
{
    const std::string index = index_key(type);
    const Answer answer =
        calls.ask({{"SSCAN", index, snapshot.cursor, "COUNT", std::to_string(slice_size)}}, Purpose::read);
    if (!answer.status) {
        return answer.status;
    }
    const redisReply *reply = answer.replies[0].get();
    if (reply->type != REDIS_REPLY_ARRAY || reply->elements != 2 ||
        reply->element[1]->type != REDIS_REPLY_ARRAY) {
        return unexpected(calls, "index", index, reply);
    }
    snapshot.cursor = text_of(reply->element[0]);
    snapshot.done = snapshot.cursor == "0";
    const redisReply *members = reply->element[1];
    for (size_t i = 0; i < members->elements; i++) {
        std::string key = text_of(members->element[i]);
        if (snapshot.present.count(key) == 0) {
            keys.push_back(std::move(key));
        }
    }
    return {};
}

// The content of a hash. False when the revision is no number.
bool read_content(const redisReply *reply, Stored &record)
{
    record.fields.reserve(std::max(reply->elements / 2, writing_fields) - writing_fields);
    bool is_sound = true;
    for (size_t i = 0; i + 1 < reply->elements; i += 2) {
        is_sound = add_field(view_of(reply->element[i]), view_of(reply->element[i + 1]), record) && is_sound;
    }
    return is_sound;
}

void read_member(const Calls &calls, std::string &&key, const redisReply *reply, Snapshot &snapshot)
{
    platform::Messages &messages = calls.messages();
    if (reply->type != REDIS_REPLY_ARRAY) {
        const std::string why = text_of(reply);
        if (messages.go_to_log()) {
            LOG_TO(messages, platform::log_error, "record %s left out: %s", key.c_str(), why.c_str());
        }
        snapshot.present.insert(key);
        snapshot.left_out.push_back({std::move(key), why});
        return;
    }
    if (reply->elements == 0 || !snapshot.present.insert(key).second) {
        return; // deleted since, or met already
    }
    StoredRecord record{{}, std::move(key)};
    if (!read_content(reply, record)) {
        if (messages.go_to_log()) {
            LOG_TO(messages, platform::log_error, "record %s left out: its revision is no number",
                   record.key.c_str());
        }
        snapshot.left_out.push_back({std::move(record.key), "its revision is no number"});
        return;
    }
    snapshot.records.push_back(std::move(record));
}

} // namespace

Status read_slice(Calls &calls, const std::string &type, Snapshot &snapshot)
{
    snapshot.records.clear();
    snapshot.left_out.clear();
    std::vector<std::string> keys;
    Status status = read_index(calls, type, snapshot, keys);
    if (!status || keys.empty()) {
        return status;
    }
    std::vector<Command> commands;
    commands.reserve(keys.size());
    for (std::string &key : keys) {
        commands.emplace_back(2, "HGETALL").back() = std::move(key);
    }
    const Answer answer = calls.ask(commands, Purpose::read);
    for (size_t i = 0; i < answer.replies.size(); i++) {
        read_member(calls, std::move(commands[i].back()), answer.replies[i].get(), snapshot);
    }
    return answer.status;
}

// Numbers are sorted and each record is moved once: moving records about is dearer than comparing them.
void sort_by_revision(std::vector<StoredRecord> &records)
{
    std::vector<std::pair<uint64_t, size_t>> order;
    order.reserve(records.size());
    for (const StoredRecord &record : records) {
        order.emplace_back(record.revision, order.size());
    }
    std::sort(order.begin(), order.end());
    std::vector<StoredRecord> sorted;
    sorted.reserve(records.size());
    for (const auto &[revision, at] : order) {
        sorted.push_back(std::move(records[at]));
    }
    records = std::move(sorted);
}

Status read_revision(Calls &calls, const std::string &type, uint64_t &revision)
{
    const std::string key = counter_key(type);
    const Answer answer = calls.ask({{"GET", key}}, Purpose::read);
    if (!answer.status) {
        return answer.status;
    }
    const redisReply *reply = answer.replies[0].get();
    revision = 0;
    if (reply->type != REDIS_REPLY_NIL && !parse_number(text_of(reply), revision)) {
        return unexpected(calls, "revision", key, reply);
    }
    calls.learn(type, revision);
    return {};
}

Status read_record(Calls &calls, const std::string &key, Stored &record, bool &is_there)
{
    const Answer answer = calls.ask({{"HGETALL", key}}, Purpose::read);
    if (!answer.status) {
        return answer.status;
    }
    const redisReply *reply = answer.replies[0].get();
    if (reply->type != REDIS_REPLY_ARRAY) {
        return unreadable(calls, key, reply);
    }
    is_there = reply->elements != 0;
    (void)read_content(reply, record);
    return {};
}

Status unreadable(const Calls &calls, const std::string &key, const redisReply *reply)
{
    const int32_t code = is_error(reply, "WRONGTYPE") ? bad_data : refused;
    return calls.failure(code, "record %s: the store answers: %s", key.c_str(), text_of(reply).c_str());
}

MessagePtr decode(const Calls &calls, const ProtobufCMessageDescriptor &type, const std::string &key,
                  const Fields &fields, std::string &why)
{
    MessagePtr message = decode_record(type, key, fields, why);
    if (message == nullptr && calls.messages().go_to_log()) {
        LOG_TO(calls.messages(), platform::log_error, "record %s does not decode: %s", key.c_str(),
               why.c_str());
    }
    return message;
}

} // namespace store
