// Reading a type's records in slices; see the header.
#include "snapshot.h"

#include <charconv>

#include "database.h"
#include "payload.h"
#include "platform_log.h"

namespace vx_mom
{

namespace
{

constexpr size_t slice_size = 128;

struct IndexEntry {
    std::string key;
    uint64_t revision = 0;
};

bool parse_whole(const std::string &text, uint64_t &number)
{
    const char *end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end;
}

int32_t unexpected(const char *what, const std::string &key, const redisReply *reply)
{
    PLATFORM_LOG(platform::log_error, "%s %s: the store answers: %s", what, key.c_str(),
                 text_of(reply).c_str());
    return refused;
}

int32_t read_index(Database &database, const std::string &type, uint64_t after, uint64_t fence,
                   std::vector<IndexEntry> &entries)
{
    const std::string key = index_key(type);
    const Answer answer = database.ask({{"ZRANGEBYSCORE", key, "(" + std::to_string(after),
                                         fence == no_fence ? "+inf" : std::to_string(fence), "WITHSCORES",
                                         "LIMIT", "0", std::to_string(slice_size)}},
                                       Purpose::read);
    if (answer.error != ok) {
        return answer.error;
    }
    const redisReply *reply = answer.replies[0].get();
    if (reply->type != REDIS_REPLY_ARRAY) {
        return unexpected("index", key, reply);
    }
    for (size_t i = 0; i + 1 < reply->elements; i += 2) {
        IndexEntry entry{text_of(reply->element[i]), 0};
        if (!parse_whole(text_of(reply->element[i + 1]), entry.revision)) {
            return unexpected("score in index", key, reply->element[i + 1]);
        }
        entries.push_back(std::move(entry));
    }
    return ok;
}

bool fields_of(const redisReply *reply, Fields &fields)
{
    if (reply->type != REDIS_REPLY_ARRAY) {
        return false;
    }
    for (size_t i = 0; i + 1 < reply->elements; i += 2) {
        fields.emplace_back(text_of(reply->element[i]), text_of(reply->element[i + 1]));
    }
    return true;
}

void take_record(IndexEntry &entry, const redisReply *reply, Slice &slice)
{
    StoredRecord record{std::move(entry.key), 0, {}};
    if (!fields_of(reply, record.fields)) {
        PLATFORM_LOG(platform::log_error, "record %s left out: %s", record.key.c_str(),
                     text_of(reply).c_str());
        slice.left_out.push_back(std::move(record.key));
        return;
    }
    if (record.fields.empty()) {
        return; // deleted since
    }
    if (!revision_of(record.fields, entry.revision, record.revision)) {
        PLATFORM_LOG(platform::log_error, "record %s left out: its revision is no number",
                     record.key.c_str());
        slice.left_out.push_back(std::move(record.key));
        return;
    }
    slice.records.push_back(std::move(record));
}

} // namespace

int32_t read_slice(Database &database, const std::string &type, uint64_t &after, uint64_t fence,
                   const std::function<bool(const std::string &, uint64_t)> &wanted, Slice &slice)
{
    std::vector<IndexEntry> entries;
    const int32_t error = read_index(database, type, after, fence, entries);
    if (error != ok) {
        return error;
    }
    slice.done = entries.size() < slice_size;
    if (!entries.empty()) {
        after = entries.back().revision;
    }
    std::erase_if(entries, [&](const IndexEntry &entry) { return !wanted(entry.key, entry.revision); });
    if (entries.empty()) {
        return ok;
    }
    std::vector<Command> commands;
    commands.reserve(entries.size());
    for (const IndexEntry &entry : entries) {
        commands.push_back({"HGETALL", entry.key});
    }
    const Answer answer = database.ask(commands, Purpose::read);
    for (size_t i = 0; i < answer.replies.size(); i++) {
        take_record(entries[i], answer.replies[i].get(), slice);
    }
    return answer.error;
}

int32_t read_revision(Database &database, const std::string &type, uint64_t &revision)
{
    const std::string key = counter_key(type);
    const Answer answer = database.ask({{"GET", key}}, Purpose::read);
    if (answer.error != ok) {
        return answer.error;
    }
    const redisReply *reply = answer.replies[0].get();
    revision = 0;
    if (reply->type != REDIS_REPLY_NIL && !parse_whole(text_of(reply), revision)) {
        return unexpected("revision", key, reply);
    }
    database.learn(type, revision);
    return ok;
}

int32_t read_record(Database &database, const std::string &key, Fields &fields)
{
    const Answer answer = database.ask({{"HGETALL", key}}, Purpose::read);
    if (answer.error != ok) {
        return answer.error;
    }
    if (!fields_of(answer.replies[0].get(), fields)) {
        (void)unexpected("record", key, answer.replies[0].get());
        return is_error(answer.replies[0].get(), "WRONGTYPE") ? bad_data : refused;
    }
    return ok;
}

MessagePtr decode_or_log(const ProtobufCMessageDescriptor &type, const std::string &key, const Fields &fields)
{
    std::string why;
    MessagePtr message = decode_record(type, key, fields, why);
    if (message == nullptr) {
        PLATFORM_LOG(platform::log_error, "record %s does not decode: %s", key.c_str(), why.c_str());
    }
    return message;
}

} // namespace vx_mom
