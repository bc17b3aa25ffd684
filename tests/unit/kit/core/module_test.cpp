// A module's life with the daemon: requests, answers, withdrawals, repetitions.
#include <map>
#include <optional>
#include <stdexcept>

#include "core/records.h"
#include "served_module.h"

namespace kit_test
{

using namespace std::chrono_literals;

TEST_F(Kit, TheVerdictOfTheFunctionIsTheAnswer)
{
    serve(
        [](const Card &card, const Check &) {
            return card.type < 300 ? app_cg_kit::pass()
                                   : app_cg_kit::deny("type " + std::to_string(card.type) + " is too new");
        },
        [&] {
            request(3);
            EXPECT_EQ(take_answers(), (Strings{"3 PASS"}));
            request(4, 300);
            EXPECT_EQ(take_answers(), (Strings{"4 DENY type 300 is too new"}));
        });
    EXPECT_EQ(logged("6 subscribed; module volt waits for cards"), 1U) << log();
    EXPECT_EQ(logged("6 volt 1/3/0 PASS"), 1U) << log();
    EXPECT_EQ(logged("6 volt 1/4/0 DENY type 300 is too new"), 1U);
    EXPECT_EQ(logged("4 "), 0U) << log();
}

TEST_F(Kit, TheStoreIsTheOneOfTheOptions)
{
    serve([](const Card &, const Check &) { return app_cg_kit::pass(); }, [] {});
    ASSERT_TRUE(fake_store::options().place);
    EXPECT_EQ(fake_store::options().place->endpoint, "unix:/nowhere");
    EXPECT_FALSE(fake_loop::ends_at_signals());
}

TEST_F(Kit, TheFunctionSeesTheCard)
{
    std::map<int, Card> seen;
    serve(
        [&](const Card &card, const Check &) {
            seen[card.slotid] = card;
            return app_cg_kit::pass();
        },
        [&] {
            plug(3, {"fan 3", std::string("\x00\xe0", 2), 230});
            request(3, 200);
            request(4);
        });
    const Card &with = seen[3];
    EXPECT_EQ(with.position(), "1/3/0");
    EXPECT_EQ(with.type, 200);
    EXPECT_EQ(with.node_type, 3);
    EXPECT_EQ(with.node_id, 7);
    ASSERT_TRUE(with.info);
    EXPECT_EQ(with.info->name, "fan 3");
    EXPECT_EQ(with.info->type_name, "type 230");
    EXPECT_TRUE(with.info->online);
    EXPECT_EQ(with.info->serial, (std::vector<uint8_t>{0x00, 0xe0}));
    EXPECT_FALSE(seen[4].info);
}

TEST_F(Kit, RequestsThatStandAtTheStartAreAnswered)
{
    request(3);
    serve([](const Card &, const Check &) { return app_cg_kit::pass(); },
          [&] { EXPECT_EQ(answers(), (Strings{"3 PASS"})); });
}

TEST_F(Kit, AnAnswerNamesItsRequestAsItsCauseWheneverItIsWritten)
{
    const std::string type = kit::request_type().name;
    serve_later([&] {
        request(3);
        request(4);
        request(3); // the third change of a request
        EXPECT_EQ(kept_.at(1).pass(), 0);
        (void)fake_loop::turn();
        fake_store::refuse_writes("OOM");
        EXPECT_EQ(kept_.at(0).pass(), 0);
        (void)fake_loop::turn();
        fake_store::refuse_writes("");
        fake_loop::advance(1s);
        EXPECT_EQ(fake_store::causes(), (Strings{"2 " + type + ":4", "3 " + type + ":3"}));
    });
}

TEST_F(Kit, AVerdictMayBeGivenLaterAndCountsOnce)
{
    std::optional<Check> check;
    serve_later([&] {
        request(3);
        check = kept_.at(0);
        EXPECT_TRUE(check->is_open());
        EXPECT_EQ(answers(), Strings{});
        EXPECT_EQ(check->deny("too hot"), 0);
        EXPECT_EQ(check->pass(), APP_CG_KIT_E_ANSWERED);
        EXPECT_FALSE(check->is_open());
        EXPECT_EQ(answers(), Strings{}) << "it is written from the loop";
        EXPECT_TRUE(fake_loop::turn());
        EXPECT_EQ(answers(), (Strings{"3 DENY too hot"}));
    });
    EXPECT_EQ(check->pass(), APP_CG_KIT_E_ANSWERED);
}

TEST_F(Kit, AVerdictFromWithinTheFunctionCountsAndWhatItReturnsThenDoesNot)
{
    serve(
        [](const Card &card, const Check &check) {
            EXPECT_EQ(check.deny("at once"), 0);
            return card.slotid == 3 ? app_cg_kit::later() : app_cg_kit::pass();
        },
        [&] {
            request(3);
            request(4);
            EXPECT_EQ(answers(), (Strings{"3 DENY at once", "4 DENY at once"}));
        });
}

TEST_F(Kit, AVerdictGivenBeforeTheStopIsWritten)
{
    options_.check = [this](const Card &, const Check &check) {
        kept_.push_back(check);
        return app_cg_kit::later();
    };
    app_cg_kit::Module module(options_);
    fake_loop::on_run([&] {
        fake_store::connect();
        fake_loop::deliver();
        request(3);
        request(4);
        EXPECT_EQ(kept_.at(0).deny("just in time"), 0);
        module.stop();
        EXPECT_FALSE(fake_loop::is_stopping());
        EXPECT_TRUE(fake_loop::turn());
        EXPECT_TRUE(fake_loop::is_stopping());
    });
    EXPECT_EQ(module.run(), 0);
    EXPECT_EQ(answers(), (Strings{"3 DENY just in time"}));
    EXPECT_FALSE(kept_.at(1).is_open());
    EXPECT_EQ(kept_.at(1).pass(), APP_CG_KIT_E_STOPPED);
    kept_.clear();
}

TEST_F(Kit, AVerdictForAWithdrawnRequestIsDropped)
{
    note_withdrawals();
    serve_later([&] {
        request(3);
        withdraw(3);
        EXPECT_EQ(withdrawn_, (Strings{"3 1 none"}));
        EXPECT_EQ(kept_.at(0).deny("late"), APP_CG_KIT_E_WITHDRAWN);
        EXPECT_FALSE(fake_loop::turn());
        EXPECT_EQ(answers(), Strings{});
    });
    EXPECT_EQ(logged("6 1/3/0: the request was withdrawn"), 1U) << log();
}

TEST_F(Kit, AVerdictThatAWithdrawalOvertakesIsDroppedAndNobodyIsCalled)
{
    note_withdrawals();
    serve_later([&] {
        request(3);
        EXPECT_EQ(kept_.at(0).deny("late"), 0);
        withdraw(3);
        EXPECT_TRUE(fake_loop::turn());
        EXPECT_EQ(answers(), Strings{});
        EXPECT_EQ(withdrawn_, Strings{});
        EXPECT_EQ(kept_.at(0).pass(), APP_CG_KIT_E_WITHDRAWN);
    });
    EXPECT_EQ(logged("6 1/3/0: the request was withdrawn before the verdict was written"), 1U) << log();
}

TEST_F(Kit, AWithdrawalThatIsNotDeliveredYetIsNoticedBeforeTheAnswer)
{
    serve_later([&] {
        request(3);
        fake_store::lose("cut");
        fake_loop::deliver();
        withdraw(3); // not heard of
        fake_store::restore(true);
        EXPECT_EQ(kept_.at(0).pass(), 0);
        EXPECT_TRUE(fake_loop::turn());
        EXPECT_EQ(answers(), Strings{});
        EXPECT_EQ(logged("7 1/3/0: the request is gone; its withdrawal is under way"), 2U) << log();
    });
}

TEST_F(Kit, AnotherCardsRequestInTheSlotIsAnotherExamination)
{
    note_withdrawals();
    serve_later([&] {
        request(3, 1);
        request(3, 2);
        ASSERT_EQ(kept_.size(), 2U);
        EXPECT_EQ(withdrawn_, (Strings{"3 1 none"}));
        EXPECT_EQ(kept_[0].pass(), APP_CG_KIT_E_WITHDRAWN);
        EXPECT_EQ(kept_[1].deny("the second"), 0);
        (void)fake_loop::turn();
        EXPECT_EQ(answers(), (Strings{"3 DENY the second"}));
    });
}

// The request is the same for both cards.
TEST_F(Kit, AVerdictOnOneCardIsNotWrittenForTheNextInItsSlot)
{
    note_withdrawals();
    serve_later([&] {
        plug(3, {"old", "1"});
        request(3);
        plug(3, {"new", "1"});
        EXPECT_EQ(kept_.at(0).pass(), 0);
        (void)fake_loop::turn();
        EXPECT_EQ(answers(), Strings{});
        EXPECT_EQ(withdrawn_, (Strings{"3 1 old"}));
        EXPECT_EQ(kept_.size(), 1U) << "the deletion of its request may be under way";
        fake_loop::advance(1s);
        EXPECT_EQ(kept_.at(1).deny("the new one"), 0);
        (void)fake_loop::turn();
        EXPECT_EQ(answers(), (Strings{"3 DENY the new one"}));
    });
    EXPECT_EQ(logged("6 1/3/0: another card was plugged meanwhile, and is examined"), 1U) << log();
}

TEST_F(Kit, AnotherSerialNumberIsAnotherCard)
{
    serve_later([&] {
        plug(3, {"same", "1"});
        request(3);
        plug(3, {"same", "2"});
        EXPECT_EQ(kept_.at(0).pass(), 0);
        (void)fake_loop::turn();
        EXPECT_EQ(answers(), Strings{});
    });
}

TEST_F(Kit, ACardThatChangesOnlyItsStateIsTheSameCard)
{
    serve_later([&] {
        plug(3, {"same", "1"});
        request(3);
        plug(3, {"same", "1", 5, false});
        EXPECT_EQ(kept_.at(0).deny("as it was"), 0);
        (void)fake_loop::turn();
        EXPECT_EQ(answers(), (Strings{"3 DENY as it was"}));
    });
}

TEST_F(Kit, ACardThatLostItsInformationIsExaminedAgain)
{
    serve_later([&] {
        plug(3, {});
        request(3);
        pull(3);
        EXPECT_EQ(kept_.at(0).pass(), 0);
        (void)fake_loop::turn();
        fake_loop::advance(1s);
        EXPECT_EQ(kept_.at(1).pass(), 0);
        (void)fake_loop::turn();
        EXPECT_EQ(answers(), (Strings{"3 PASS"}));
    });
}

TEST_F(Kit, ARepeatedRequestForAnotherCardIsAnotherExamination)
{
    note_withdrawals();
    serve_later([&] {
        plug(3, {"old", "1"});
        request(3);
        exchange_unseen(3, {"new", "2"});
        ASSERT_EQ(kept_.size(), 2U);
        EXPECT_EQ(withdrawn_, (Strings{"3 1 old"}));
        EXPECT_EQ(kept_[0].pass(), APP_CG_KIT_E_WITHDRAWN);
        EXPECT_EQ(kept_[1].deny("the second"), 0);
        (void)fake_loop::turn();
        EXPECT_EQ(answers(), (Strings{"3 DENY the second"}));
    });
}

TEST_F(Kit, ARequestRepeatedWhileItIsOpenIsOneAndAfterTheAnswerAnotherOne)
{
    serve_later([&] {
        request(3);
        request(3);
        EXPECT_EQ(kept_.size(), 1U);
        EXPECT_EQ(logged("7 1/3/0 is requested again, still under examination"), 1U) << log();
        EXPECT_EQ(kept_[0].pass(), 0);
        (void)fake_loop::turn();
        EXPECT_EQ(take_answers().size(), 1U);
        request(3); // of a restarted daemon
        EXPECT_EQ(kept_.at(1).pass(), 0);
        (void)fake_loop::turn();
        EXPECT_EQ(take_answers().size(), 1U);
        withdraw(3);
        request(3);
        EXPECT_EQ(kept_.at(2).pass(), 0);
        (void)fake_loop::turn();
        EXPECT_EQ(take_answers().size(), 1U);
    });
}

TEST_F(Kit, AFunctionWithoutAVerdictIsCalledAgain)
{
    int asked = 0;
    serve(
        [&](const Card &, const Check &) -> Verdict {
            switch (asked++) {
            case 0:
                throw std::runtime_error("the sensor is busy");
            case 1:
                throw 17;
            case 2:
                return app_cg_kit::ask_again();
            case 3:
                return {4711, ""};
            default:
                return app_cg_kit::pass();
            }
        },
        [&] {
            request(3);
            for (int seconds = 1; seconds < 4; seconds++) {
                EXPECT_EQ(asked, seconds);
                fake_loop::advance(1s);
            }
            EXPECT_EQ(answers(), Strings{});
            fake_loop::advance(1s);
            EXPECT_EQ(answers(), (Strings{"3 PASS"}));
            EXPECT_EQ(fake_loop::armed_timers(), 0U);
        });
    EXPECT_EQ(logged("3 an exception left the function check: the sensor is busy"), 1U) << log();
    EXPECT_EQ(logged("3 an exception left the function check: not a std::exception"), 1U) << log();
}

TEST_F(Kit, AnExceptionOfTheOtherFunctionsEndsNothing)
{
    options_.withdrawn = [](const Card &, const Check &) { throw std::runtime_error("one"); };
    options_.card = [](const Card &, bool) { throw std::runtime_error("two"); };
    serve_later([&] {
        plug(3, {"fan"});
        request(3);
        withdraw(3);
        request(3);
        EXPECT_EQ(kept_.size(), 2U);
    });
    EXPECT_EQ(logged("3 an exception left the function withdrawn: one"), 1U) << log();
    EXPECT_EQ(logged("3 an exception left the function card: two"), 1U) << log();
}

TEST_F(Kit, ALogFunctionThatThrowsEndsNothing)
{
    bool throws = false;
    options_.log = [&, log = log_to_lines()](int level, const std::string &text) {
        log(level, text);
        if (throws) {
            throw std::runtime_error("the disk is full");
        }
    };
    testing::internal::CaptureStderr();
    serve([](const Card &, const Check &) { return app_cg_kit::deny("x"); },
          [&] {
              throws = true;
              request(3);
              EXPECT_EQ(answers(), (Strings{"3 DENY x"}));
              throws = false;
          });
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "volt: volt 1/3/0 DENY x (an exception left the function log)\n");
}

