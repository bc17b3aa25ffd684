// A store with users that is in use.
#include "used_store.h"

#include "store/codec/names.h"
#include "store/functions.h"
#include "unit/tools/cgctl/acl/acl_attacks.h"

namespace cg
{

void UsedStore::start_used()
{
    start({"m1", "m2"});
    store::Inspection admin = connect("app_cg-admin", 1);
    const auto tell = [&](const Command &command) {
        const auto reply = admin.ask(command, std::chrono::seconds(20));
        ASSERT_TRUE(reply && !reply->is_error()) << command[0] << ": " << (reply ? reply->text : "");
    };
    ASSERT_EQ(run_as("app_cg", 1, {"FUNCTION", "LOAD", "REPLACE", store::library_code()}), "vx_mom2");
    tell({"FUNCTION", "LOAD",
          "#!lua name=site\n"
          "redis.register_function('wipe', function(k, a) return redis.call('DEL', k[1]) end)\n"
          "redis.register_function('wipe_undeclared', function(k, a) return redis.call('DEL', a[1]) end)\n"
          "redis.register_function{function_name = 'look', flags = {'no-writes'}, "
          "callback = function(k, a) return redis.call('HGETALL', k[1]) end}"});
    for (const auto &[database, key] : foreign_records()) {
        tell({"SELECT", std::to_string(database)});
        tell(write_of(key, "@chg:" + std::to_string(database) + ":"));
    }
    for (const int database : {1, 28, 33}) {
        tell({"SELECT", std::to_string(database)});
        tell(call("register", {"@set", "@runs", counter}, {"run", "id", store::library_digest(), ack}));
        tell(write_of(own, "@chg:" + std::to_string(database) + ":"));
        tell(write_of(other, "@chg:" + std::to_string(database) + ":"));
    }
}

Listener UsedStore::listen() const
{
    return {connect("app_cg-admin", 0), connect("app_cg-admin", 0)};
}

std::vector<std::string> UsedStore::replies(const std::string &user, int database,
                                            const std::vector<Command> &steps) const
{
    store::Inspection server = connect(user, database);
    std::vector<std::string> texts;
    for (const Command &step : steps) {
        const auto reply = server.ask(step, std::chrono::seconds(20));
        texts.push_back(reply ? reply_text(*reply) : "(error) " + server.problem());
    }
    return texts;
}

} // namespace cg
