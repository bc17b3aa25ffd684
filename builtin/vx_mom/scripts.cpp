// The server-side half of every write; see the header for why they check first and write afterwards.
//
// Traps: an error inside a script leaves what was written before it; a number turned to text by the script
// language loses digits beyond 14, hence '%.0f'; a read command on a key of the wrong type is itself the
// check of that type. The first write of a set is one that a full server may refuse, since a script that has
// begun to write is not refused any more; the first write of a deletion is one that it never refuses.
#include "scripts.h"

#include "payload.h"
#include "script_digest.h"

namespace vx_mom
{

namespace
{

constexpr const char *common = R"lua(
local function permit(...)
    if not redis.acl_check_cmd(...) then
        error({err = 'NOPERM no right to ' .. select(1, ...) .. ' ' .. select(2, ...)})
    end
end
local function check_counter(counter)
    local now = redis.call('GET', counter)
    if now and not (string.match(now, '^%d+$') and #now < 16) then
        error({err = 'WRONGTYPE ' .. counter .. ' holds no revision'})
    end
    permit('INCR', counter)
end
local function count(counter)
    return string.format('%.0f', redis.call('INCR', counter))
end
)lua";

constexpr const char *set_body = R"lua(
local record, counter, index, channel = KEYS[1], KEYS[2], KEYS[3], ARGV[1]
redis.call('HLEN', record)
redis.call('ZCARD', index)
check_counter(counter)
permit('DEL', record)
permit('HSET', record, 'rev', '0')
permit('ZADD', index, '0', record)
permit('PUBLISH', channel, '')
local fields = {}
for i = 2, #ARGV do
    fields[#fields + 1] = ARGV[i]
end
local revision = count(counter)
fields[#fields + 1] = 'rev'
fields[#fields + 1] = revision
redis.call('DEL', record)
redis.call('HSET', record, unpack(fields))
redis.call('ZADD', index, revision, record)
publish(channel, revision, '4', record, fields)
return revision
)lua";

constexpr const char *hmset_body = R"lua(
local record, counter, index, channel = KEYS[1], KEYS[2], KEYS[3], ARGV[1]
redis.call('HLEN', record)
redis.call('ZCARD', index)
check_counter(counter)
permit('HSET', record, 'rev', '0')
permit('HDEL', record, 'rev')
permit('HGETALL', record)
permit('ZADD', index, '0', record)
permit('PUBLISH', channel, '')
local last = 2 + tonumber(ARGV[2])
local fields, names = {}, {}
for i = 3, #ARGV do
    local list = i <= last and fields or names
    list[#list + 1] = ARGV[i]
end
local revision = count(counter)
fields[#fields + 1] = 'rev'
fields[#fields + 1] = revision
redis.call('HSET', record, unpack(fields))
if #names > 0 then
    redis.call('HDEL', record, unpack(names))
end
redis.call('ZADD', index, revision, record)
publish(channel, revision, '6', record, redis.call('HGETALL', record))
return revision
)lua";

constexpr const char *remove_function = R"lua(
local function check_removal(record, index, channel)
    redis.call('HLEN', record)
    redis.call('ZCARD', index)
    permit('HGETALL', record)
    permit('DEL', record)
    permit('ZREM', index, record)
    permit('PUBLISH', channel, '')
end
local function remove(record, counter, index, channel)
    local fields = redis.call('HGETALL', record)
    redis.call('DEL', record)
    redis.call('ZREM', index, record)
    local revision = count(counter)
    publish(channel, revision, '3', record, fields)
    return revision
end
)lua";

constexpr const char *del_body = R"lua(
local record, counter, index, channel = KEYS[1], KEYS[2], KEYS[3], ARGV[1]
check_counter(counter)
check_removal(record, index, channel)
if redis.call('EXISTS', record) == 0 and not redis.call('ZSCORE', index, record) then
    return '0'
end
return remove(record, counter, index, channel)
)lua";

constexpr const char *pdel_body = R"lua(
local counter, index, channel, prefix = KEYS[1], KEYS[2], ARGV[1], ARGV[2]
local exact = ARGV[3] == '1'
check_counter(counter)
permit('ZREM', index, prefix)
permit('PUBLISH', channel, '')
local found = {}
for _, record in ipairs(redis.call('ZRANGE', index, 0, -1)) do
    if record == prefix or not exact and string.sub(record, 1, #prefix) == prefix then
        check_removal(record, index, channel)
        found[#found + 1] = record
    end
end
local revision = '0'
for _, record in ipairs(found) do
    revision = remove(record, counter, index, channel)
end
return revision
)lua";

Script make_script(const std::string &body)
{
    return {body, sha1_hex(body)};
}

} // namespace

const Script &set_script()
{
    static const Script script = make_script(std::string(common) + publish_function + set_body);
    return script;
}

const Script &hmset_script()
{
    static const Script script = make_script(std::string(common) + publish_function + hmset_body);
    return script;
}

const Script &del_script()
{
    static const Script script =
        make_script(std::string(common) + publish_function + remove_function + del_body);
    return script;
}

const Script &pdel_script()
{
    static const Script script =
        make_script(std::string(common) + publish_function + remove_function + pdel_body);
    return script;
}

} // namespace vx_mom
