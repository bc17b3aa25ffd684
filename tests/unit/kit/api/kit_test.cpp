// A module's life with the daemon: asked, answering, withdrawn, asked again.
#include <atomic>
#include <optional>

#include "kit_fixture.h"

namespace kit_test
{

namespace
{

using app_cg_kit::Card;
using app_cg_kit::Check;
using app_cg_kit::Verdict;

class Kit : public KitTest
{
protected:
    // A module that promises its verdicts for all but slot 99 and keeps the handles.
    void serve_later()
    {
        serve([this](const Card &card, const Check &check) {
            if (card.slotid == 99) {
                return app_cg_kit::pass();
            }
            const std::lock_guard<std::mutex> guard(mutex_);
            kept_.push_back(check);
            return app_cg_kit::later();
        });
    }
    std::size_t kept()
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return kept_.size();
    }
    Check kept(std::size_t number)
    {
        EXPECT_TRUE(eventually([&] { return kept() > number; })) << logged_.all();
        const std::lock_guard<std::mutex> guard(mutex_);
        return kept_.at(number);
    }

    std::mutex mutex_;
    std::vector<Check> kept_;
};

} // namespace

TEST_F(Kit, TheVerdictOfTheFunctionIsTheAnswer)
{
    serve([](const Card &card, const Check &) {
        return card.type < 300 ? app_cg_kit::pass()
                               : app_cg_kit::deny("type " + std::to_string(card.type) + " is too new");
    });
    ask("3");
    EXPECT_EQ(take_answer("3"), (Json{{"ret", 0}, {"reason", ""}, {"ret_flag", 0}}));
    ask("4", "300");
    EXPECT_EQ(take_answer("4"), (Json{{"ret", 1}, {"reason", "type 300 is too new"}, {"ret_flag", 0}}));
    end();
    EXPECT_TRUE(logged_.has("6 volt 1/3/0 PASS")) << logged_.all();
    EXPECT_TRUE(logged_.has("6 volt 1/4/0 DENY type 300 is too new"));
    EXPECT_EQ(logged_.count("4 "), 0U) << logged_.all();
}

TEST_F(Kit, TheFunctionSeesTheCard)
{
    cgctl({"card", "plug", "1/3", "--name", "fan 3", "--serial", "00e0"});
    std::map<int, Card> seen;
    serve([&](const Card &card, const Check &) {
        seen[card.slotid] = card;
        return app_cg_kit::pass();
    });
    ask("3", "200");
    take_answer("3");
    ask("4");
    take_answer("4");
    end();
    const Card &with = seen[3];
    EXPECT_EQ(with.position(), "1/3/0");
    EXPECT_EQ(with.type, 200);
    EXPECT_EQ(with.node_type, 3);
    EXPECT_EQ(with.node_id, 7);
    ASSERT_TRUE(with.info);
    EXPECT_EQ(with.info->name, "fan 3");
    EXPECT_TRUE(with.info->online);
    EXPECT_EQ(with.info->serial, (std::vector<uint8_t>{0x00, 0xe0}));
    EXPECT_FALSE(seen[4].info);
}

TEST_F(Kit, WhatStandsWhenTheModuleStartsIsAnswered)
{
    ask("3");
    serve([](const Card &, const Check &) { return app_cg_kit::pass(); });
    EXPECT_EQ(take_answer("3")["ret"], 0);
    end();
}

TEST_F(Kit, AVerdictMayComeLaterFromAnyThreadAndCountsOnce)
{
    serve_later();
    ask("3");
    const Check check = kept(0);
    EXPECT_TRUE(check.is_open());
    settle(); // others are asked meanwhile
    EXPECT_EQ(answers(), 0U);
    EXPECT_EQ(check.deny("too hot"), 0);
    EXPECT_EQ(check.pass(), APP_CG_KIT_E_ANSWERED);
    EXPECT_EQ(take_answer("3")["reason"], "too hot");
    EXPECT_FALSE(check.is_open());
    end();
    EXPECT_EQ(check.pass(), APP_CG_KIT_E_ANSWERED);
}

