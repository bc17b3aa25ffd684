// A module with a real store, threads and processes. Its life with the daemon is tested in virtual time, in
// unit/kit/core.
#include <poll.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <iostream>
#include <map>

#include "kit_fixture.h"
#include "loop/loop.h"
#include "p_libpub.pb-c.h"
#include "store/client.h"

namespace kit_test
{

namespace
{

using app_cg_kit::Card;
using app_cg_kit::Check;

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

TEST_F(Kit, RequestsThatStandAtTheStartAreAnswered)
{
    ask("3");
    serve([](const Card &, const Check &) { return app_cg_kit::pass(); });
    EXPECT_EQ(take_answer("3")["ret"], 0);
    end();
}

TEST_F(Kit, AVerdictMayBeGivenLaterFromAnyThreadAndCountsOnce)
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
    ASSERT_TRUE(logs("is back")) << logged_.all();
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
    ASSERT_TRUE(logs("lost the store")) << logged_.all();
    EXPECT_EQ(check.deny("given in the dark"), 0);
    ASSERT_TRUE(logs("not answered yet")) << logged_.all();
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
    ASSERT_TRUE(logs("lost the store")) << logged_.all();
    start_server();
    ASSERT_TRUE(logs("1/3/0: the request was withdrawn")) << logged_.all();
    EXPECT_EQ(check.pass(), APP_CG_KIT_E_WITHDRAWN);
    ask("3"); // the daemon asks again
    EXPECT_EQ(kept(1).deny("again"), 0);
    EXPECT_EQ(take_answer("3")["reason"], "again");
    end();
}

TEST_F(Kit, AnAnswerThatTheStoreRejectsIsWrittenAgain)
{
    serve_later();
    ask("3");
    const Check check = kept(0);
    (void)tell_server("CONFIG SET maxmemory 1\r\n");
    EXPECT_EQ(check.deny("at last"), 0);
    ASSERT_TRUE(logs("4 1/3/0 is not answered yet: the answer cannot be written: ")) << logged_.all();
    EXPECT_EQ(answers(), 0U);
    (void)tell_server("CONFIG SET maxmemory 0\r\n");
    EXPECT_EQ(take_answer("3")["reason"], "at last");
    end();
}

TEST_F(Kit, AnAnswerNamesItsRequestAsItsCause)
{
    serve_later();
    ask("99"); // answered at once
    EXPECT_TRUE(logs("volt 1/99/0 PASS")) << logged_.all();
    ask("3"); // and this one later, by another thread
    EXPECT_EQ(kept(0).deny("hot"), 0);
    EXPECT_TRUE(logs("volt 1/3/0 DENY")) << logged_.all();
    platform::Loop loop("test");
    store::Client client(loop.context());
    std::vector<std::string> causes;
    EXPECT_TRUE(client.scan(1, p_libpub__app_cg_card_check_ack__descriptor, [&](store::Record &&record) {
        const store::Cause cause = record.origin().cause;
        EXPECT_EQ(cause.kind, store::Cause::Kind::record);
        causes.push_back(std::to_string(cause.revision) + ' ' + cause.key);
    }));
    std::sort(causes.begin(), causes.end());
    EXPECT_EQ(causes, (std::vector<std::string>{"1 p_libpub.app_cg_card_check_info:0:1:99:0",
                                                "2 p_libpub.app_cg_card_check_info:0:1:3:0"}));
    end();
}

TEST_F(Kit, TheStoreMayComeLater)
{
    stop_server();
    options_.check = [](const Card &, const Check &) { return app_cg_kit::pass(); };
    module_ = std::make_unique<app_cg_kit::Module>(options_);
    thread_ = std::thread([this] { result_ = module_->run(); });
    EXPECT_TRUE(logs("4 ")) << logged_.all(); // that there is no server
    start_server();
    EXPECT_TRUE(logs("6 subscribed")) << logged_.all();
    ask("3");
    EXPECT_EQ(take_answer("3")["ret"], 0);
    end();
}

TEST_F(Kit, TwoModulesInOneProcessAnswerEachForItself)
{
    app_cg_kit::Module::Options options = options_;
    Logged logged;
    options.name = "amp";
    options.log = [&](int level, const std::string &text) { logged.add(level, text); };
    options.check = [](const Card &, const Check &) { return app_cg_kit::deny("amperes"); };
    app_cg_kit::Module amp(options);
    std::thread thread([&] { EXPECT_EQ(amp.run(), 0); });
    EXPECT_TRUE(eventually([&] { return logged.has("6 subscribed; module amp"); })) << logged.all();
    serve([](const Card &, const Check &) { return app_cg_kit::pass(); });
    ask("3");
    EXPECT_EQ(take_answer("3")["ret"], 0);
    EXPECT_EQ(take_answer("3", "amp")["reason"], "amperes");
    cut_connections();
    EXPECT_TRUE(logs("is back")) << logged_.all();
    EXPECT_TRUE(eventually([&] { return logged.has("is back"); })) << logged.all();
    EXPECT_EQ(logged_.count("lost the store"), 1U) << logged_.all();
    EXPECT_EQ(logged.count("lost the store"), 1U) << logged.all();
    amp.stop();
    thread.join();
    ask("4");
    EXPECT_EQ(take_answer("4")["ret"], 0) << "the other goes on";
    end();
}

TEST_F(Kit, ANameIsUsedOnceOnAHostForOneStore)
{
    options_.check = [](const Card &, const Check &) { return app_cg_kit::pass(); };
    const auto open = [this] {
        try {
            const app_cg_kit::Module module(options_);
            return 0;
        } catch (const app_cg_kit::Error &error) {
            EXPECT_STREQ(error.what(), app_cg_kit_error_text(error.code()));
            return error.code();
        }
    };
    cg::Child other([this] {
        const app_cg_kit::Module module(options_);
        std::cout << "open" << std::endl;
        return poll(nullptr, 0, -1);
    });
    ASSERT_TRUE(other.prints("open")) << other.err();
    EXPECT_EQ(open(), APP_CG_KIT_E_TAKEN);
    EXPECT_TRUE(logged_.has("3 another module named volt runs (process " + std::to_string(other.pid()) + ")"))
        << logged_.all();
    other.send(SIGKILL);
    other.wait();
    EXPECT_EQ(open(), 0);
}

TEST_F(Kit, SignalsEndItWhenItMayHandleThem)
{
    options_.check = [](const Card &, const Check &) { return app_cg_kit::pass(); };
    for (const int signal_number : {SIGTERM, SIGINT}) {
        cg::Child module([this] {
            options_.flags = 0;
            options_.log = nullptr;
            return app_cg_kit::Module(options_).run();
        });
        ASSERT_TRUE(module.says("volt: subscribed; module volt waits for cards\n")) << module.err();
        module.send(signal_number);
        EXPECT_EQ(module.wait(), 0) << module.err();
    }
}

} // namespace kit_test
