// Scenarios in play, before a daemon of a few lines, in virtual time.
#include <gmock/gmock.h>

#include <map>

#include "admission/card_text.h"
#include "base/failure.h"
#include "player.h"
#include "records/position_key.h"
#include "records/record_text.h"

namespace cg
{

namespace
{

using namespace std::chrono_literals;
using scenario::Milliseconds;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

// The fields of a position's key.
Json key_of(const Position &position)
{
    return {{"devid", position.devid}, {"slotid", position.slotid}, {"sslotid", position.sslotid}};
}

constexpr bool stands = false;
constexpr bool deleted = true;
constexpr int32_t node_id_offset = 0x1000000;

// The world of a player: a clock, a store that tells back, and a daemon that asks, decides and gives up.
class World
{
public:
    explicit World(const std::string &text, Player::Options options = {})
    {
        scenarios_.push_back(scenario::parse_scenario("file", text));
        EXPECT_TRUE(scenarios_[0].problems.empty()) << scenarios_[0].problems[0].message;
        player_ = std::make_unique<Player>(scenarios_, std::move(options), stage());
    }

    // Plays until nothing is left to happen.
    void play()
    {
        player_->synchronized();
        while (!timers_.empty() && !player_->is_finished()) {
            happen();
        }
    }

    // Somebody else plugs a card.
    void plug_real_card(const Position &position)
    {
        NewCard card;
        card.position = position;
        cards_[position] = to_json(*card_info_of(card));
        write_card(position);
    }

    // Lets time pass until nothing is left to happen, played or not.
    void go_on()
    {
        while (!timers_.empty()) {
            happen();
        }
    }

    Player &player() { return *player_; }
    [[nodiscard]] std::vector<std::string> misses() const
    {
        std::vector<std::string> texts;
        for (const ExpectationResult &result : player_->results()) {
            if (!result.held) {
                texts.push_back(std::to_string(result.line) + ": " + result.seen);
            }
        }
        return texts;
    }

    std::vector<std::string> modules{};   // whom the daemon asks
    Milliseconds timeout = 300s;          // on our clock
    Milliseconds slowness = 10ms;         // of the daemon
    bool deaf = false;                    // the store tells nothing back
    bool returning = false;               // the store reports everything again
    std::optional<Milliseconds> afresh{}; // so long after a request the daemon is started afresh, once
    std::vector<std::string> written{};   // what the player wrote
    std::vector<std::string> told{};
    Milliseconds elapsed() const { return std::chrono::duration_cast<Milliseconds>(now_.time_since_epoch()); }

private:
    Stage stage()
    {
        return {
            [this] { return now_; },
            [this](Milliseconds time, std::function<void()> action) { later(time, std::move(action)); },
            [this](const NewCard &card) {
                written.push_back("plug " + card.position.text());
                cards_[card.position] = to_json(*card_info_of(card));
                write_card(card.position);
            },
            [this](const Position &position, scenario::Move move) { change(position, move); },
            [this](PDev__DmRoleE role) {
                written.push_back("role " + role_word(role));
                hear(stands, "p_dev.dp_lib_grole", {{"my_grole", 1}});
            },
            [this](const DueAnswer &answer) { write(answer); },
            [this](admission::Time, const Event &event) { told.push_back(event.kind + ' ' + event.text); },
            [] {}};
    }

    void happen()
    {
        const auto next = timers_.begin();
        now_ = next->first;
        const auto action = next->second;
        timers_.erase(next);
        action();
    }

    void later(Milliseconds time, std::function<void()> action)
    {
        timers_.emplace(now_ + time, std::move(action));
    }

    void hear(bool is_deleted, const std::string &type, const Json &fields, const store::Cause &cause = {})
    {
        ++revision_;
        if (!deaf) {
            player_->heard(
                is_deleted, *from_json(*record_type(type).descriptor, fields),
                {now_, returning, {revision_, {"daemon" + std::to_string(life_), revision_, cause}}});
        }
    }
    static store::Cause by_card(const Position &position)
    {
        return {store::Cause::Kind::record, 1, "p_dev.card_info:0:" + key_text(position)};
    }
    static std::string key_text(const Position &position)
    {
        return std::to_string(position.devid) + ':' + std::to_string(position.slotid) + ':' +
               std::to_string(position.sslotid);
    }

    void change(const Position &position, scenario::Move move)
    {
        static constexpr std::array words{"online ", "offline ", "pull "};
        written.push_back(words.at(static_cast<std::size_t>(move)) + position.text());
        Json &card = cards_[position];
        if (move == scenario::Move::pull) {
            hear(deleted, "p_dev.card_info", card);
            later(slowness, [this, position] { withdraw(position); });
        } else {
            card["is_online"] = move == scenario::Move::online;
            write_card(position);
        }
    }

