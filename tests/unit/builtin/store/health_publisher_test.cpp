// What is noted of this process, as the store has it.
#include "store/health_publisher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "loop/health.h"
#include "unit/builtin/store/client_fixture.h"

namespace
{

using platform::note_health;
using store_test::db;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

class HealthPublished : public store_test::ClientFixture
{
protected:
    std::string published() { return server.run(db, {"HGET", "@health", "publisher_test"}); }
    void serve_until_published(const std::string &number)
    {
        serve_until([&] { return published() == number; });
    }
};

TEST_F(HealthPublished, NumbersAreInTheStoreWithTheInstance)
{
    EXPECT_TRUE(client->publish_health(db));
    note_health("publisher_test", 41);
    serve_until_published("41");
    note_health("publisher_test", 42);
    serve_until_published("42");
    EXPECT_THAT(server.run(db, {"HGET", "@health", "instance"}), MatchesRegex("[0-9a-f]{8}"));
    EXPECT_THAT(notices, IsEmpty());
}

TEST_F(HealthPublished, WhatAnEarlierInstanceLeftIsDeletedAtOnce)
{
    server.run(db, {"HSET", "@health", "instance", "earlier", "descriptors_open", "9"});
    EXPECT_TRUE(client->publish_health(db));
    EXPECT_EQ(server.run(db, {"EXISTS", "@health"}), "0");
}

TEST_F(HealthPublished, ManyNotesAreOneWrite)
{
    EXPECT_TRUE(client->publish_health(db));
    server.run(db, {"CONFIG", "RESETSTAT"});
    for (uint64_t number = 1; number <= 1000; number++) {
        note_health("publisher_test", number);
    }
    serve_until_published("1000");
    EXPECT_THAT(server.run(db, {"INFO", "commandstats"}), HasSubstr("cmdstat_hset:calls=1,"));
}

TEST_F(HealthPublished, DataThatIsLostIsPublishedAgain)
{
    EXPECT_TRUE(client->publish_health(db));
    note_health("publisher_test", 7);
    serve_until_published("7");
    server.run(db, {"FLUSHALL"});
    server.run(db, {"CLIENT", "KILL", "TYPE", "normal"});
    serve_until_published("7");
}

TEST_F(HealthPublished, RefusalIsReportedOnceAndChangesNothingElse)
{
    server.run(db, {"ACL", "SETUSER", "default", "-hset", "-del"});
    EXPECT_TRUE(client->publish_health(db));
    note_health("publisher_test", 1);
    note_health("publisher_test", 2);
    EXPECT_TRUE(client->connect(db));
    EXPECT_EQ(notices.size(), 1U);
    EXPECT_THAT(notices.front(), HasSubstr("@health cannot be published: NOPERM"));
}

} // namespace
