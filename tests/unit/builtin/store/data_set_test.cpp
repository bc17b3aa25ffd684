// Whether the store that answers still holds what is known: without a server, from replies as bytes.
#include "store/data_set.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "store/codec/names.h"
#include "store/functions.h"
#include "wire_reader.h"

namespace
{

using store::DataSet;
using store::Reply;
using store::Revisions;
using store::Run;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using Answers = DataSet::Answers;

// A server run "p<process>:d", as the present one with a number in the list of runs.
struct Store {
    Answers now;

    explicit Store(const std::string &process, uint64_t number = 0)
    {
        now.server.process = process;
        now.server.descent = "d";
        now.id = "the data";
        now.present_run = number;
        if (number != 0) {
            now.runs[number] = Run{process + ":d", {}};
        }
    }
    Store &with(const std::string &type, uint64_t revision)
    {
        now.revisions[type] = revision;
        return *this;
    }
    Store &with_run(uint64_t number, const std::string &process, const Revisions &began_with)
    {
        now.runs[number] = Run{process + ":d", began_with};
        return *this;
    }
};

// Knows what run 1 of process "p1" held: 5 changes of cards and 3 of answers.
DataSet known_data()
{
    DataSet data;
    data.adopt(Store("p1", 1).now);
    data.learn("card", 5);
    data.learn("ack", 3);
    return data;
}

Store same_run()
{
    return Store("p1", 1).with("card", 5).with("ack", 3);
}

TEST(DataSetTest, NothingKnownIsTheSameAsAnything)
{
    const DataSet data;
    EXPECT_FALSE(data.is_known());
    EXPECT_TRUE(data.is_same(Store("p1").now));
    EXPECT_EQ(data.learned("card"), 0U);
}

TEST(DataSetTest, WhatWasLearnedHasToBeThere)
{
    const DataSet data = known_data();
    EXPECT_TRUE(data.is_known());
    EXPECT_EQ(data.id(), "the data");
    EXPECT_TRUE(data.is_same(same_run().now));
    EXPECT_TRUE(data.is_same(same_run().with("card", 6).now)) << "others have written";
    EXPECT_FALSE(data.is_same(same_run().with("card", 4).now));
    EXPECT_FALSE(data.is_same(same_run().with("ack", 2).now));
    Answers without = same_run().now;
    without.revisions.erase("ack");
    EXPECT_FALSE(data.is_same(without));
}

TEST(DataSetTest, ATypeWithoutAChangeAsksForNothing)
{
    DataSet data = known_data();
    data.learn("role", 0);
    EXPECT_TRUE(data.is_same(same_run().now));
}

TEST(DataSetTest, AnotherIdentityIsOtherData)
{
    const DataSet data = known_data();
    Answers other = same_run().now;
    other.id = "other data";
    EXPECT_FALSE(data.is_same(other));
    other.id = "";
    EXPECT_FALSE(data.is_same(other));
    DataSet nameless;
    Answers before_identity = Store("p1", 1).now;
    before_identity.id = "";
    nameless.adopt(before_identity);
    EXPECT_TRUE(nameless.is_same(other)) << "it had none, and has none";
    EXPECT_TRUE(nameless.is_same(same_run().now)) << "it was given one since";
}

TEST(DataSetTest, ALaterRunThatBeganWithAllThatIsKnownIsTheSame)
{
    const DataSet data = known_data();
    Store later("p2", 2);
    later.with("card", 9).with("ack", 9).with_run(1, "p1", {});
    EXPECT_TRUE(data.is_same(later.with_run(2, "p2", {{"card", 5}, {"ack", 3}}).now));
    EXPECT_TRUE(data.is_same(later.with_run(2, "p2", {{"card", 6}, {"ack", 3}}).now));
    EXPECT_FALSE(data.is_same(later.with_run(2, "p2", {{"card", 4}, {"ack", 3}}).now))
        << "and made up for it";
    EXPECT_FALSE(data.is_same(later.with_run(2, "p2", {{"card", 5}, {"ack", 2}}).now));
    EXPECT_FALSE(data.is_same(later.with_run(2, "p2", {{"card", 0}, {"ack", 3}}).now));
    EXPECT_TRUE(data.is_same(later.with_run(2, "p2", {{"card", 5}}).now))
        << "of a type that is not in its entry nothing was known";
}

TEST(DataSetTest, EveryRunInBetweenCounts)
{
    const DataSet data = known_data();
    const Revisions enough{{"card", 5}, {"ack", 3}};
    Store third("p3", 3);
    third.with("card", 9).with("ack", 9).with_run(1, "p1", {}).with_run(3, "p3", enough);
    EXPECT_FALSE(data.is_same(third.now)) << "run 2 has left no entry";
    EXPECT_TRUE(data.is_same(third.with_run(2, "p2", enough).now));
    EXPECT_FALSE(data.is_same(third.with_run(2, "p2", {{"card", 1}, {"ack", 3}}).now));
}

TEST(DataSetTest, AnOwnRunWhoseEntryWasLostIsHeldAgainstWhatHasItsNumber)
{
    const DataSet data = known_data();
    Store later("p2", 1); // the entry of p1 was not saved: p2 has got its number
    later.with("card", 9).with("ack", 9);
    EXPECT_FALSE(data.is_same(later.with_run(1, "p2", {{"card", 4}, {"ack", 3}}).now));
    EXPECT_TRUE(data.is_same(later.with_run(1, "p2", {{"card", 5}, {"ack", 3}}).now));
}

TEST(DataSetTest, ARunThatNobodyNotedIsJudgedByItsRevisions)
{
    const DataSet data = known_data();
    Store unnoted("p2");
    unnoted.with("card", 5).with("ack", 3).with_run(1, "p1", {});
    unnoted.now.present_run = 1; // nobody who may has met p2
    EXPECT_TRUE(data.is_same(unnoted.now));
    EXPECT_FALSE(data.is_same(unnoted.with("card", 4).now));

    DataSet from_unnoted;
    from_unnoted.adopt(unnoted.now);
    from_unnoted.learn("card", 9);
    Store noted("p3", 2);
    noted.with("card", 9).with("ack", 3).with_run(2, "p3", {{"card", 1}});
    EXPECT_TRUE(from_unnoted.is_same(noted.now)) << "its own run has no place in the list";
}

TEST(DataSetTest, WhatWasOnlyHeardCountsUnlessItIsLeftOut)
{
    DataSet data = known_data();
    data.hear("card", 7);
    data.hear("card", 6);
    EXPECT_FALSE(data.is_same(same_run().with("card", 6).now));
    EXPECT_TRUE(data.is_same(same_run().with("card", 7).now));
    EXPECT_TRUE(data.is_same(same_run().with("card", 6).now, false));
    EXPECT_EQ(data.learned("card"), 5U) << "anybody may publish of his own records";
    data.learn("card", 6); // the server's word is the truth about it
    EXPECT_TRUE(data.is_same(same_run().with("card", 6).now));
    EXPECT_EQ(data.learned("card"), 6U);
    data.learn("card", 4);
    EXPECT_EQ(data.learned("card"), 6U);
    data.hear("ack", 2);
    EXPECT_FALSE(data.is_same(same_run().with("card", 6).with("ack", 2).now)) << "3 were learned";
}

TEST(DataSetTest, AdoptedDataIsWhatCountsFromThen)
{
    DataSet data = known_data();
    data.hear("card", 90);
    Answers other = Store("p9", 4).with("card", 1).now;
    other.id = "other data";
    data.adopt(other);
    EXPECT_EQ(data.id(), "other data");
    EXPECT_EQ(data.learned("card"), 1U);
    EXPECT_EQ(data.learned("ack"), 0U);
    EXPECT_TRUE(data.is_same(other));
    EXPECT_FALSE(data.is_same(same_run().now));
}

// A server's replies, as bytes of the wire.
class RepliesTest : public testing::Test
{
protected:
    static std::string bulk(const std::string &text)
    {
        return '$' + std::to_string(text.size()) + "\r\n" + text + "\r\n";
    }
    static std::string list(const std::vector<std::string> &texts)
    {
        std::string wire = '*' + std::to_string(texts.size()) + "\r\n";
        for (const std::string &text : texts) {
            wire += bulk(text);
        }
        return wire;
    }

