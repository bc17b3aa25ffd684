// Subscriptions: the snapshot, what happens while it is taken, live changes, losses and starting over.
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
using testing::IsEmpty;

class SubscribeTest : public store_test::StoreClientTest
{
protected:
    int32_t write(int32_t slot, int32_t type)
    {
        return vx_mom_set_sync(global.get(), 1, Card(0, slot, 0, type).message());
    }
    int32_t erase(int32_t slot)
    {
        return vx_mom_del(global.get(), 1, Card(0, slot, 0).message(), nullptr, nullptr);
    }
    void subscribe_and_forget()
    {
        connect(1);
        ASSERT_EQ(subscribe_cards(), 0);
        ASSERT_TRUE(run_until_event("29"));
        events.clear();
    }
    // Forks a process that makes random changes to cards with a client of its own.
    static pid_t start_writer(unsigned seed, int changes);
    static bool all_ended(std::vector<pid_t> &children);
    // Takes a notification into the belief: position and the rest of each card.
    void believe(const std::string &what);
    // What a scan finds, in the same form.
    std::map<std::string, std::string> stored();

    std::map<std::string, std::string> belief;
};

int32_t note_confirmed(void *arg, vx_mom_pmsg_t *pmsg)
{
    if (pmsg->cmd == VX_MOM_CMD_SUBSCRIBED) {
        auto *note = static_cast<std::pair<std::string *, std::string> *>(arg);
        *note->first += note->second;
    }
    return 0;
}

int32_t note_name(void *arg, vx_mom_pmsg_t * /*pmsg*/)
{
    auto *note = static_cast<std::pair<std::vector<std::string> *, std::string> *>(arg);
    note->first->push_back(note->second);
    return 0;
}

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

pid_t SubscribeTest::start_writer(unsigned seed, int changes)
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

bool SubscribeTest::all_ended(std::vector<pid_t> &children)
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

void SubscribeTest::believe(const std::string &what)
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

std::map<std::string, std::string> SubscribeTest::stored()
{
    const std::map<std::string, std::string> believed = std::move(belief);
    belief.clear();
    const Card pattern(0, 0, 0);
    EXPECT_EQ(vx_mom_scan_sync(global.get(), 1, pattern.message(), 0, note_card, this), 0);
    std::map<std::string, std::string> found = std::move(belief);
    belief = believed;
    return found;
}

TEST_F(SubscribeTest, ExistingCardsComeFirstThenTheConfirmationThenChanges)
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

TEST_F(SubscribeTest, AnEmptyStoreIsConfirmedAtOnce)
{
    connect(1);
    ASSERT_EQ(subscribe_cards(), 0);
    EXPECT_THAT(events, IsEmpty()) << "only the loop calls back";
    ASSERT_TRUE(run_until_event("29"));
    EXPECT_THAT(events, ElementsAre("29"));
}

TEST_F(SubscribeTest, ManyCardsComeInTheOrderOfTheirWriting)
{
    constexpr int32_t cards = 500;
    std::vector<std::string> expected;
    for (int32_t slot = 0; slot < cards; slot++) {
        ASSERT_EQ(write(slot, 1), 0);
        expected.push_back("4 0/" + std::to_string(slot) + "/0 type 1");
    }
    expected.emplace_back("29");
    connect(1);
    ASSERT_EQ(subscribe_cards(), 0);
    ASSERT_TRUE(run_until_event("29"));
    EXPECT_EQ(events, expected);
}

TEST_F(SubscribeTest, ADeletionCarriesTheRecordAsItLastWas)
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

TEST_F(SubscribeTest, APatternDeletionIsToldRecordByRecord)
{
    ASSERT_EQ(write(1, 1), 0);
    ASSERT_EQ(write(2, 2), 0);
    subscribe_and_forget();
    const Card all(0, 0, 0);
    ASSERT_EQ(vx_mom_pdel(global.get(), 1, all.message(), 2, nullptr, nullptr), 0);
    ASSERT_TRUE(run_until_event("3 0/2/0 type 2"));
    EXPECT_THAT(events, ElementsAre("3 0/1/0 type 1", "3 0/2/0 type 2"));
}

TEST_F(SubscribeTest, OtherDatabasesAndTypesAreNotHeard)
{
    subscribe_and_forget();
    ASSERT_EQ(vx_mom_set_sync(global.get(), 28, Card(0, 1, 0, 1).message()), 0);
    ASSERT_EQ(vx_mom_set_sync(global.get(), 1, Ack(0, 1, 0, "alarm").message()), 0);
    ASSERT_EQ(write(2, 1), 0);
    ASSERT_TRUE(run_until_event("4 0/2/0 type 1"));
    EXPECT_THAT(events, ElementsAre("4 0/2/0 type 1"));
}

TEST_F(SubscribeTest, SubscriptionsAreServedInTheOrderAsked)
{
    for (int32_t slot = 0; slot < 300; slot++) {
        ASSERT_EQ(write(slot, 1), 0);
    }
    connect(1);
    std::string order;
    std::pair<std::string *, std::string> first{&order, "cards "};
    std::pair<std::string *, std::string> second{&order, "acks "};
    ASSERT_EQ(vx_mom_subscribe(global.get(), 1, Card(0, 0, 0).message(), 0, note_confirmed, &first), 0);
    ASSERT_EQ(vx_mom_subscribe(global.get(), 1, Ack(0, 0, 0, "").message(), 0, note_confirmed, &second), 0);
    ASSERT_TRUE(run_until([&] { return order.find("acks") != std::string::npos; }));
    EXPECT_EQ(order, "cards acks ");
}

