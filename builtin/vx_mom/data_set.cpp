// The identity of a database's data; see the header.
#include "data_set.h"

#include <algorithm>
#include <charconv>
#include <random>

#include "payload.h"

namespace vx_mom
{

namespace
{

bool read_revision(const redisReply *reply, uint64_t &revision)
{
    revision = 0;
    if (reply == nullptr || reply->type == REDIS_REPLY_NIL) {
        return reply != nullptr;
    }
    const std::string text = text_of(reply);
    const char *end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, revision);
    return !is_error(reply) && result.ec == std::errc() && result.ptr == end;
}

} // namespace

std::vector<Command> DataSet::questions() const
{
    std::vector<Command> commands{{"GET", data_set_key}};
    for (const auto &known : revisions_) {
        commands.push_back({"GET", counter_key(known.first)});
    }
    return commands;
}

bool DataSet::read(const std::vector<Reply> &replies, Answers &answers) const
{
    if (replies.size() != revisions_.size() + 1 || is_error(replies[0].get())) {
        return false;
    }
    answers.id = text_of(replies[0].get());
    size_t at = 1;
    for (const auto &known : revisions_) {
        if (!read_revision(replies[at++].get(), answers.revisions[known.first])) {
            return false;
        }
    }
    return true;
}

bool DataSet::is_same(const Answers &answers) const
{
    if (answers.id != id_) {
        return false;
    }
    return std::all_of(revisions_.begin(), revisions_.end(), [&](const auto &known) {
        const auto found = answers.revisions.find(known.first);
        return found != answers.revisions.end() && found->second >= known.second;
    });
}

void DataSet::adopt(const Answers &answers)
{
    known_ = true;
    id_ = answers.id;
    revisions_ = answers.revisions;
}

void DataSet::learn(const std::string &type, uint64_t revision)
{
    uint64_t &highest = revisions_[type];
    highest = std::max(highest, revision);
}

Command name_data_set()
{
    std::random_device random;
    std::string text;
    for (int i = 0; i < 32; i++) {
        text += "0123456789abcdef"[random() % 16];
    }
    return {"SET", data_set_key, text, "NX"};
}

} // namespace vx_mom