    // Reads the replies to a client's questions that knows `data`.
    bool read(const std::vector<std::string> &wires)
    {
        std::vector<Reply> replies;
        for (const std::string &wire : wires) {
            reader.feed(wire);
            replies.push_back(reader.next());
        }
        return data.read(replies, answers, why);
    }

    // To a client that knows nothing, with two of the replies given.
    bool read_with(const std::string &identity, const std::string &runs)
    {
        return read({server, replication, identity, runs});
    }

    const std::string server = bulk("redis_version:7.0.15\r\nrun_id:abc\r\n");
    const std::string replication = bulk("role:master\r\nmaster_replid:def\r\n");
    const std::string nothing = "$-1\r\n";
    const std::string no_list = "*0\r\n";
    wire_test::OurReader reader;
    DataSet data;
    Answers answers;
    std::string why;
};

TEST_F(RepliesTest, AreAskedForInTheirOrder)
{
    data.learn("b", 1);
    data.learn("a", 1);
    EXPECT_THAT(data.questions(),
                ElementsAre(ElementsAre("INFO", "server"), ElementsAre("INFO", "replication"),
                            ElementsAre("GET", "@set"), ElementsAre("HGETALL", "@runs"),
                            ElementsAre("GET", "@rev:a"), ElementsAre("GET", "@rev:b")));
}

TEST_F(RepliesTest, OfAnEmptyStoreSayNothing)
{
    ASSERT_TRUE(read_with(nothing, no_list)) << why;
    EXPECT_EQ(answers.server.run(), "abc:def");
    EXPECT_EQ(answers.id, "");
    EXPECT_EQ(answers.present_run, 0U);
    EXPECT_THAT(answers.runs, IsEmpty());
    EXPECT_EQ(answers.oddity, "");
    EXPECT_FALSE(store::is_registered(answers));
}

TEST_F(RepliesTest, BringTheIdentityTheRunsAndTheCounters)
{
    data.learn("a", 1);
    data.learn("b", 1);
    ASSERT_TRUE(
        read({server, replication, bulk("id"),
              list({"now", "2", "1", "x:y", "2", "abc:def a=12 b=0", "library", "sha"}), bulk("7"), nothing}))
        << why;
    EXPECT_EQ(answers.id, "id");
    EXPECT_EQ(answers.present_run, 2U);
    EXPECT_EQ(answers.library, "sha");
    EXPECT_EQ(answers.oddity, "");
    ASSERT_EQ(answers.runs.size(), 2U);
    EXPECT_EQ(answers.runs[1].identity, "x:y");
    EXPECT_THAT(answers.runs[1].began_with, IsEmpty());
    EXPECT_EQ(answers.runs[2].identity, "abc:def");
    EXPECT_THAT(answers.runs[2].began_with, ElementsAre(Pair("a", 12U), Pair("b", 0U)));
    EXPECT_THAT(answers.revisions, ElementsAre(Pair("a", 7U), Pair("b", 0U)));
}

TEST_F(RepliesTest, ThatAreNoAnswersAreRefusedWithAReason)
{
    EXPECT_FALSE(read({server, replication, nothing}));
    EXPECT_THAT(why, HasSubstr("something else"));
    EXPECT_FALSE(read({server, replication, nothing, no_list, nothing}));
    EXPECT_FALSE(read({bulk("x"), replication, nothing, no_list}));
    EXPECT_FALSE(read({server, replication, "-WRONGTYPE mine\r\n", no_list}));
    EXPECT_EQ(why, "@set: the store server answers: WRONGTYPE mine");
    data.learn("a", 1);
    for (const char *counter : {"x", "", "-1", "1x", "18446744073709551616"}) {
        EXPECT_FALSE(read({server, replication, nothing, no_list, bulk(counter)})) << counter;
        EXPECT_EQ(why, std::string("@rev:a holds no revision: ") + counter);
    }
    EXPECT_FALSE(read({server, replication, nothing, no_list, "-WRONGTYPE x\r\n"}));
}

TEST_F(RepliesTest, ThatSomebodySpoiltAreOdd)
{
    for (const std::string &identity : {std::string(), std::string("two words"), std::string("a\tb"),
                                        std::string("\x7f"), std::string(129, 'a')}) {
        ASSERT_TRUE(read_with(bulk(identity), no_list));
        EXPECT_EQ(answers.oddity, "@set holds " + identity);
    }
    for (const std::string &identity : {std::string("a"), std::string(128, '~'), std::string("!")}) {
        ASSERT_TRUE(read_with(bulk(identity), no_list));
        EXPECT_EQ(answers.oddity, "") << identity;
    }
    for (const auto &[name, value] : std::map<std::string, std::string>{
             {"now", "x"}, {"x", "r:d"}, {"1", "r:d a"}, {"2", "r:d a=x"}, {"3", "r:d a=1 b="}}) {
        ASSERT_TRUE(read_with(nothing, list({name, value})));
        EXPECT_EQ(answers.oddity,
                  std::string("@runs: the field ").append(name).append(" holds ").append(value));
    }
    ASSERT_TRUE(read_with(nothing, "-WRONGTYPE x\r\n"));
    EXPECT_EQ(answers.oddity, "@runs: WRONGTYPE x");
    ASSERT_TRUE(read_with(nothing, "-NOPERM x\r\n"));
    EXPECT_EQ(answers.oddity, "") << "who may not read it does without";
}

TEST_F(RepliesTest, SayWhetherTheRunIsRegisteredWithThePresentFunctions)
{
    const auto registered = [&](const std::string &identity, const std::string &run, const std::string &now,
                                const std::string &library) {
        EXPECT_TRUE(read_with(identity, list({"now", now, "3", run, "library", library}))) << why;
        return store::is_registered(answers);
    };
    const std::string &digest = store::library_digest();
    EXPECT_TRUE(registered(bulk("id"), "abc:def a=1", "3", digest));
    EXPECT_FALSE(registered(nothing, "abc:def a=1", "3", digest));
    EXPECT_FALSE(registered(bulk("id"), "abc:other a=1", "3", digest));
    EXPECT_FALSE(registered(bulk("id"), "abc:def a=1", "2", digest));
    EXPECT_FALSE(registered(bulk("id"), "abc:def a=1", "3", "another"));
}

TEST_F(RepliesTest, ARegistrationNamesTheRunAndTheCounterOfEachTypeOfRecord)
{
    ASSERT_TRUE(read_with(nothing, no_list));
    const store::Command command = store::registration(answers.server);
    ASSERT_GT(command.size(), 7U);
    const size_t keys = std::stoul(command[2]);
    ASSERT_EQ(command.size(), 3 + keys + 3 + (keys - 2));
    EXPECT_EQ(command[0], "FCALL");
    EXPECT_EQ(command[1], store::register_function);
    EXPECT_EQ(command[3], "@set");
    EXPECT_EQ(command[4], "@runs");
    const auto *given = &command[3 + keys];
    EXPECT_EQ(given[0], "abc:def");
    EXPECT_EQ(given[1].size(), 32U);
    EXPECT_EQ(given[1].find_first_not_of("0123456789abcdef"), std::string::npos);
    EXPECT_NE(given[1], store::registration(answers.server)[3 + keys + 1]) << "it is drawn";
    EXPECT_EQ(given[2], store::library_digest());
    for (size_t i = 2; i < keys; i++) {
        EXPECT_EQ(command[3 + i], store::counter_key(given[1 + i]));
    }
    EXPECT_THAT(command, testing::Contains("p_dev.card_info"));
    EXPECT_THAT(command, testing::Not(testing::Contains("p_dev.card_static_info")))
        << "it is a part of others";
    EXPECT_THAT(command, testing::Not(testing::Contains("p_dev.card_info_index")));
}

// What becomes of a group's server with these answers, as its sentinels see it.
std::string belief(const DataSet &data, const Store &store, bool is_settled, const std::string &seen_process)
{
    store::Master master;
    master.place.text = "here";
    master.is_agreed = is_settled;
    master.run_id = seen_process;
    std::string why;
    return data.is_believable(master, store.now, why) ? "believed" : why;
}

TEST(MasterBelief, AReplicaIsNone)
{
    Store replica("p1", 1);
    replica.now.server.is_replica = true;
    EXPECT_EQ(belief(known_data(), replica.with("card", 5).with("ack", 3), true, "p1"), "here: is no master");
    EXPECT_EQ(belief(DataSet(), replica, true, "p1"), "here: is no master");
}

TEST(MasterBelief, TheKnownDataIsBelievedWhateverTheSentinelsSay)
{
    EXPECT_EQ(belief(known_data(), Store("p1", 1).with("card", 5).with("ack", 3), false, ""), "believed");
    EXPECT_EQ(belief(known_data(), Store("p1", 1).with("card", 4).with("ack", 3), false, ""),
              "here: the sentinels do not agree on it yet")
        << "less than is known";
}

TEST(MasterBelief, DataOfTheSameIdentityIsBelievedOnceTheSentinelsAgree)
{
    EXPECT_EQ(belief(known_data(), Store("p1", 1).with("card", 4), true, "other"), "believed");
    EXPECT_EQ(belief(DataSet(), Store("p1", 1), true, ""), "believed") << "nothing is known";
    EXPECT_EQ(belief(DataSet(), Store("p1", 1), false, "p1"), "here: the sentinels do not agree on it yet");
}

TEST(MasterBelief, OtherDataIsBelievedOfTheProcessThatTheSentinelsSee)
{
    Store other("p2", 1);
    for (const char *id : {"", "other data"}) {
        other.now.id = id;
        EXPECT_EQ(belief(known_data(), other, true, "p1"),
                  "here: has other data, and the sentinels have not seen its start yet");
        EXPECT_EQ(belief(known_data(), other, true, "p2"), "believed");
        EXPECT_EQ(belief(known_data(), other, false, "p2"), "here: the sentinels do not agree on it yet");
    }
    other.now.id = "";
    EXPECT_EQ(belief(DataSet(), other, true, ""), "believed") << "an empty store, and nothing known";
}

} // namespace