TEST_F(Kit, WithoutALogFunctionLinesGoToStandardError)
{
    options_.log = nullptr;
    options_.log_level = APP_CG_KIT_WARNING;
    testing::internal::CaptureStderr();
    serve([](const Card &, const Check &) { return app_cg_kit::deny(""); },
          [&] {
              request(3);
              fake_store::options().notice(100, "broken");
          });
    EXPECT_EQ(
        testing::internal::GetCapturedStderr(),
        "volt: warning: 1/3/0 is denied without a reason; the operator reads \"not compatible\" and cannot "
        "know what is wrong\nvolt: error: broken\n");
}

TEST_F(Kit, ReasonsAreCutAtACharacterAndMissingOnesAreWarnedOf)
{
    serve(
        [](const Card &card, const Check &) {
            return app_cg_kit::deny(card.slotid == 3   ? ""
                                    : card.slotid == 4 ? std::string(254, 'x') + "é!"
                                                       : std::string(253, 'x') + "é");
        },
        [&] {
            request(3);
            request(4);
            request(5);
            EXPECT_EQ(answers(), (Strings{"3 DENY", "4 DENY " + std::string(254, 'x'),
                                          "5 DENY " + std::string(253, 'x') + "é"}));
        });
    EXPECT_EQ(logged("4 1/3/0 is denied without a reason"), 1U) << log();
    EXPECT_EQ(logged("4 1/4/0: the reason has 257 bytes and was cut"), 1U) << log();
    EXPECT_EQ(logged("4 "), 2U) << log();
}

