// The function library by which every change is one atomic step on the server.
//
// Each function checks everything that could refuse it first (type of the keys, rights of the user), since
// functions do not roll back; then writes, counts, indexes and publishes. A transaction of plain commands
// measures slightly faster, but cannot refuse as a whole and cannot publish content that it has to read
// first. Functions, and not scripts sent along: the server keeps them over a restart and hands them to its
// replicas, and a user needs no right to run code of his own.
//
// Traps: an error inside a function leaves what was written before it; a number turned to text by the script
// language loses digits beyond 14, hence '%.0f'; a read command on a key of the wrong type is itself the
// check of that type. A full server refuses functions at their start but for those that may free memory.
#include "digest.h"
#include "names.h"

namespace vx_mom
{

namespace
{

constexpr const char *library = R"lua(#!lua name=vx_mom1
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

local function check_write(record, counter, index, channel)
    redis.call('SCARD', index)
    check_counter(counter)
    permit('HSET', record, 'rev', '0')
    permit('SADD', index, record)
    permit('PUBLISH', channel, '')
end

local function count(counter)
    return string.format('%.0f', redis.call('INCR', counter))
end

-- What a record holds besides the fields is for those who write.
local function content(record)
    local fields = {}
    local all = redis.call('HGETALL', record)
    for i = 1, #all, 2 do
        if all[i] ~= 'rev' and all[i] ~= 'by' then
            fields[#fields + 1] = all[i]
            fields[#fields + 1] = all[i + 1]
        end
    end
    return fields
end

local function publish(channel, revision, command, fields)
    local parts = {#revision, ':', revision, #command, ':', command}
    local number = string.format('%d', #fields / 2)
    parts[7], parts[8], parts[9] = #number, ':', number
    for _, text in ipairs(fields) do
        local n = #parts
        parts[n + 1], parts[n + 2], parts[n + 3] = #text, ':', text
    end
    redis.call('PUBLISH', channel, table.concat(parts))
end

-- A write that is repeated because its answer was lost is recognised by what the first one left.
local function is_repeated(record, token)
    return redis.call('HGET', record, 'by') == token and token ~= ''
end

-- More than `most` would fail in the middle: so many values have no room on the script's stack.
local function check_pairs(count, available)
    local most = 4000
    if not count or count % 2 ~= 0 or count < 0 or count > available or available > most then
        error({err = 'ERR a field without a value, or too many'})
    end
end

-- The arguments from `first` to `last`, then what belongs to the writing itself.
local function with_mark(args, first, last, revision, token)
    local stored = {unpack(args, first, last)}
    local n = #stored
    stored[n + 1], stored[n + 2] = 'rev', revision
    if token ~= '' then
        stored[n + 3], stored[n + 4] = 'by', token
    end
    return stored
end

local function set(keys, args)
    local record, counter, index = keys[1], keys[2], keys[3]
    local channel, token = args[1] .. record, args[2]
    check_pairs(#args - 2, #args - 2)
    if is_repeated(record, token) then
        return redis.call('HGET', record, 'rev')
    end
    check_write(record, counter, index, channel)
    permit('DEL', record)
    local revision = count(counter)
    redis.call('DEL', record)
    redis.call('HSET', record, unpack(with_mark(args, 3, #args, revision, token)))
    redis.call('SADD', index, record)
    publish(channel, revision, '4', {unpack(args, 3)})
    return revision
end

local function hmset(keys, args)
    local record, counter, index = keys[1], keys[2], keys[3]
    local channel, token = args[1] .. record, args[2]
    local count_of_texts = tonumber(args[3])
    check_pairs(count_of_texts, #args - 3)
    if is_repeated(record, token) then
        return redis.call('HGET', record, 'rev')
    end
    check_write(record, counter, index, channel)
    permit('HDEL', record, 'rev')
    permit('HGETALL', record)
    local last = 3 + count_of_texts
    local revision = count(counter)
    redis.call('HSET', record, unpack(with_mark(args, 4, last, revision, token)))
    if last < #args then
        redis.call('HDEL', record, unpack(args, last + 1))
    end
    redis.call('SADD', index, record)
    publish(channel, revision, '6', content(record))
    return revision
end

local function check_removal(record, index, channel)
    redis.call('HLEN', record)
    permit('HGETALL', record)
    permit('DEL', record)
    permit('SREM', index, record)
    permit('PUBLISH', channel, '')
end

local function remove(record, counter, index, channel)
    local fields = content(record)
    redis.call('DEL', record)
    redis.call('SREM', index, record)
    local revision = count(counter)
    publish(channel, revision, '3', fields)
    return revision
end

local function del(keys, args)
    local record, counter, index = keys[1], keys[2], keys[3]
    local channel = args[1] .. record
    local is_listed = redis.call('SISMEMBER', index, record) == 1
    check_counter(counter)
    check_removal(record, index, channel)
    if redis.call('HLEN', record) == 0 and not is_listed then
        return '0'
    end
    return remove(record, counter, index, channel)
end

-- The records' keys are found through the index, so they cannot be declared.
local function pdel(keys, args)
    local counter, index, prefix, beginning = keys[1], keys[2], args[1], args[2]
    local found = {}
    for _, record in ipairs(redis.call('SMEMBERS', index)) do
        if string.sub(record, 1, #beginning) == beginning then
            found[#found + 1] = record
        end
    end
    check_counter(counter)
    permit('SREM', index, beginning)
    permit('PUBLISH', prefix .. beginning, '')
    for _, record in ipairs(found) do
        check_removal(record, index, prefix .. record)
    end
    table.sort(found)
    local revision = '0'
    for _, record in ipairs(found) do
        revision = remove(record, counter, index, prefix .. record)
    end
    return revision
end

-- Notes that another server process, or another line of descent of its data, serves this database now, and
-- the counters that it begins with: whoever knew more knows that something is lost.
local function register(keys, args)
    local set_key, runs_key = keys[1], keys[2]
    local run, random, digest = args[1], args[2], args[3]
    permit('SET', set_key, random)
    permit('HSET', runs_key, 'now', '0')
    permit('HDEL', runs_key, '0')
    if (redis.call('GET', set_key) or '') == '' then
        redis.call('SET', set_key, random)
    end
    local now = redis.call('HGET', runs_key, 'now') or '0'
    now = string.match(now, '^%d+$') and #now < 16 and tonumber(now) or 0
    local present = redis.call('HGET', runs_key, string.format('%d', now))
    if not present or string.match(present, '^%S*') ~= run then
        now = now + 1
        local entry = {run}
        for i = 3, #keys do
            entry[#entry + 1] = args[i + 1] .. '=' .. (redis.call('GET', keys[i]) or '0')
        end
        redis.call('HSET', runs_key, 'now', string.format('%d', now))
        redis.call('HSET', runs_key, string.format('%d', now), table.concat(entry, ' '))
        redis.call('HDEL', runs_key, string.format('%d', now - 32))
    end
    redis.call('HSET', runs_key, 'library', digest)
    return now
end

redis.register_function('vx_mom1_set', set)
redis.register_function('vx_mom1_hmset', hmset)
redis.register_function{function_name = 'vx_mom1_del', callback = del, flags = {'allow-oom'}}
redis.register_function{function_name = 'vx_mom1_pdel', callback = pdel, flags = {'allow-oom'}}
redis.register_function('vx_mom1_register', register)
)lua";

} // namespace

const std::string &library_code()
{
    static const std::string code = library;
    return code;
}

const std::string &library_digest()
{
    static const std::string digest = sha1_hex(library);
    return digest;
}

} // namespace vx_mom
