// A hostile module, and a watcher who wants more, on a server that runs on the printed list: one attempt at a
// time, and after it nothing may have changed and nobody may have been told anything.
//
// Each attempt is also made by the administrator, for whom it must work: an attempt that is refused because
// of a slip in it would show nothing.
#include <gmock/gmock.h>

#include <algorithm>

#include "acl_attacks.h"
#include "unit/tools/cgctl/used_store.h"

namespace cg
{

namespace
{

using testing::IsEmpty;

class Hostile : public UsedStore
{
protected:
    // The steps with what only the server knows.
    [[nodiscard]] std::vector<Command> prepared(const Attempt &attempt) const
    {
        std::vector<Command> steps = attempt.steps;
        for (Command &step : steps) {
            for (std::string &argument : step) {
                if (argument == "<dump>") {
                    argument = run_as_admin(1, {"DUMP", other});
                } else if (argument == "<sha>") {
                    argument = run_as_admin(1, {"SCRIPT", "LOAD", "return redis.call('DEL', KEYS[1])"});
                } else if (argument == "<sha_ro>") {
                    argument = run_as_admin(1, {"SCRIPT", "LOAD", "return redis.call('HGETALL', KEYS[1])"});
                }
            }
        }
        return steps;
    }

    void expect_refused(const std::string &user, const Attempt &attempt,
                        const std::vector<Command> &steps) const
    {
        Listener listener = listen();
        const std::string before = state();
        const std::vector<std::string> refusals = replies(user, attempt.database, steps);
        EXPECT_EQ(state(), before);
        EXPECT_THAT(listener.heard(), IsEmpty());
        if (attempt.control == Control::works) {
            EXPECT_TRUE(std::any_of(refusals.begin(), refusals.end(), is_refusal))
                << testing::PrintToString(refusals);
        }
    }

    void expect_to_work_for_administrator(const Attempt &attempt, const std::vector<Command> &steps) const
    {
        for (const std::string &reply : replies("app_cg-admin", attempt.database, steps)) {
            EXPECT_FALSE(reply.starts_with("(error)")) << "no attempt at anything: " << reply;
        }
    }

    // For lack of rights, or of a login.
    static bool is_refusal(const std::string &reply)
    {
        return reply.starts_with("(error) ") &&
               (reply.find("NOPERM") != std::string::npos || reply.find("ACL failure") != std::string::npos ||
                reply.find("can't run this command") != std::string::npos ||
                reply.find("can't access") != std::string::npos ||
                reply.find("NOAUTH") != std::string::npos || reply.find("WRONGPASS") != std::string::npos);
    }
};

class HostileModule : public Hostile, public testing::WithParamInterface<Attempt>
{
};

Attempts all_attempts()
{
    Attempts all;
    for (const Assault &assault : assaults()) {
        for (Attempt attempt : assault.attempts) {
            attempt.name.insert(0, assault.name + '_');
            all.push_back(std::move(attempt));
        }
    }
    return all;
}

class HostileWatcher : public Hostile, public testing::WithParamInterface<Assault>
{
};

// A watcher may read everything and listen to everything.
bool is_for_watchers(const Attempt &attempt)
{
    static const std::vector<std::string> names{
        "ReadAnother",        "ReadAllAnswers",      "DumpAnother", "ListenToAnswers", "ListenToAnother",
        "ListenToEverything", "ListenToEveryChange", "Scan",        "Randomkey",       "Dbsize"};
    return std::find(names.begin(), names.end(), attempt.name) != names.end();
}

std::vector<Assault> assaults_of_a_watcher()
{
    std::vector<Assault> all = assaults();
    for (Assault &assault : all) {
        std::erase_if(assault.attempts, is_for_watchers);
    }
    all.push_back({"WhatAModuleMayDo",
                   {{"WriteOwnThroughFunction", {write_of(own)}},
                    {"WriteOwn", {{"HSET", own, "6", "9"}}},
                    {"DeleteOwn", {{"DEL", own}}},
                    {"Count", {{"INCR", counter}}},
                    {"AddToIndex", {{"SADD", ack_index, "x"}}},
                    {"PublishOwn", {{"PUBLISH", prefix + own, "x"}}}}});
    return all;
}

} // namespace

TEST_P(HostileModule, IsRefused)
{
    start_used();
    const std::vector<Command> steps = prepared(GetParam());
    expect_refused("module-m1", GetParam(), steps);
    if (GetParam().control == Control::works) {
        expect_to_work_for_administrator(GetParam(), steps);
    }
}

INSTANTIATE_TEST_SUITE_P(Attempts, HostileModule, testing::ValuesIn(all_attempts()),
                         [](const auto &made) { return made.param.name; });

TEST_P(HostileWatcher, IsRefused)
{
    start_used();
    for (const Attempt &attempt : GetParam().attempts) {
        SCOPED_TRACE(attempt.name);
        expect_refused("app_cg-watch", attempt, prepared(attempt));
    }
}

INSTANTIATE_TEST_SUITE_P(Attempts, HostileWatcher, testing::ValuesIn(assaults_of_a_watcher()),
                         [](const auto &made) { return made.param.name; });

} // namespace cg
