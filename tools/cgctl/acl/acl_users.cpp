// Who may do what in the store; see the header.
//
// What a function of the store's library does, it does with its caller's rights, and a call needs reading
// and writing of every key it declares: so a user who writes records has a selector for the call itself, and
// others for each command that the function runs. Traps: a plain channel right permits publishing as well as
// subscribing, so the two have selectors of their own; a new selector begins with the server's default for
// channels, which may be all of them, so each takes that away first.
#include "acl/acl_users.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "records/databases.h"
#include "records/record_types.h"
#include "store/codec/names.h"

namespace cg
{

namespace
{

using Texts = std::vector<std::string>;

void append(Texts &texts, const Texts &more)
{
    texts.insert(texts.end(), more.begin(), more.end());
}

// The types by what is done with them.
const Texts answers{"p_libpub.app_cg_card_check_ack"};
const Texts read_by_modules{"p_libpub.app_cg_card_check_info", "p_dev.card_info", "p_dev.dp_lib_grole"};
const Texts read_by_daemon{"p_dev.card_info", "p_dev.dp_lib_grole", "p_libpub.app_cg_card_check_ack",
                           "p_libpub.app_cg_card_bak_info"};
const Texts watched_by_daemon{"p_dev.card_info", "p_dev.dp_lib_grole", "p_libpub.app_cg_card_check_ack"};
const Texts written_by_daemon{"p_libpub.app_cg_card_check_info", "p_libpub.app_cg_mom_deny_check_result",
                              "p_libpub.app_cg_card_deny_check_result", "p_dev.dm_set_card_custom_st",
                              "s_dev.im_card_power_onoff"};
const Texts removed_by_daemon{"p_libpub.app_cg_card_check_ack", "p_libpub.app_cg_card_bak_info"};

// What every client does.
const Texts connection_commands{"+ping", "+select", "+info", "+client|setname"};
const Texts read_commands{"+get",    "+hget", "+hmget",    "+hgetall",   "+hlen",
                          "+exists", "+type", "+smembers", "+sismember", "+sscan"};
const Texts subscribe_commands{"+subscribe", "+psubscribe"};
const Texts unsubscribe_commands{"+unsubscribe", "+punsubscribe"};

// The pattern of the keys of a type's records.
std::string records_of(const std::string &name)
{
    return record_type(name).index == nullptr ? name : name + ":*";
}

std::string channels_of(const std::string &name)
{
    return "&" + store::channel_prefix(record_type(name).db) + records_of(name);
}

template <typename NameOf>
Texts each(const Texts &types, const char *mark, const NameOf &name_of)
{
    Texts texts;
    for (const std::string &type : types) {
        texts.push_back(mark + name_of(type));
    }
    return texts;
}

Texts channels_of(const Texts &types)
{
    return each(types, "", [](const std::string &type) { return channels_of(type); });
}

// Records, counters and indexes of these types, and what tells one data set from another, for reading.
Texts readable(const Texts &types)
{
    Texts keys = each(types, "%R~", records_of);
    append(keys, each(types, "%R~", store::counter_key));
    append(keys, each(types, "%R~", store::index_key));
    append(keys, {std::string("%R~") + store::data_set_key, std::string("%R~") + store::runs_key});
    return keys;
}

// The first selector of a user who connects, reads these types and waits for replicas.
AclSelector reader(const Texts &types)
{
    AclSelector selector{connection_commands, readable(types), {}};
    append(selector.commands, {"+wait"});
    append(selector.commands, unsubscribe_commands);
    append(selector.commands, read_commands);
    return selector;
}

AclUser daemon(const std::set<int32_t> &databases)
{
    const Texts written = types_in(databases, written_by_daemon);
    const Texts removed = types_in(databases, removed_by_daemon);
    Texts changed = written;
    append(changed, removed);
    AclUser user{daemon_user, AclRole::daemon, "", {reader(types_in(databases, read_by_daemon))}, databases};
    user.selectors.front().commands.emplace_back("+function|load");

    AclSelector calls{{"+fcall"}, each(changed, "~", records_of), {}};
    append(calls.keys, each(changed, "~", store::index_key));
    // The call that registers a server run declares the counters of all types; it only reads them.
    append(calls.keys, {"~" + store::counter_key("*"), std::string("~") + store::data_set_key,
                        std::string("~") + store::runs_key});
    user.selectors.push_back(std::move(calls));
    user.selectors.push_back({{"+get"}, {"%R~" + store::counter_key("*")}, {}});
    user.selectors.push_back({{"+set"}, {std::string("~") + store::data_set_key}, {}});
    if (databases.contains(card_database)) {
        user.selectors.push_back({{"+hset", "+del"}, {std::string("~") + store::health_key}, {}});
    }
    user.selectors.push_back({{"+hget", "+hset", "+hdel"}, {std::string("~") + store::runs_key}, {}});

    user.selectors.push_back(
        {{"+hget", "+hgetall", "+hlen", "+hset", "+hdel", "+del"}, each(written, "~", records_of), {}});
    user.selectors.push_back({{"+del"}, each(removed, "~", records_of), {}});
    user.selectors.push_back({{"+get", "+incr"}, each(changed, "~", store::counter_key), {}});
    user.selectors.push_back({{"+sadd", "+srem", "+sismember"}, each(written, "~", store::index_key), {}});
    user.selectors.push_back({{"+srem"}, each(removed, "~", store::index_key), {}});
    user.selectors.push_back({subscribe_commands, {}, channels_of(types_in(databases, watched_by_daemon))});
    user.selectors.push_back({{"+publish"}, {}, channels_of(changed)});
    // A right to nothing, where the types are on another server.
    std::erase_if(user.selectors, [](const AclSelector &selector) {
        return selector.keys.empty() && selector.channels.empty();
    });
    return user;
}

// A module answers under its own name. It may not remove anything from the index or the counter, so it cannot
// hide another's answer: an answer that is not in the index does not exist for readers.
AclUser module_user(const std::string &name, const std::set<int32_t> &databases)
{
    const std::string part = store::key_part(name);
    const std::string &type = answers.front();
    const std::string own = records_of(type) + ":" + part;
    const std::string counter = "~" + store::counter_key(type);
    const std::string index = "~" + store::index_key(type);
    AclUser user{module_user_prefix + part, AclRole::module, name, {reader(read_by_modules)}, databases};
    user.selectors.push_back({{"+fcall"}, {"~" + own, counter, index}, {}});
    user.selectors.push_back(
        {{"+hget", "+hgetall", "+hlen", "+exists", "+hset", "+hdel", "+del"}, {"~" + own}, {}});
    user.selectors.push_back({{"+get", "+incr"}, {counter}, {}});
    user.selectors.push_back({{"+sadd"}, {index}, {}});
    user.selectors.push_back({subscribe_commands, {}, channels_of(read_by_modules)});
    user.selectors.push_back({{"+publish"}, {}, {"&" + store::channel_prefix(record_type(type).db) + own}});
    return user;
}

// By the server's own category, so that whatever it can read is shown; without what can stop it for long.
AclUser watcher(const std::set<int32_t> &databases)
{
    AclSelector all{{"+@read", "-@dangerous"}, {"%R~*"}, {"&*"}};
    append(all.commands, connection_commands);
    append(all.commands, subscribe_commands);
    append(all.commands, unsubscribe_commands);
    return {watcher_user, AclRole::watcher, "", {all}, databases};
}

std::string rules(const AclSelector &selector)
{
    std::string text = "resetchannels";
    for (const Texts *part : {&selector.commands, &selector.keys, &selector.channels}) {
        for (const std::string &rule : *part) {
            text += ' ' + rule;
        }
    }
    return text;
}

} // namespace

std::vector<std::string> types_in(const std::set<int32_t> &databases, const std::vector<std::string> &types)
{
    std::vector<std::string> found;
    std::copy_if(types.begin(), types.end(), std::back_inserter(found),
                 [&](const std::string &type) { return databases.contains(record_type(type).db); });
    return found;
}

std::vector<AclUser> acl_users(const std::vector<std::string> &modules, const std::set<int32_t> &databases)
{
    std::vector<AclUser> users{daemon(databases)};
    if (databases.contains(card_database)) {
        for (const std::string &module : modules) {
            users.push_back(module_user(module, databases));
        }
    }
    users.push_back(watcher(databases));
    users.push_back(
        {administrator_user, AclRole::administrator, "", {{{"+@all"}, {"~*"}, {"&*"}}}, databases});
    users.push_back({default_user, AclRole::nobody, "", {{}}, databases});
    return users;
}

std::string acl_line(const AclUser &user, const std::optional<std::string> &password_sha256)
{
    std::string line = "user " + user.name + " reset ";
    line += password_sha256 ? "on #" + *password_sha256 : "off";
    bool is_first = true;
    for (const AclSelector &selector : user.selectors) {
        line += is_first ? " " + rules(selector) : " (" + rules(selector) + ")";
        is_first = false;
    }
    return line;
}

const char *role_name(AclRole role)
{
    switch (role) {
    case AclRole::daemon:
        return "daemon";
    case AclRole::module:
        return "module";
    case AclRole::watcher:
        return "watcher";
    case AclRole::administrator:
        return "administrator";
    default:
        return "nobody";
    }
}

} // namespace cg
