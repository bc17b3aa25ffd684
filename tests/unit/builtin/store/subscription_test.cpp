// Subscriptions: the snapshot, what happens while it is taken, live changes, losses and starting over.
#include "store/subscription.h"

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <random>

#include "store_client_fixture.h"

namespace
{

using store_test::Ack;
using store_test::Card;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr int32_t db = 1;
constexpr const char *key = "p_dev.card_info:0:0:1:0";
constexpr const char *index_set = "@idx:p_dev.card_info";

class SubscriptionTest : public store_test::StoreClientTest
{
protected:
    // Forks a process that makes random changes to cards with a client of its own.
    static pid_t start_writer(unsigned seed, int changes);
    static bool all_ended(std::vector<pid_t> &children);
    // Takes a notification into the belief: position and the rest of each card.
    void believe(const std::string &what);
    // What a scan finds, in the same form.
    std::map<std::string, std::string> stored();

    std::map<std::string, std::string> belief;
};

bool change_at_random(vx_global_t *global, std::mt19937 &random)
{
    const Card card(0, static_cast<int32_t>(random() % 40), static_cast<int32_t>(random() % 3),
                    static_cast<int32_t>(random() % 1000));
    const int32_t fields[] = {6};
    switch (random() % 8) {
    case 0:
        return vx_mom_del(global, 1, card.message(), nullptr, nullptr) == 0;
    case 1:
        return vx_mom_pdel(global, 1, card.message(), 3, nullptr, nullptr) == 0;
    case 2:
    case 3:
        return vx_mom_hmset(global, 1, card.message(), fields, 1, nullptr, nullptr) == 0;
    default:
        return vx_mom_set_sync(global, 1, card.message()) == 0;
    }
}

pid_t SubscriptionTest::start_writer(unsigned seed, int changes)
{
    const pid_t child = fork();
    if (child == 0) {
        vx_global_t *global = vx_global_init("writer", nullptr);
        std::mt19937 random(seed);
        bool good = true;
        for (int i = 0; i < changes; i++) {
            good = change_at_random(global, random) && good;
        }
        vx_global_finish(global);
        _exit(good ? 0 : 1);
    }
    return child;
}

bool SubscriptionTest::all_ended(std::vector<pid_t> &children)
{
    while (!children.empty()) {
        int status = 0;
        if (waitpid(children.back(), &status, WNOHANG) == 0) {
            return false;
        }
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "a writer failed";
        children.pop_back();
    }
    return true;
}

void SubscriptionTest::believe(const std::string &what)
{
    const size_t position = what.find(' ');
    if (position == std::string::npos) {
        return;
    }
    const size_t end = what.find(' ', position + 1);
    const std::string card = what.substr(position + 1, end - position - 1);
    if (what[0] == '3') {
        EXPECT_EQ(belief.erase(card), 1U) << what << " of a card that was never told of";
    } else {
        belief[card] = what.substr(end);
    }
}

std::map<std::string, std::string> SubscriptionTest::stored()
{
    const std::map<std::string, std::string> believed = std::move(belief);
    belief.clear();
    const Card pattern(0, 0, 0);
    EXPECT_EQ(vx_mom_scan_sync(global.get(), 1, pattern.message(), 0, note_card, this), 0);
    std::map<std::string, std::string> found = std::move(belief);
    belief = believed;
    return found;
}

TEST_F(SubscriptionTest, ExistingCardsComeFirstThenTheConfirmationThenChanges)
{
    ASSERT_EQ(vx_mom_set_sync(global.get(), 1, Card(0, 1, 0, 7).message()), 0);
    ASSERT_EQ(vx_mom_set_sync(global.get(), 1, Card(0, 2, 0, 8).message()), 0);
    connect(1);
    ASSERT_EQ(subscribe_cards(), 0);
    ASSERT_TRUE(run_until_event("29"));

    ASSERT_EQ(vx_mom_set_sync(global.get(), 1, Card(0, 3, 0, 9).message()), 0);
    const int32_t fields[] = {6};
    ASSERT_EQ(vx_mom_hmset(global.get(), 1, Card(0, 1, 0, 5).message(), fields, 1, nullptr, nullptr), 0);
    ASSERT_EQ(vx_mom_del(global.get(), 1, Card(0, 2, 0).message(), nullptr, nullptr), 0);

    ASSERT_TRUE(run_until_event("3 0/2/0 type 8"));
    EXPECT_THAT(events, ElementsAre("4 0/1/0 type 7", "4 0/2/0 type 8", "29", "4 0/3/0 type 9",
                                    "6 0/1/0 type 5", "3 0/2/0 type 8"));
}

TEST_F(SubscriptionTest, AnEmptyStoreIsConfirmedAtOnce)
{
    connect(1);
    ASSERT_EQ(subscribe_cards(), 0);
    EXPECT_THAT(events, IsEmpty()) << "only the loop calls back";
    ASSERT_TRUE(run_until_event("29"));
    EXPECT_THAT(events, ElementsAre("29"));
}

TEST_F(SubscriptionTest, ADeletionCarriesTheRecordAsItLastWas)
{
    char name[] = "LC-8";
    PDev__CardStaticInfo details;
    p_dev__card_static_info__init(&details);
    details.name = name;
    Card card(0, 1, 0, 7);
    card.record.static_info = &details;
    ASSERT_EQ(vx_mom_set_sync(global.get(), 1, card.message()), 0);
    subscribe_and_forget();
    ASSERT_EQ(erase(1), 0);
    ASSERT_TRUE(run_until_event("3 0/1/0 type 7 of LC-8"));
}

TEST_F(SubscriptionTest, APatternDeletionIsToldRecordByRecord)
{
    ASSERT_EQ(write(1, 1), 0);
    ASSERT_EQ(write(2, 2), 0);
    subscribe_and_forget();
    const Card all(0, 0, 0);
    ASSERT_EQ(vx_mom_pdel(global.get(), 1, all.message(), 2, nullptr, nullptr), 0);
    ASSERT_TRUE(run_until_event("3 0/2/0 type 2"));
    EXPECT_THAT(events, ElementsAre("3 0/1/0 type 1", "3 0/2/0 type 2"));
}

TEST_F(SubscriptionTest, OtherDatabasesAndTypesAreNotHeard)
{
    subscribe_and_forget();
    ASSERT_EQ(vx_mom_set_sync(global.get(), 28, Card(0, 1, 0, 1).message()), 0);
    ASSERT_EQ(vx_mom_set_sync(global.get(), 1, Ack(0, 1, 0, "alarm").message()), 0);
    ASSERT_EQ(write(2, 1), 0);
    ASSERT_TRUE(run_until_event("4 0/2/0 type 1"));
    EXPECT_THAT(events, ElementsAre("4 0/2/0 type 1"));
}

TEST_F(SubscriptionTest, ARepeatedSubscriptionStartsOver)
{
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    ASSERT_EQ(subscribe_cards(), 0);
    ASSERT_EQ(subscribe_cards(), 0);
    ASSERT_TRUE(run_until_event("29"));
    ASSERT_EQ(write(2, 1), 0);
    ASSERT_TRUE(run_until_event("4 0/2/0 type 1"));
    EXPECT_THAT(events, ElementsAre("4 0/1/0 type 1", "29", "4 0/2/0 type 1"));
}

TEST_F(SubscriptionTest, ARepeatedSubscriptionTellsFirstWhatVanished)
{
    ASSERT_EQ(write(1, 1), 0);
    ASSERT_EQ(write(2, 2), 0);
    subscribe_and_forget();
    ASSERT_EQ(erase(1), 0);
    ASSERT_EQ(subscribe_cards(), 0);
    ASSERT_TRUE(run_until_event("29"));
    EXPECT_THAT(events, ElementsAre("3 0/1/0 type 1", "4 0/2/0 type 2", "29"));
}

TEST_F(SubscriptionTest, ASubscriptionMayBeReplacedInItsOwnCallback)
{
    for (int32_t slot = 0; slot < 200; slot++) {
        ASSERT_EQ(write(slot, 1), 0);
    }
    connect(1);
    on_event = [&](const std::string &what) {
        if (what == "4 0/150/0 type 1" && count(what) == 1) {
            EXPECT_EQ(subscribe_cards(), 0);
        }
    };
    ASSERT_EQ(subscribe_cards(), 0);
    ASSERT_TRUE(run_until_event("29"));
    EXPECT_EQ(events.size(), 151 + 200 + 1);
    EXPECT_EQ(count("29"), 1);
}

TEST_F(SubscriptionTest, ChangesDuringTheSnapshotComeBeforeTheConfirmationAndOnce)
{
    for (int32_t slot = 0; slot < 300; slot++) {
        ASSERT_EQ(write(slot, 1), 0);
    }
    connect(1);
    on_event = [&](const std::string &what) {
        if (what == "4 0/10/0 type 1") {
            EXPECT_EQ(write(5, 2), 0);   // delivered already: comes again
            EXPECT_EQ(write(290, 2), 0); // read, but not delivered yet: comes as it was, and then as it is
            EXPECT_EQ(write(500, 2), 0); // new
            const int32_t fields[] = {6};
            EXPECT_EQ(
                vx_mom_hmset(global.get(), 1, Card(0, 291, 0, 3).message(), fields, 1, nullptr, nullptr), 0);
            EXPECT_EQ(erase(6), 0); // delivered already
        }
    };
    ASSERT_EQ(subscribe_cards(), 0);
    ASSERT_TRUE(run_until_event("29"));
    EXPECT_EQ(count("4 0/290/0 type 1"), 1);
    EXPECT_EQ(count("4 0/291/0 type 1"), 1);
    const std::vector<std::string> last(events.end() - 6, events.end());
    EXPECT_THAT(last, ElementsAre("4 0/5/0 type 2", "4 0/290/0 type 2", "4 0/500/0 type 2",
                                  "6 0/291/0 type 3", "3 0/6/0 type 1", "29"));
    EXPECT_EQ(events.size(), 300 + 6);
}

TEST_F(SubscriptionTest, ACallbackMayScanAndDelete)
{
    ASSERT_EQ(write(1, 1), 0);
    connect(1);
    on_event = [&](const std::string &what) {
        if (what == "29") {
            const Card pattern(0, 0, 0);
            EXPECT_EQ(vx_mom_scan_sync(global.get(), 1, pattern.message(), 0, note_card, this), 0);
            EXPECT_EQ(erase(1), 0);
        }
    };
    ASSERT_EQ(subscribe_cards(), 0);
    ASSERT_TRUE(run_until_event("3 0/1/0 type 1"));
    EXPECT_THAT(events, ElementsAre("4 0/1/0 type 1", "29", "1 0/1/0 type 1", "3 0/1/0 type 1"));
}

TEST_F(SubscriptionTest, AMissingChangeLeadsToStartingOver)
{
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    ASSERT_EQ(server.run(1, {"INCR", "@rev:p_dev.card_info"}), "2");
    ASSERT_EQ(write(2, 1), 0);
    ASSERT_TRUE(run_until_event("4 0/2/0 type 1"));
    ASSERT_EQ(write(3, 1), 0);
    ASSERT_TRUE(run_until_event("4 0/3/0 type 1"));
    EXPECT_THAT(events, ElementsAre("4 0/2/0 type 1", "4 0/3/0 type 1")) << "differences only";
}

TEST_F(SubscriptionTest, WhatIsNoChangeIsPassedOver)
{
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    for (const char *forged :
         {"", "nonsense", "1:1", "1:21:31:x1:0", "1:2", "-1:", "99999999999999999999:1"}) {
        ASSERT_EQ(server.run(1, {"PUBLISH", "@chg:1:p_dev.card_info:0:0:7:0", forged}), "1");
    }
    ASSERT_EQ(write(2, 1), 0);
    ASSERT_TRUE(run_until_event("4 0/2/0 type 1"));
    EXPECT_THAT(events, ElementsAre("4 0/2/0 type 1"));
    EXPECT_THAT(log_text(), testing::HasSubstr("p_dev.card_info:0:0:7:0"));
}

TEST_F(SubscriptionTest, AChangeOfARecordThatCannotBeIsPassedOver)
{
    subscribe_and_forget();
    ASSERT_EQ(server.run(1, {"PUBLISH", "@chg:1:p_dev.card_info:0:0:7:0:8", "1:11:41:0"}), "1");
    ASSERT_TRUE(run_until([&] { return log_text().find("p_dev.card_info:0:0:7:0:8") != std::string::npos; }));
    EXPECT_THAT(events, testing::IsEmpty());
}

// A user may publish what he likes about his own records; the truth comes out with the next real change.
TEST_F(SubscriptionTest, APublishedChangeThatWasNeverMadeIsTakenBack)
{
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    ASSERT_EQ(server.run(1, {"PUBLISH", "@chg:1:p_dev.card_info:0:0:7:0", "1:21:41:11:61:5"}), "1");
    ASSERT_TRUE(run_until_event("4 0/7/0 type 5"));
    ASSERT_EQ(write(2, 1), 0);
    ASSERT_TRUE(run_until_event("4 0/2/0 type 1"));
    EXPECT_THAT(events, ElementsAre("4 0/7/0 type 5", "3 0/7/0 type 5", "4 0/2/0 type 1"));
    EXPECT_THAT(reports, IsEmpty()) << "the data is the same";
}

TEST_F(SubscriptionTest, ManyPublishedChangesThatWereNeverMadeAreNoticedWithoutARealOne)
{
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    for (int revision = 2; revision < 80; revision++) {
        const std::string text = std::to_string(revision);
        ASSERT_EQ(server.run(1, {"PUBLISH", "@chg:1:p_dev.card_info:0:0:7:0",
                                 std::to_string(text.size()) + ":" + text + "1:41:11:61:5"}),
                  "1");
    }
    ASSERT_TRUE(run_until_event("3 0/7/0 type 5"));
    EXPECT_THAT(log_text(), testing::HasSubstr("changes came that the server has not counted"));
    ASSERT_EQ(write(2, 1), 0);
    ASSERT_TRUE(run_until_event("4 0/2/0 type 1"));
    EXPECT_THAT(reports, IsEmpty());
}

TEST_F(SubscriptionTest, ASubscriptionRepeatedOnReturnStartsOver)
{
    ASSERT_EQ(write(1, 1), 0);
    ASSERT_EQ(write(2, 1), 0);
    subscribe_and_forget();
    on_return = [&](int32_t) { EXPECT_EQ(subscribe_cards(), 0); };
    cut_loop_connections();
    ASSERT_EQ(vx_mom_del(global.get(), 1, Card(0, 1, 0).message(), nullptr, nullptr), 0);
    ASSERT_TRUE(run_until_event("29"));
    EXPECT_THAT(events, ElementsAre("3 0/1/0 type 1", "4 0/2/0 type 1", "29"));
}

TEST_F(SubscriptionTest, AUserWithoutTheRightToListenIsToldInTheLogAndNotRetriedForever)
{
    connect(db);
    ASSERT_EQ(server.run(0, {"ACL", "SETUSER", "default", "resetchannels"}), "OK");
    ASSERT_EQ(subscribe_cards(), 0);
    EXPECT_TRUE(run_until([&] { return log_text().find("refused: NOPERM") != std::string::npos; }));
    EXPECT_THAT(reports, ElementsAre("up")) << "the connection stands";
    ASSERT_EQ(server.run(0, {"ACL", "SETUSER", "default", "allchannels"}), "OK");
    ASSERT_EQ(subscribe_cards(), 0);
    EXPECT_TRUE(run_until_event("29"));
}

TEST_F(SubscriptionTest, ARefusedSubscriptionIsTriedAgainByItself)
{
    connect(db);
    ASSERT_EQ(server.run(db, {"SET", index_set, "a text"}), "OK");
    ASSERT_EQ(subscribe_cards(), 0);
    ASSERT_TRUE(run_until([&] { return log_text().find("refused") != std::string::npos; }));
    ASSERT_EQ(server.run(db, {"DEL", index_set}), "1");
    EXPECT_TRUE(run_until_event("29"));
    ASSERT_EQ(write(1, 1), 0);
    EXPECT_TRUE(run_until_event("4 0/1/0 type 1"));
}

TEST_F(SubscriptionTest, AChangeThatDoesNotDecodeIsPassedOverAndCounted)
{
    ASSERT_EQ(write(1, 1), 0);
    connect(db);
    ASSERT_EQ(subscribe_cards(), 0);
    ASSERT_TRUE(run_until_event("29"));
    events.clear();
    ASSERT_EQ(server.run(db, {"HSET", key, "8", "many"}), "1");
    const int32_t fields[] = {6};
    ASSERT_EQ(vx_mom_hmset(global.get(), db, Card(0, 1, 0, 2).message(), fields, 1, nullptr, nullptr), 0);
    ASSERT_EQ(write(2, 1), 0);
    ASSERT_TRUE(run_until_event("4 0/2/0 type 1"));
    EXPECT_THAT(events, ElementsAre("4 0/2/0 type 1"));
    ASSERT_EQ(write(1, 3), 0);
    ASSERT_TRUE(run_until_event("4 0/1/0 type 3"));
}

TEST_F(SubscriptionTest, TheDeletionOfASpoiltRecordCarriesWhatItLastWas)
{
    ASSERT_EQ(write(1, 1), 0);
    connect(db);
    ASSERT_EQ(subscribe_cards(), 0);
    ASSERT_TRUE(run_until_event("29"));
    ASSERT_EQ(server.run(db, {"HSET", key, "6", "junk"}), "0");
    ASSERT_EQ(vx_mom_del(global.get(), db, Card(0, 1, 0).message(), nullptr, nullptr), 0);
    ASSERT_TRUE(run_until_event("3 0/1/0 type 1"));
    EXPECT_THAT(log_text(), HasSubstr("does not decode"));
}

TEST_F(SubscriptionTest, ARecordDeletedPastTheClientIsStillToldOfWhenItIsDeletedAgain)
{
    ASSERT_EQ(write(1, 1), 0);
    connect(db);
    ASSERT_EQ(subscribe_cards(), 0);
    ASSERT_TRUE(run_until_event("29"));
    ASSERT_EQ(server.run(db, {"DEL", key}), "1");
    ASSERT_EQ(vx_mom_del(global.get(), db, Card(0, 1, 0).message(), nullptr, nullptr), 0);
    ASSERT_TRUE(run_until_event("3 0/1/0 type 1"));
    EXPECT_EQ(server.run(db, {"SCARD", index_set}), "0");
}

TEST_F(SubscriptionTest, WritersInOtherProcessesAreFollowedThroughCutConnections)
{
    constexpr int writers = 2;
    constexpr int changes = 2000;
    const auto seed = static_cast<unsigned>(std::chrono::steady_clock::now().time_since_epoch().count());
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::vector<pid_t> children;
    children.reserve(writers);
    for (int writer = 0; writer < writers; writer++) {
        children.push_back(start_writer(seed + static_cast<unsigned>(writer), changes));
    }
    connect(1);
    on_event = [this](const std::string &what) { believe(what); };
    ASSERT_EQ(subscribe_cards(), 0);
    std::mt19937 random(seed);
    std::string last_change;
    ASSERT_TRUE(run_until([&] {
        if (random() % 50 == 0) {
            (void)server.run(0, {"CLIENT", "KILL", "TYPE", "pubsub"});
        }
        const bool done = all_ended(children);
        if (done && last_change.empty()) {
            EXPECT_EQ(write(1000, 1), 0);
            last_change = "0/1000/0";
        }
        return done && belief.count(last_change) != 0;
    }));
    EXPECT_EQ(belief, stored());
}

} // namespace
