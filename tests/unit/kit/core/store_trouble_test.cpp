// A module whose store is away, or refuses something.
#include "core/records.h"
#include "served_module.h"

namespace kit_test
{

using namespace std::chrono_literals;

TEST_F(Kit, WhatTheStoreClientSaysIsLogged)
{
    serve([](const Card &, const Check &) { return app_cg_kit::pass(); },
          [] {
              const auto &say = fake_store::options().notice;
              say(100, "an error");
              say(80, "a warning");
              say(79, "a notice");
          });
    EXPECT_EQ(logged("3 an error"), 1U) << log();
    EXPECT_EQ(logged("4 a warning"), 1U) << log();
    EXPECT_EQ(logged("7 a notice"), 1U) << log();
}

TEST_F(Kit, AVerdictThatCannotBeWrittenBeforeTheEndIsLogged)
{
    serve_later([&] {
        request(3);
        EXPECT_EQ(kept_.at(0).pass(), 0);
    });
    EXPECT_EQ(logged("4 1/3/0: the module ends before the verdict was written"), 1U) << log();
    EXPECT_EQ(answers(), Strings{});
}

TEST_F(Kit, AVerdictGivenDuringAnOutageIsWrittenOnTheReturn)
{
    serve_later([&] {
        request(3);
        fake_store::lose("the server closed the connection");
        fake_loop::deliver();
        EXPECT_EQ(logged("4 lost the store, database 1 (the server closed the connection); reconnecting"), 1U)
            << log();
        const std::size_t reads = fake_store::reads();
        EXPECT_EQ(kept_.at(0).deny("given in the dark"), 0);
        (void)fake_loop::turn();
        fake_loop::advance(5s);
        EXPECT_EQ(fake_store::reads(), reads) << "a call would wait for the store";
        EXPECT_EQ(logged("4 1/3/0 is not answered yet: the store cannot be read: Transport endpoint is not "
                         "connected; trying again"),
                  1U)
            << "once: " << log();
        fake_store::restore(true);
        fake_loop::deliver();
        EXPECT_EQ(answers(), (Strings{"3 DENY given in the dark"}));
        EXPECT_EQ(logged("6 the store is back, database 1"), 1U) << log();
        EXPECT_EQ(logged("perhaps with other data"), 0U) << log();
    });
}

TEST_F(Kit, WhatStandsAfterALossOfDataIsAnsweredAgain)
{
    int asked = 0;
    serve(
        [&](const Card &, const Check &) {
            asked++;
            return app_cg_kit::pass();
        },
        [&] {
            request(3);
            EXPECT_EQ(take_answers().size(), 1U);
            fake_store::lose("");
            fake_store::restore(true);
            fake_loop::deliver();
            EXPECT_EQ(asked, 1);
            fake_store::lose("");
            fake_store::restore(false);
            fake_loop::deliver();
            EXPECT_EQ(take_answers(), (Strings{"3 PASS"}));
            EXPECT_EQ(asked, 2);
        });
    EXPECT_EQ(logged("4 lost the store, database 1; reconnecting"), 2U) << log();
    EXPECT_EQ(
        logged(
            "the store is back, database 1, perhaps with other data; standing requests are answered again"),
        1U)
        << log();
}

TEST_F(Kit, ACardThatCannotBeReadIsExaminedWhenItCan)
{
    int asked = 0;
    serve(
        [&](const Card &card, const Check &) {
            asked++;
            EXPECT_TRUE(card.info);
            return app_cg_kit::pass();
        },
        [&] {
            plug(3, {"fan"});
            fake_store::refuse_reads("NOPERM");
            request(3);
            fake_loop::advance(2s);
            EXPECT_EQ(asked, 0);
            EXPECT_EQ(logged("4 1/3/0 is not examined yet: the card's information cannot be read: NOPERM; "
                             "trying again"),
                      1U)
                << log();
            fake_store::refuse_reads("");
            fake_loop::advance(999ms);
            EXPECT_EQ(asked, 0);
            fake_loop::advance(1ms);
            EXPECT_EQ(asked, 1);
            EXPECT_EQ(answers(), (Strings{"3 PASS"}));
        });
}

TEST_F(Kit, AnAnswerThatTheStoreRejectsIsWrittenAgain)
{
    serve([](const Card &, const Check &) { return app_cg_kit::deny("hot"); },
          [&] {
              fake_store::refuse_writes("OOM");
              request(3);
              request(4);
              fake_loop::advance(1s);
              EXPECT_EQ(
                  logged("4 1/3/0 is not answered yet: the answer cannot be written: OOM; trying again"), 2U)
                  << log();
              fake_store::refuse_writes("");
              fake_loop::advance(1s);
              EXPECT_EQ(take_answers(), (Strings{"3 DENY hot", "4 DENY hot"}));
              fake_store::refuse_writes("OOM");
              request(3);
              EXPECT_EQ(logged("1/3/0 is not answered yet"), 3U) << "a new problem: " << log();
              fake_loop::advance(10s);
              EXPECT_EQ(logged("1/3/0 is not answered yet"), 3U) << "the same: " << log();
          });
}

TEST_F(Kit, AnAnswerWaitsWhileTheStoreCannotBeRead)
{
    serve_later([&] {
        request(3);
        fake_store::refuse_reads("LOADING");
        EXPECT_EQ(kept_.at(0).pass(), 0);
        (void)fake_loop::turn();
        EXPECT_EQ(answers(), Strings{});
        EXPECT_EQ(logged("4 1/3/0 is not answered yet: the store cannot be read: LOADING"), 1U) << log();
        fake_store::refuse_reads("");
        fake_loop::advance(1s);
        EXPECT_EQ(answers(), (Strings{"3 PASS"}));
    });
}

TEST_F(Kit, RecordsThatDoNotDecodeAreLogged)
{
    options_.card = [](const Card &, bool) { ADD_FAILURE() << "no card"; };
    serve([](const Card &, const Check &) { return app_cg_kit::pass(); },
          [] {
              fake_store::deliver_undecodable(kit::request_type(), "field 6");
              fake_store::deliver_undecodable(kit::card_type(), "field 7");
          });
    EXPECT_EQ(logged("3 a check request could not be read: field 6"), 1U) << log();
    EXPECT_EQ(logged("3 a card's information could not be read: field 7"), 1U) << log();
}

TEST_F(Kit, ADeletedRequestIsWithdrawnEvenIfItDoesNotDecode)
{
    note_withdrawals();
    serve_later([&] {
        const std::string key = std::string(kit::request_type().name) + ':';
        request(3);
        request(4);
        fake_store::deliver_undecodable(kit::request_type(), "field 6", VX_MOM_CMD_DELETED, key + '4');
        EXPECT_EQ(withdrawn_, (Strings{"4 1 none"}));
        EXPECT_TRUE(kept_.front().is_open());
        fake_store::deliver_undecodable(kit::request_type(), "field 6", VX_MOM_CMD_DELETED, key + '5');
        EXPECT_EQ(withdrawn_.size(), 1U);
    });
    EXPECT_EQ(logged("could not be read"), 0U) << log();
}

TEST_F(Kit, ASubscriptionThatIsRefusedIsLogged)
{
    fake_store::refuse_subscription("no such database");
    serve([](const Card &, const Check &) { return app_cg_kit::pass(); }, [] {});
    EXPECT_EQ(logged("3 cannot subscribe to the check requests: no such database"), 1U) << log();
}

TEST_F(Kit, WhyItCannotServeIsLogged)
{
    options_.check = [](const Card &, const Check &) { return app_cg_kit::pass(); };
    {
        app_cg_kit::Module module(options_);
        fake_store::refuse_connection("no endpoint");
        EXPECT_EQ(module.run(), APP_CG_KIT_E_SYSTEM);
        EXPECT_EQ(logged("3 no connection to the store can be made: no endpoint"), 1U) << log();
        fake_store::refuse_connection("");
    }
    app_cg_kit::Module module(options_);
    fake_loop::fail_run("the loop is broken");
    EXPECT_EQ(module.run(), APP_CG_KIT_E_SYSTEM);
    EXPECT_EQ(logged("3 cannot serve: the loop is broken"), 1U) << log();
    EXPECT_EQ(module.run(), APP_CG_KIT_E_STOPPED) << "it runs once";
}

} // namespace kit_test