    void write_card(const Position &position)
    {
        const Json card = cards_[position];
        hear(stands, "p_dev.card_info", card);
        const bool board = card["static_info"]["node_type"] == "DM_TYPE_MB";
        const bool online = card["is_online"];
        later(slowness, [this, position, board, online] {
            if (board || (online && modules.empty())) {
                decide(position, true, by_card(position));
            } else if (online) {
                ask(position);
            } else {
                withdraw(position);
            }
        });
    }

    static Json key(const Position &position) { return {{"index", key_of(position)}}; }

    void ask(const Position &position)
    {
        waiting_[position] = {modules.begin(), modules.end()};
        const uint64_t check = ++checks_[position];
        Json request = key(position);
        request["type"] = cards_[position]["config_dev_type"];
        hear(stands, "p_libpub.app_cg_card_check_info", request, by_card(position));
        if (const auto time = std::exchange(afresh, std::nullopt)) {
            later(*time, [this, position] {
                ++life_;
                ask(position);
            });
        }
        later(timeout, [this, position, check] {
            if (checks_[position] == check && waiting_.contains(position)) {
                decide(position, true, {store::Cause::Kind::timer});
            }
        });
    }

    void withdraw(const Position &position)
    {
        if (waiting_.erase(position) != 0) {
            hear(deleted, "p_libpub.app_cg_card_check_info", key(position), by_card(position));
        }
        hear(deleted, "p_libpub.app_cg_mom_deny_check_result", result(position, true), by_card(position));
    }

    Json result(const Position &position, bool pass)
    {
        const int32_t node =
            node_id_offset + position.devid * 0x10000 + position.slotid * 0x100 + position.sslotid;
        return {{"index", {{"card_tipc_nodeid", node}}},
                {"stat", pass ? 1 : 0},
                {"node_type", cards_[position]["static_info"]["node_type"]}};
    }

    void decide(const Position &position, bool pass, const store::Cause &cause)
    {
        hear(stands, "p_libpub.app_cg_mom_deny_check_result", result(position, pass), cause);
        if (waiting_.erase(position) != 0) {
            hear(deleted, "p_libpub.app_cg_card_check_info", key(position), cause);
        }
    }

    void write(const DueAnswer &answer)
    {
        const Position position = answer.position;
        written.push_back(answer.module + (answer.pass ? " passes " : " denies ") + position.text());
        Json ack{{"index",
                  {{"devid", position.devid},
                   {"slotid", position.slotid},
                   {"t_sslotid", position.sslotid},
                   {"mod_name", answer.module}}},
                 {"ret", answer.pass ? 0 : 1},
                 {"reason", answer.reason}};
        hear(stands, "p_libpub.app_cg_card_check_ack", ack);
        const store::Cause cause{store::Cause::Kind::record, revision_,
                                 "p_libpub.app_cg_card_check_ack:" + key_text(position) + ':' +
                                     answer.module};
        later(slowness, [this, answer, position, ack, cause] {
            hear(deleted, "p_libpub.app_cg_card_check_ack", ack, cause);
            auto &waiting = waiting_[position];
            waiting.erase(answer.module);
            if (!answer.pass || waiting.empty()) {
                decide(position, answer.pass, cause);
            }
        });
    }

