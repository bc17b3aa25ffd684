#!lua name=vx_mom1
-- redis.call, looked up once: a library that is being loaded has none yet.
local call

local function permit(...)
    if not redis.acl_check_cmd(...) then
        error({err = 'NOPERM no right to ' .. select(1, ...) .. ' ' .. select(2, ...)})
    end
end

local function refuse_counter(counter)
    error({err = 'WRONGTYPE ' .. counter .. ' holds no revision'})
end

-- Whether so many more can be counted. Not asked for a record that is there: listing that changes nothing, so
-- counting may be the check.
local function check_counter(counter, more)
    local now = call('GET', counter) or '0'
    if now ~= '0' and not string.match(now, '^[1-9]%d*$') or #now > 15 or tonumber(now) + more >= 1e15 then
        refuse_counter(counter)
    end
    permit('INCR', counter)
end

-- After all else that could refuse: it is refused by itself, for its type, its text, or for want of the right. (A
-- number that is none of ours, below 1 or too long, has moved by then, and nothing else.)
local function count(counter)
    local now = redis.pcall('INCR', counter)
    if type(now) == 'number' and now > 0 and now < 1e15 then
        return string.format('%d', now)
    end
    if type(now) == 'table' and not (string.find(now.err, '^WRONGTYPE') or string.find(now.err, 'not an integer') or
                                     string.find(now.err, 'overflow')) then
        error(now)
    end
    refuse_counter(counter)
end

-- All that could refuse a write, and the counting. Listing the record is refused by itself too.
local function begin_write(record, held, counter, index, channel)
    if held == 0 then
        check_counter(counter, 1)
    end
    permit('HSET', record, 'rev', '0')
    permit('PUBLISH', channel, '')
    call('SADD', index, record)
    return count(counter)
end

-- The beginnings of items, by the items' lengths.
local lengths = {}