TEST_F(SubscribeTest, ChangesOfDifferentTypesComeInTheOrderMade)
{
    subscribe_and_forget();
    std::pair<std::vector<std::string> *, std::string> acks{&events, "ack"};
    ASSERT_EQ(vx_mom_subscribe(global.get(), 1, Ack(0, 0, 0, "").message(), 0, note_name, &acks), 0);
    ASSERT_TRUE(run_until_event("ack"));
    events.clear();
    std::vector<std::string> expected;
    for (int32_t slot = 0; slot < 200; slot++) {
        ASSERT_EQ(vx_mom_set_sync(global.get(), 1, Ack(0, slot, 0, "alarm").message()), 0);
        ASSERT_EQ(write(slot, 1), 0);
        expected.emplace_back("ack");
        expected.push_back("4 0/" + std::to_string(slot) + "/0 type 1");
    }
    ASSERT_TRUE(run_until_event(expected.back()));
    EXPECT_EQ(events, expected);
}

TEST_F(SubscribeTest, ASubscriberThatTheServerCutsOffForBeingSlowMissesNothing)
{
    ASSERT_EQ(server.run(0, {"CONFIG", "SET", "client-output-buffer-limit", "pubsub 1mb 1mb 1"}), "OK");
    subscribe_and_forget();
    const std::string long_name(4000, 'x');
    Card card(0, 1, 0, 1);
    std::string name = long_name;
    card.record.name = name.data();
    for (int32_t slot = 0; slot < 1000; slot++) {
        card.index.slotid = slot;
        ASSERT_EQ(vx_mom_set_sync(global.get(), 1, card.message()), 0);
    }
    ASSERT_TRUE(run_until([&] { return reports.back() == "back 1 type 2"; }));
    ASSERT_TRUE(run_until_event("4 0/999/0 type 1"));
    EXPECT_EQ(events.size(), 1000U);
    for (int32_t slot = 0; slot < 1000; slot++) {
        EXPECT_EQ(count("4 0/" + std::to_string(slot) + "/0 type 1"), 1) << slot;
    }
}

TEST_F(SubscribeTest, ARepeatedSubscriptionStartsOver)
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

TEST_F(SubscribeTest, ARepeatedSubscriptionTellsFirstWhatVanished)
{
    ASSERT_EQ(write(1, 1), 0);
    ASSERT_EQ(write(2, 2), 0);
    subscribe_and_forget();
    ASSERT_EQ(erase(1), 0);
    ASSERT_EQ(subscribe_cards(), 0);
    ASSERT_TRUE(run_until_event("29"));
    EXPECT_THAT(events, ElementsAre("3 0/1/0 type 1", "4 0/2/0 type 2", "29"));
}

TEST_F(SubscribeTest, ASubscriptionMayBeReplacedInItsOwnCallback)
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

TEST_F(SubscribeTest, ChangesDuringTheSnapshotComeBeforeTheConfirmationAndOnce)
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

TEST_F(SubscribeTest, ACallbackMayScanAndDelete)
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

TEST_F(SubscribeTest, AMissingChangeLeadsToStartingOver)
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

TEST_F(SubscribeTest, WhatIsNoChangeIsPassedOver)
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

TEST_F(SubscribeTest, AChangeOfARecordThatCannotBeIsPassedOver)
{
    subscribe_and_forget();
    ASSERT_EQ(server.run(1, {"PUBLISH", "@chg:1:p_dev.card_info:0:0:7:0:8", "1:11:41:0"}), "1");
    ASSERT_TRUE(run_until([&] { return log_text().find("p_dev.card_info:0:0:7:0:8") != std::string::npos; }));
    EXPECT_THAT(events, testing::IsEmpty());
}

// A user may publish what he likes about his own records; the truth comes out with the next real change.
TEST_F(SubscribeTest, APublishedChangeThatWasNeverMadeIsTakenBack)
{
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    ASSERT_EQ(server.run(1, {"PUBLISH", "@chg:1:p_dev.card_info:0:0:7:0", "1:21:41:11:61:5"}), "1");
    ASSERT_TRUE(run_until_event("4 0/7/0 type 5"));
    ASSERT_EQ(write(2, 1), 0);
    ASSERT_TRUE(run_until_event("4 0/2/0 type 1"));
    EXPECT_THAT(events, ElementsAre("4 0/7/0 type 5", "3 0/7/0 type 5", "4 0/2/0 type 1"));
    EXPECT_THAT(reports, ElementsAre("up")) << "the data is the same";
}

TEST_F(SubscribeTest, ManyPublishedChangesThatWereNeverMadeAreNoticedWithoutARealOne)
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
    EXPECT_THAT(reports, ElementsAre("up"));
}

TEST_F(SubscribeTest, WritersInOtherProcessesAreFollowedThroughCutConnections)
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