TEST_F(Kit, AVerdictFromWithinTheFunctionCountsAndWhatItReturnsThenDoesNot)
{
    serve([](const Card &card, const Check &check) {
        EXPECT_EQ(check.deny("at once"), 0);
        return card.slotid == 3 ? app_cg_kit::later() : app_cg_kit::pass();
    });
    ask("3");
    EXPECT_EQ(take_answer("3")["reason"], "at once");
    ask("4");
    EXPECT_EQ(take_answer("4")["reason"], "at once");
    end();
}

TEST_F(Kit, AVerdictThatWasTakenIsWrittenThoughTheFunctionWantsToBeAskedAgain)
{
    std::atomic<int> asked{0};
    serve([&](const Card &, const Check &check) {
        asked++;
        EXPECT_EQ(check.deny("told"), 0);
        return app_cg_kit::ask_again();
    });
    ask("3");
    EXPECT_EQ(take_answer("3")["reason"], "told");
    EXPECT_EQ(asked, 1);
    end();
}

TEST_F(Kit, ALogFunctionThatThrowsEndsNothing)
{
    std::atomic<bool> throws{false};
    options_.log = [&](int level, const std::string &text) {
        logged_.add(level, text);
        if (throws) {
            throw std::runtime_error("the disk is full");
        }
    };
    serve([](const Card &, const Check &) { return app_cg_kit::deny(""); });
    throws = true;
    ask("3");
    EXPECT_EQ(take_answer("3")["ret"], 1);
    ask("4");
    EXPECT_EQ(take_answer("4")["ret"], 1);
    end();
}

TEST_F(Kit, AVerdictGivenBeforeTheStopIsWritten)
{
    serve_later();
    ask("3");
    EXPECT_EQ(kept(0).deny("just in time"), 0);
    end();
    EXPECT_EQ(take_answer("3")["reason"], "just in time");
}

TEST_F(Kit, AVerdictForAWithdrawnRequestIsDropped)
{
    std::atomic<int> withdrawn{0};
    options_.withdrawn = [&](const Card &card, const Check &check) {
        EXPECT_EQ(card.position(), "1/3/0");
        EXPECT_FALSE(check.is_open());
        withdrawn++;
    };
    serve_later();
    ask("3");
    const Check check = kept(0);
    withdraw("3");
    ASSERT_TRUE(eventually([&] { return withdrawn == 1; }));
    EXPECT_EQ(check.deny("late"), APP_CG_KIT_E_WITHDRAWN);
    settle();
    EXPECT_EQ(answers(), 0U);
    end();
    EXPECT_EQ(withdrawn, 1);
}

TEST_F(Kit, AnotherCardInTheSlotIsAnotherExamination)
{
    std::atomic<int> withdrawn{0};
    options_.withdrawn = [&](const Card &card, const Check &) {
        EXPECT_EQ(card.type, 1);
        withdrawn++;
    };
    serve_later();
    ask("3", "1");
    const Check first = kept(0);
    ask("3", "2");
    const Check second = kept(1);
    EXPECT_EQ(withdrawn, 1);
    EXPECT_EQ(first.pass(), APP_CG_KIT_E_WITHDRAWN);
    EXPECT_EQ(second.deny("the second"), 0);
    EXPECT_EQ(take_answer("3")["reason"], "the second");
    end();
}

// The request says the same of both cards.
TEST_F(Kit, AVerdictOnOneCardIsNotWrittenForTheNextInItsSlot)
{
    std::atomic<int> withdrawn{0};
    options_.withdrawn = [&](const Card &card, const Check &check) {
        EXPECT_EQ(card.info.value().name, "old");
        EXPECT_FALSE(check.is_open());
        withdrawn++;
    };
    cgctl({"card", "plug", "1/3", "--name", "old", "--serial", "01"});
    serve_later();
    ask("3");
    const Check first = kept(0);
    cgctl({"card", "plug", "1/3", "--name", "new", "--serial", "01"});
    EXPECT_EQ(first.pass(), 0);
    const Check second = kept(1);
    EXPECT_EQ(withdrawn, 1);
    EXPECT_EQ(answers(), 0U);
    EXPECT_TRUE(logged_.has("6 1/3/0: another card came meanwhile; it is examined anew")) << logged_.all();
    EXPECT_EQ(second.deny("the new one"), 0);
    EXPECT_EQ(take_answer("3")["reason"], "the new one");
    end();
}