TEST_F(Kit, APromiseThatNobodyCanKeepIsLogged)
{
    std::optional<Check> held;
    serve(
        [&](const Card &card, const Check &check) {
            if (card.slotid == 4) {
                held = check;
            }
            return app_cg_kit::later();
        },
        [&] {
            request(3);
            EXPECT_EQ(logged("3 1/3/0: a verdict was promised for later, but nobody holds the handle"), 1U)
                << log();
            request(4);
            EXPECT_EQ(logged("released without a verdict"), 0U) << log();
            held.reset();
            EXPECT_EQ(logged("4 1/4/0: the last handle was released without a verdict; the daemon admits the "
                             "card after 300 s"),
                      1U)
                << log();
        });
}

TEST_F(Kit, TheFunctionForCardsSeesThemComeChangeAndGo)
{
    Strings seen;
    options_.card = [&](const Card &card, bool present) {
        seen.push_back(card.position() + ' ' + std::to_string(card.type) +
                       (present ? card.info->online ? " online" : " offline" : " gone"));
    };
    plug(3, {"a", "", 200});
    request(3);
    serve(
        [&](const Card &, const Check &) {
            seen.emplace_back("examined");
            return app_cg_kit::pass();
        },
        [&] {
            plug(4, {"b", "", 201});
            plug(4, {"b", "", 201, false});
            pull(3);
        });
    EXPECT_EQ(seen, (Strings{"1/3/0 200 online", "examined", "1/4/0 201 online", "1/4/0 201 offline",
                             "1/3/0 200 gone"}));
}

TEST_F(Kit, TwoModulesInOneProcessAnswerEachForItself)
{
    options_.check = [](const Card &, const Check &) { return app_cg_kit::pass(); };
    app_cg_kit::Module volt(options_);
    int lost = 0;
    options_.name = "amp";
    options_.check = [](const Card &, const Check &) { return app_cg_kit::ask_again(); };
    options_.log = [&](int, const std::string &text) { lost += text.starts_with("lost") ? 1 : 0; };
    app_cg_kit::Module amp(options_);
    fake_loop::on_run([&] {
        fake_loop::on_run([&] {
            fake_store::connect();
            fake_loop::deliver();
            request(3);
            EXPECT_EQ(answers(), (Strings{"3 PASS"}));
            fake_store::lose("cut");
            fake_loop::deliver();
        });
        EXPECT_EQ(amp.run(), 0);
    });
    EXPECT_EQ(volt.run(), 0);
    EXPECT_EQ(logged("lost the store"), 1U) << log();
    EXPECT_EQ(lost, 1);
}

} // namespace kit_test
