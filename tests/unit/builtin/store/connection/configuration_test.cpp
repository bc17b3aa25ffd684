// What the settings say about the store, before there is a client.
#include "store/connection/configuration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "unit/builtin/store/scoped_setting.h"
#include "unit/support/folder.h"

namespace
{

using store_test::ScopedSetting;
using testing::HasSubstr;

TEST(Configuration, WhatIsWrongIsFoundBeforeThereIsAClient)
{
    EXPECT_EQ(store::configuration_problem({1}), "");
    {
        const ScopedSetting wrong("VX_MOM_DEADLINE_MS", "abc");
        testing::internal::CaptureStderr();
        EXPECT_EQ(store::configuration_problem({1}),
                  "VX_MOM_DEADLINE_MS=abc: not a whole number from 1 to 3600000");
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "to say it is the caller's";
    }
    {
        const ScopedSetting wrong("VX_MOM_AUTH_FILE", "/nonexistent/auth");
        EXPECT_THAT(store::configuration_problem({1}),
                    HasSubstr("VX_MOM_AUTH_FILE: /nonexistent/auth: No such file or directory"));
    }
    const ScopedSetting wrong("VX_MOM_ENDPOINT", "tcp:1");
    EXPECT_EQ(store::configuration_problem({1}),
              "endpoint 'tcp:1' is none, use unix:/path, tcp:host:port or sentinel:NAME@host:port,host:port");
}

// The place of a database. The settings have to be of use.
store::StorePlace place(int32_t db)
{
    std::string why;
    const auto found = store::configured_place(db, why);
    EXPECT_TRUE(found) << why;
    return found.value_or(store::StorePlace{});
}

TEST(Configuration, DatabasesWithOneEndpointAreOnOneServer)
{
    const ScopedSetting all("VX_MOM_ENDPOINT", "unix:/all");
    EXPECT_EQ(place(1), place(28));
    const ScopedSetting same("VX_MOM_ENDPOINT_28", "unix:/all");
    EXPECT_EQ(place(1), place(28)) << "whichever name says it";
    const ScopedSetting other("VX_MOM_ENDPOINT_33", "unix:/other");
    EXPECT_EQ(place(33).endpoint.text, "unix:/other");
    EXPECT_NE(place(1), place(33));
}

TEST(Configuration, ServersAreInTheOrderOfTheirLowestDatabases)
{
    const auto servers = [] {
        std::vector<std::pair<std::string, std::set<int32_t>>> found;
        for (const store::ConfiguredServer &server : store::configured_servers({1, 28, 33})) {
            found.emplace_back(server.endpoint, server.databases);
        }
        return found;
    };
    using Servers = decltype(servers());
    const ScopedSetting all("VX_MOM_ENDPOINT", "nonsense");
    EXPECT_EQ(servers(), (Servers{{"nonsense", {1, 28, 33}}})) << "what is wrong with it is another matter";
    const ScopedSetting user("VX_MOM_AUTH_FILE_33", "/nonexistent/auth");
    EXPECT_EQ(servers().size(), 1U) << "with any credentials, it is one server";
    const ScopedSetting other("VX_MOM_ENDPOINT_28", "unix:/other");
    EXPECT_EQ(servers(), (Servers{{"nonsense", {1, 33}}, {"unix:/other", {28}}}));
}

TEST(Configuration, AnotherUserIsAnotherPlace)
{
    const cg::Folder folder;
    const auto file = [&](const std::string &user) {
        std::string path = folder.path(user);
        std::ofstream(path) << "user " << user << "\npassword secret\n";
        EXPECT_EQ(chmod(path.c_str(), 0600), 0);
        return path;
    };
    const ScopedSetting all("VX_MOM_AUTH_FILE", file("gate"));
    EXPECT_EQ(place(1), place(28));
    const ScopedSetting other("VX_MOM_AUTH_FILE_28", file("guest"));
    EXPECT_EQ(place(1).credentials.user, "gate");
    EXPECT_EQ(place(28).credentials.user, "guest");
    EXPECT_NE(place(1), place(28));
}

TEST(Configuration, ReplicasAreThoseOfTheDatabase)
{
    const ScopedSetting all("VX_MOM_WAIT_REPLICAS", "1");
    const ScopedSetting none("VX_MOM_WAIT_REPLICAS_1", "0");
    EXPECT_EQ(store::configured_replicas(1).count, 0);
    EXPECT_EQ(store::configured_replicas(28).count, 1);
}

TEST(Configuration, AMistakeNamesTheSettingOfItsDatabase)
{
    {
        const ScopedSetting wrong("VX_MOM_ENDPOINT_28", "tcp:1");
        EXPECT_EQ(store::configuration_problem({1, 33}), "") << "no database of these";
        EXPECT_EQ(store::configuration_problem({1, 28, 33}),
                  "VX_MOM_ENDPOINT_28: endpoint 'tcp:1' is none, use unix:/path, tcp:host:port or "
                  "sentinel:NAME@host:port,host:port");
    }
    {
        const ScopedSetting wrong("VX_MOM_AUTH_FILE_33", "/nonexistent/auth");
        EXPECT_THAT(store::configuration_problem({1, 33}),
                    HasSubstr("VX_MOM_AUTH_FILE_33: /nonexistent/auth: No such file or directory"));
    }
    const ScopedSetting wrong("VX_MOM_WAIT_REPLICAS_1", "all");
    EXPECT_EQ(store::configuration_problem({1}),
              "VX_MOM_WAIT_REPLICAS_1=all: not a whole number from 0 to 100");
}

} // namespace