TEST_F(Kit, ACardThatChangesOnlyItsStateIsTheSameCard)
{
    cgctl({"card", "plug", "1/3", "--serial", "01"});
    serve_later();
    ask("3");
    const Check check = kept(0);
    cgctl({"card", "offline", "1/3"});
    EXPECT_EQ(check.deny("as it was"), 0);
    EXPECT_EQ(take_answer("3")["reason"], "as it was");
    end();
    EXPECT_EQ(kept(), 1U);
}

TEST_F(Kit, ACardThatLostItsInformationIsExaminedAnew)
{
    cgctl({"card", "plug", "1/3", "--serial", "01"});
    serve_later();
    ask("3");
    const Check first = kept(0);
    cgctl({"card", "pull", "1/3"});
    EXPECT_EQ(first.pass(), 0);
    EXPECT_EQ(kept(1).pass(), 0);
    EXPECT_EQ(take_answer("3")["ret"], 0);
    end();
}

// As after an outage, which makes one of a deletion and the next request.
TEST_F(Kit, ARepeatedRequestForAnotherCardIsAnotherExamination)
{
    cgctl({"card", "plug", "1/3", "--serial", "01"});
    serve_later();
    ask("3");
    const Check first = kept(0);
    cgctl({"card", "plug", "1/3", "--serial", "02"});
    ask("3");
    const Check second = kept(1);
    EXPECT_EQ(first.pass(), APP_CG_KIT_E_WITHDRAWN);
    EXPECT_EQ(second.deny("the second"), 0);
    EXPECT_EQ(take_answer("3")["reason"], "the second");
    end();
}

TEST_F(Kit, ARequestRepeatedWhileItIsOpenIsOneAndAfterTheAnswerAnotherOne)
{
    serve_later();
    ask("3");
    const Check check = kept(0);
    ask("3");
    settle();
    EXPECT_EQ(kept(), 1U);
    EXPECT_EQ(check.pass(), 0);
    take_answer("3");
    ask("3"); // as a daemon does that starts afresh
    EXPECT_EQ(kept(1).pass(), 0);
    take_answer("3");
    withdraw("3");
    ask("3");
    EXPECT_EQ(kept(2).pass(), 0);
    take_answer("3");
    end();
}

TEST_F(Kit, AfterALostConnectionOnlyWhatIsNewIsAnswered)
{
    std::atomic<int> asked{0};
    serve([&](const Card &card, const Check &) {
        asked += card.slotid == 3 ? 1 : 0;
        return app_cg_kit::pass();
    });
    ask("3");
    take_answer("3");
    settle();
    cut_connections();
    ASSERT_TRUE(says("the store is back")) << logged_.all();
    settle();
    EXPECT_EQ(asked, 1) << logged_.all();
    EXPECT_EQ(answers(), 0U);
    ask("3");
    take_answer("3");
    EXPECT_EQ(asked, 2);
    end();
}

TEST_F(Kit, AVerdictGivenWhileTheStoreIsAwayIsWrittenOnItsReturn)
{
    serve_later();
    ask("3");
    const Check check = kept(0);
    (void)tell_server("SAVE\r\n");
    stop_server();
    ASSERT_TRUE(says("lost the store")) << logged_.all();
    EXPECT_EQ(check.deny("given in the dark"), 0);
    ASSERT_TRUE(says("not answered yet")) << logged_.all();
    start_server();
    EXPECT_EQ(take_answer("3")["reason"], "given in the dark");
    end();
}