local function beginning_of(text)
    local known = lengths[#text]
    if not known then
        known = #text .. ':'
        if #text < 512 then
            lengths[#text] = known
        end
    end
    return known
end

-- Items of the names and values from `first` to `last`, and how many fields they are; what a record holds besides its
-- fields is for those who write. Joined by pairs, which costs half of a table and table.concat; but long texts would be
-- copied again and again.
local function items(texts, first, last)
    local done, joined, fields = nil, '', 0
    for i = first, last, 2 do
        local name, value = texts[i], texts[i + 1]
        if name ~= 'rev' and name ~= 'by' then
            joined = joined .. (lengths[#name] or beginning_of(name)) .. name ..
                (lengths[#value] or beginning_of(value)) .. value
            fields = fields + 1
            if #joined > 4096 then
                done = done or {}
                done[#done + 1] = joined
                joined = ''
            end
        end
    end
    if done then
        return table.concat(done) .. joined, fields
    end
    return joined, fields
end

-- Numbers of fields as items, by themselves.
local numbers = {}

local function item_of_number(number)
    local text = string.format('%d', number)
    local item = beginning_of(text) .. text
    if number < 512 then
        numbers[number] = item
    end
    return item
end

local function publish(channel, revision, command, texts, first, last)
    local content, fields = items(texts, first, last)
    call('PUBLISH', channel, beginning_of(revision) .. revision .. '1:' .. command ..
        (numbers[fields] or item_of_number(fields)) .. content)
end

-- More than `most` would fail in the middle: so many values have no room on the script's stack.
local function check_pairs(count, available)
    local most = 4000
    if not count or count % 2 ~= 0 or count < 0 or count > available or available > most then
        error({err = 'ERR a field without a value, or too many'})
    end
end

-- Puts what belongs to the writing itself behind the arguments up to `last`; returns where it ends.
local function mark(args, last, revision, token)
    args[last + 1], args[last + 2] = 'rev', revision
    if token == '' then
        return last + 2
    end
    args[last + 3], args[last + 4] = 'by', token
    return last + 4
end

-- How many fields the record holds, and the revision of this very write if it has been done: one that is repeated
-- because its answer was lost is recognised by what the first one left.
local function look(record, token)
    local held = call('HLEN', record)
    if held > 0 and token ~= '' and call('HGET', record, 'by') == token then
        return held, call('HGET', record, 'rev')
    end
    return held
end

-- Written over what is there, and only where that leaves fields of before made anew. The numbers tell that as long as
-- no field is named twice, for which the writer is responsible.
local function set(keys, args)
    call = call or redis.call
    local record, channel, token, last = keys[1], args[1] .. keys[1], args[2], #args
    check_pairs(last - 2, last - 2)
    local held, done = look(record, token)
    if done then
        return done
    end
    if held > 0 then
        permit('DEL', record)
    end
    local revision = begin_write(record, held, keys[2], keys[3], channel)
    local marked = mark(args, last, revision, token)
    local added = call('HSET', record, unpack(args, 3, marked))
    if held + added ~= (marked - 2) / 2 then
        call('DEL', record)
        call('HSET', record, unpack(args, 3, marked))
    end
    publish(channel, revision, '4', args, 3, last)
    return revision
end

local function hmset(keys, args)
    call = call or redis.call
    local record, channel, token, given = keys[1], args[1] .. keys[1], args[2], #args
    local count_of_texts = tonumber(args[3])
    check_pairs(count_of_texts, given - 3)
    local held, done = look(record, token)
    if done then
        return done
    end
    if token == '' then
        given = given + 1
        args[given] = 'by' -- the mark of a write before would vouch for what this one changes
    end
    local last = 3 + count_of_texts
    local removes = held > 0 and last < given
    permit('HGETALL', record)
    if removes then
        permit('HDEL', record, 'rev')
    end
    local revision = begin_write(record, held, keys[2], keys[3], channel)
    if removes then
        held = held - call('HDEL', record, unpack(args, last + 1))
    end
    local marked = mark(args, last, revision, token)
    -- Where it holds no more than was given, there is no need to read that back.
    if held + call('HSET', record, unpack(args, 4, marked)) == (marked - 3) / 2 then
        publish(channel, revision, '6', args, 4, last)
    else
        local all = call('HGETALL', record)
        publish(channel, revision, '6', all, 1, #all)
    end
    return revision
end

local function check_removal(record, index, channel)
    permit('DEL', record)
    permit('SREM', index, record)
    permit('PUBLISH', channel, '')
end

local function remove(record, counter, index, channel, all)
    local revision = count(counter)
    call('DEL', record)
    call('SREM', index, record)
    publish(channel, revision, '3', all, 1, #all)
    return revision
end

local function del(keys, args)
    call = call or redis.call
    local record, counter, index = keys[1], keys[2], keys[3]
    local channel = args[1] .. record
    local is_listed = call('SISMEMBER', index, record) == 1
    local all = call('HGETALL', record)
    check_removal(record, index, channel)
    if not all[1] and not is_listed then
        return '0'
    end
    return remove(record, counter, index, channel, all)
end

-- The records' keys are found through the index, so they cannot be declared.
local function pdel(keys, args)
    call = call or redis.call
    local counter, index, prefix, beginning = keys[1], keys[2], args[1], args[2]
    local found = {}
    for _, record in ipairs(call('SMEMBERS', index)) do
        if string.sub(record, 1, #beginning) == beginning then
            found[#found + 1] = record
        end
    end
    check_counter(counter, #found)
    permit('SREM', index, beginning)
    permit('PUBLISH', prefix .. beginning, '')
    for _, record in ipairs(found) do
        call('HLEN', record)
        permit('HGETALL', record)
        check_removal(record, index, prefix .. record)
    end
    table.sort(found)
    local revision = '0'
    for _, record in ipairs(found) do
        revision = remove(record, counter, index, prefix .. record, call('HGETALL', record))
    end
    return revision
end

-- Notes that another server process, or another line of descent of its data, serves this database now, and
-- the counters that it begins with: whoever knew more knows that something is lost.
local function register(keys, args)
    call = call or redis.call
    local set_key, runs_key = keys[1], keys[2]
    local run, random, digest = args[1], args[2], args[3]
    permit('SET', set_key, random)
    permit('HSET', runs_key, 'now', '0')
    permit('HDEL', runs_key, '0')
    if (call('GET', set_key) or '') == '' then
        call('SET', set_key, random)
    end
    local now = call('HGET', runs_key, 'now') or '0'
    now = string.match(now, '^%d+$') and #now < 16 and tonumber(now) or 0
    local present = call('HGET', runs_key, string.format('%d', now))
    if not present or string.match(present, '^%S*') ~= run then
        now = now + 1
        local entry = {run}
        for i = 3, #keys do
            entry[#entry + 1] = args[i + 1] .. '=' .. (call('GET', keys[i]) or '0')
        end
        call('HSET', runs_key, 'now', string.format('%d', now))
        call('HSET', runs_key, string.format('%d', now), table.concat(entry, ' '))
        call('HDEL', runs_key, string.format('%d', now - 32))
    end
    call('HSET', runs_key, 'library', digest)
    return now
end

redis.register_function('vx_mom1_set', set)
redis.register_function('vx_mom1_hmset', hmset)
redis.register_function{function_name = 'vx_mom1_del', callback = del, flags = {'allow-oom'}}
redis.register_function{function_name = 'vx_mom1_pdel', callback = pdel, flags = {'allow-oom'}}
redis.register_function('vx_mom1_register', register)