    std::vector<scenario::Scenario> scenarios_;
    std::unique_ptr<Player> player_;
    admission::Time now_{};
    std::multimap<admission::Time, std::function<void()>> timers_;
    std::map<Position, Json> cards_;
    std::map<Position, std::set<std::string>> waiting_;
    std::map<Position, uint64_t> checks_;
    int life_ = 1;
    uint64_t revision_ = 0;
};

// Plays a scenario with the modules m1 and m2; returns what was missed.
std::vector<std::string> missed(const std::string &text)
{
    World world(text, {1, false, false, {"m1", "m2"}});
    world.modules = {"m1", "m2"};
    world.play();
    EXPECT_TRUE(world.player().is_finished());
    return world.misses();
}

const std::string pass_both = "module m1 answers pass after 1s\nmodule m2 answers pass after 2s\n";
const std::vector<std::string> nothing{};

} // namespace

TEST(Player, ModulesPassACard)
{
    EXPECT_EQ(missed(pass_both +
                     "plug 1/3\nexpect 1/3 waiting for m1, m2\nexpect 1/3 waiting for m2 within 2s\n"
                     "expect 1/3 passed by m2 within 3s"),
              nothing);
}

TEST(Player, CardsThatNoFilePluggedAreNotAnswered)
{
    World world(pass_both + "plug 1/3\nexpect 1/3 passed within 3s\nwait 5s",
                {1, false, false, {"m1", "m2"}});
    world.modules = {"m1", "m2"};
    world.plug_real_card({1, 7, 0});
    world.play();
    world.go_on();
    EXPECT_EQ(world.misses(), nothing);
    EXPECT_THAT(world.written, Contains("m1 passes 1/3/0"));
    EXPECT_THAT(world.written, Not(Contains(HasSubstr("1/7/0"))));
}

TEST(Player, WhoStaysAnswersForEveryCardOnceAllIsPlayed)
{
    World world(pass_both + "wait 1s", {1, true, true, {"m1", "m2"}});
    world.modules = {"m1", "m2"};
    world.plug_real_card({1, 7, 0});
    world.play();
    ASSERT_TRUE(world.player().is_finished());
    world.plug_real_card({1, 8, 0});
    world.go_on();
    EXPECT_EQ(world.written, (std::vector<std::string>{"m1 passes 1/8/0", "m2 passes 1/8/0"}));
}

TEST(Player, WhatIsNotSoInTimeIsMissedAndThePlayGoesOn)
{
    EXPECT_EQ(missed(pass_both +
                     "plug 1/3\nexpect 1/3 passed within 1s\nexpect 1/3 passed by m1\nexpect 1/3 passed"),
              (std::vector<std::string>{"4: waiting for m1, m2", "5: passed by m2"}));
}

TEST(Player, ADenialHasADeciderAndAReason)
{
    const std::string deny = pass_both + "module m1 answers deny \"too warm\" for 1/3\nplug 1/3\n";
    EXPECT_EQ(missed(deny + "expect 1/3 denied by m1 because \"warm\""), nothing);
    EXPECT_EQ(missed(deny + "expect 1/3 denied because \"cold\" within 1s"),
              std::vector<std::string>{"5: denied by m1: too warm"});
    EXPECT_EQ(missed(deny + "expect 1/3 passed within 9s"),
              std::vector<std::string>{"5: denied by m1: too warm"});
}

TEST(Player, SilenceIsWaitedForAsLongAsItTakes)
{
    World world("module m1 answers pass\nmodule m2 silent\nplug 1/3\nexpect 1/3 admitted by time-out of m2",
                {20, false, false, {"m1", "m2"}});
    world.modules = {"m1", "m2"};
    world.timeout = 15s;
    world.play();
    EXPECT_EQ(world.misses(), nothing);
    EXPECT_NEAR(static_cast<double>(world.elapsed().count()), 15010, 50);
    EXPECT_NEAR(static_cast<double>(world.player().results()[0].after.count()), 300200, 1000)
        << "the daemon's seconds";
}

TEST(Player, ADaemonThatIsStartedAfreshBeginsTheCheckAnew)
{
    World world(pass_both + "plug 1/3\nexpect 1/3 passed by m2 within 5s", {1, false, false, {"m1", "m2"}});
    world.modules = {"m1", "m2"};
    world.afresh = 1500ms; // m1 has passed
    world.play();
    EXPECT_EQ(world.misses(), nothing);
    EXPECT_THAT(world.told, testing::Contains("decision check cut off: the daemon was restarted"));
    EXPECT_THAT(world.written, testing::ElementsAre("plug 1/3/0", "m1 passes 1/3/0", "m1 passes 1/3/0",
                                                    "m2 passes 1/3/0", "pull 1/3/0"));
}

TEST(Player, TimesAreTheDaemonsAndPassFasterOnOurClock)
{
    World world("wait 40s\nwait 1m", {20, false, false, {}});
    world.play();
    EXPECT_EQ(world.elapsed(), 5s);
}

TEST(Player, ACardThatReturnsIsNotJudgedByItsEarlierCheck)
{
    // The daemon is slow: when the card is plugged again, the result of before still stands.
    World world(pass_both + "plug 1/3\nexpect 1/3 passed\npull 1/3\nplug 1/3\nexpect 1/3 passed within 500ms",
                {1, false, false, {"m1", "m2"}});
    world.modules = {"m1", "m2"};
    world.slowness = 50ms;
    world.play();
    ASSERT_EQ(world.misses().size(), 1U);
    EXPECT_THAT(world.misses()[0], HasSubstr("7: waiting"));
    EXPECT_EQ(missed(pass_both +
                     "plug 1/3\nexpect 1/3 passed\noffline 1/3\nonline 1/3\nexpect 1/3 passed within 100ms"),
              std::vector<std::string>{"7: waiting for any of m1, m2"});
}

TEST(Player, WhatHoldsThroughoutHoldsAtEveryMoment)
{
    EXPECT_EQ(missed(pass_both + "plug 1/3\nexpect 1/3 waiting\nexpect 1/3 waiting throughout 1.5s"),
              nothing);
    EXPECT_EQ(missed(pass_both + "plug 1/3\nexpect 1/3 waiting\nexpect 1/3 waiting throughout 3s"),
              std::vector<std::string>{"5: passed by m2"});
    EXPECT_EQ(missed(pass_both + "plug 1/3\nexpect 1/3 passed throughout 3s").size(), 1U)
        << "not so at the beginning";
}

TEST(Player, BoardCardsAbsentOnesAndThoseOffLine)
{
    EXPECT_EQ(missed("plug 1/1 mb offline\nexpect 1/1 exempt\nplug 1/2 offline\nexpect 1/2 offline\n"
                     "expect 1/2 unmarked\npull 1/2\nexpect 1/2 absent"),
              nothing);
}

TEST(Player, WithNobodyToAskACardIsUnasked)
{
    World world("plug 1/3\nexpect 1/3 no module registered\noffline 1/3\nonline 1/3\n"
                "expect 1/3 no module registered");
    world.play();
    EXPECT_EQ(world.misses(), nothing);
}

TEST(Player, ThePlayEndsWithAnEmptyChassis)
{
    World world("role master\nplug 1/4 offline\nplug 1/3 mb\nplug 1/5 offline\npull 1/5");
    world.play();
    EXPECT_EQ(world.written,
              (std::vector<std::string>{"role master", "plug 1/4/0", "plug 1/3/0", "plug 1/5/0", "pull 1/5/0",
                                        "pull 1/3/0", "pull 1/4/0"}));
    EXPECT_TRUE(world.player().plugged().empty());
    EXPECT_EQ(std::count(world.told.begin(), world.told.end(), "pulled pulled"), 1)
        << "the one that the scenario pulls; cleaning up is not reported";
    World kept("plug 1/4 offline", {1, true, false, {}});
    kept.play();
    EXPECT_EQ(kept.player().plugged(), (std::set<Position>{{1, 4, 0}}));
}

TEST(Player, OnlyCardsOfTheScenarioAreSwitched)
{
    for (const std::string line :
         {"online 1/7", "offline 1/7", "pull 1/7", "plug 1/7\npull 1/7\nonline 1/7"}) {
        World world("plug 1/3\n" + line);
        world.plug_real_card({1, 7, 0});
        try {
            world.play();
            FAIL() << line;
        } catch (const Failure &failure) {
            const auto number = std::to_string(2 + std::count(line.begin(), line.end(), '\n'));
            EXPECT_EQ(failure.what(), "file:" + number + ": no card of this scenario is plugged at 1/7/0");
        }
    }
}

TEST(Player, AStoreThatTellsNothingBackEndsThePlay)
{
    World world("plug 1/3");
    world.deaf = true;
    EXPECT_THROW(world.play(), Failure);
    EXPECT_FALSE(world.player().is_finished());
    EXPECT_EQ(world.player().plugged().size(), 1U) << "it may be there";
}

TEST(Player, WhatWasWrittenMayBeAmongTheRecordsOfAStoreThatReturns)
{
    World world("role master\nplug 1/3\noffline 1/3\nonline 1/3\npull 1/3", {1, false, false, {}});
    world.returning = true;
    world.play();
    EXPECT_TRUE(world.player().is_finished());
    EXPECT_THAT(world.told,
                testing::IsSupersetOf({"offline went offline", "online is online", "pulled pulled"}));
}

TEST(Player, ARecordOfBeforeIsNotTakenForWhatWasWritten)
{
    World world("plug 1/3 offline", {1, false, false, {}});
    world.deaf = true;
    world.player().synchronized();
    const auto hear = [&](const char *type, const Json &fields, bool existing = true) {
        world.player().heard(false, *from_json(*record_type(type).descriptor, fields), {{}, existing, {}});
    };
    hear("p_dev.card_info", {{"name", "nowhere"}});
    hear("p_dev.card_info", {{"index", key_of({1, 4, 0})}});
    hear("p_dev.card_info", {{"index", key_of({1, 3, 0})}, {"is_online", true}});
    EXPECT_THAT(world.written, testing::ElementsAre("plug 1/3/0"));
    hear("p_dev.card_info", {{"index", key_of({1, 3, 0})}, {"is_online", false}});
    EXPECT_THAT(world.written, testing::ElementsAre("plug 1/3/0", "pull 1/3/0"));
}

TEST(Player, NobodyAnswersTwiceWhenTheStoreTellsAgain)
{
    World world(pass_both + "plug 1/3\nexpect 1/3 waiting\nwait 5s", {1, false, false, {"m1", "m2"}});
    world.modules = {"m1", "m2"};
    world.play();
    Json request{{"index", key_of({1, 9, 0})}};
    const MessagePtr message = from_json(*record_type("p_libpub.app_cg_card_check_info").descriptor, request);
    const auto before = world.written.size();
    world.player().heard(false, *message, {{}, true, {}});
    world.player().heard(false, *message, {{}, true, {}});
    EXPECT_EQ(world.written.size(), before);
    EXPECT_EQ(std::count(world.written.begin(), world.written.end(), "m1 passes 1/3/0"), 1);
}

} // namespace cg