TEST_F(Kit, AStoreThatComesBackEmptyHasWithdrawnEverything)
{
    serve_later();
    ask("3");
    const Check check = kept(0);
    stop_server();
    ASSERT_TRUE(says("lost the store")) << logged_.all();
    start_server();
    ASSERT_TRUE(says("1/3/0: the request was withdrawn")) << logged_.all();
    EXPECT_EQ(check.pass(), APP_CG_KIT_E_WITHDRAWN);
    ask("3"); // the daemon asks again
    EXPECT_EQ(kept(1).deny("again"), 0);
    EXPECT_EQ(take_answer("3")["reason"], "again");
    end();
}

TEST_F(Kit, AnAnswerThatTheStoreRefusesIsTriedAgain)
{
    serve_later();
    ask("3");
    const Check check = kept(0);
    (void)tell_server("CONFIG SET maxmemory 1\r\n");
    EXPECT_EQ(check.deny("at last"), 0);
    ASSERT_TRUE(says("4 1/3/0 is not answered yet: the store did not take it")) << logged_.all();
    EXPECT_EQ(answers(), 0U);
    (void)tell_server("CONFIG SET maxmemory 0\r\n");
    EXPECT_EQ(take_answer("3")["reason"], "at last");
    end();
}

TEST_F(Kit, WhoCannotTellIsAskedAgain)
{
    std::atomic<int> asked{0};
    serve([&](const Card &, const Check &) -> Verdict {
        if (asked++ == 0) {
            throw std::runtime_error("the sensor is busy");
        }
        return app_cg_kit::pass();
    });
    ask("3");
    EXPECT_EQ(take_answer("3")["ret"], 0);
    EXPECT_EQ(asked, 2);
    end();
    EXPECT_TRUE(logged_.has("3 an exception left the function check: the sensor is busy")) << logged_.all();
}

TEST_F(Kit, ReasonsAreCutAtACharacterAndMissingOnesAreWarnedOf)
{
    serve([](const Card &card, const Check &) {
        return app_cg_kit::deny(card.slotid == 3 ? "" : std::string(254, 'x') + "é!");
    });
    ask("3");
    EXPECT_EQ(take_answer("3"), (Json{{"ret", 1}, {"reason", ""}, {"ret_flag", 0}}));
    ask("4");
    EXPECT_EQ(take_answer("4")["reason"], std::string(254, 'x'));
    end();
    EXPECT_TRUE(logged_.has("4 1/3/0 is denied without a reason")) << logged_.all();
    EXPECT_TRUE(logged_.has("4 1/4/0: the reason has 257 bytes and was cut")) << logged_.all();
}

TEST_F(Kit, APromiseThatNobodyCanKeepIsTold)
{
    std::optional<Check> held;
    serve([&](const Card &card, const Check &check) {
        if (card.slotid == 4) {
            held = check;
        }
        return card.slotid == 99 ? app_cg_kit::pass() : app_cg_kit::later();
    });
    ask("3");
    ASSERT_TRUE(says("3 1/3/0: a verdict was promised")) << logged_.all();
    ask("4");
    settle();
    held.reset();
    EXPECT_TRUE(says("4 1/4/0: the last handle was released without a verdict")) << logged_.all();
    end();
}

TEST_F(Kit, TheFunctionForCardsSeesThemComeChangeAndGo)
{
    cgctl({"card", "plug", "1/3", "--type", "200"});
    std::vector<std::string> seen;
    options_.card = [&](const Card &card, bool present) {
        seen.push_back(card.position() + ' ' + std::to_string(card.type) +
                       (present ? card.info->online ? " online" : " offline" : " gone"));
    };
    serve([](const Card &, const Check &) { return app_cg_kit::pass(); });
    cgctl({"card", "plug", "1/4", "--type", "201"});
    cgctl({"card", "offline", "1/4"});
    cgctl({"card", "pull", "1/3"});
    settle(); // told after the cards: the subscriptions share a connection
    end();
    EXPECT_EQ(seen, (std::vector<std::string>{"1/3/0 200 online", "1/4/0 201 online", "1/4/0 201 offline",
                                              "1/3/0 200 gone"}));
}

} // namespace kit_test
