// Which modules the daemon asks, where the recorder can and cannot see it.
#include "recorder_fixture.h"

namespace recorder
{

using testing::Contains;
using testing::Not;

namespace
{

class ModuleListTest : public RecorderTest
{
protected:
    [[nodiscard]] std::string modules() const { return folder_.path("modules"); }
    void remove_folder() const { std::filesystem::remove_all(modules()); }
    // A file in its place can be opened as a folder by nobody, whatever his rights.
    void make_unreadable() const
    {
        remove_folder();
        std::ofstream(modules()) << "";
    }
    void make_readable() const
    {
        std::filesystem::remove(modules());
        std::filesystem::create_directory(modules());
        std::ofstream(modules() + "/m3") << "";
    }
    // The daemon that lives writes something, so that it is known which one that is.
    void hear_daemon()
    {
        deliver("app_cg_card_check_info", {{"index", {{"devid", 1}, {"slotid", 9}}}}, false,
                daemon_write(by_card(9)));
        deliver("app_cg_card_check_info", {{"index", {{"devid", 1}, {"slotid", 9}}}}, false,
                daemon_write(by_card(9)), true);
        recorder_->flush(now_);
    }
    void install(const char *module) const { std::ofstream(modules() + '/' + module) << ""; }
    // Nobody answers for a card; returns what is recorded of it.
    history::Decision miss_all(int slot)
    {
        plug(slot);
        ask(slot);
        now_ += 300s;
        time_out(slot);
        return file().decisions({.position = history::Position{1, slot, 0}}).back();
    }
    // The daemon reads its folder when its store returns, and so does the recorder.
    void store_returns()
    {
        recorder_->store_lost(1, now_);
        recorder_->store_returned(now_);
        recorder_->snapshot_done(1, now_);
    }
    void pass_quickly()
    {
        plug(3);
        ask(3);
        now_ += 1ms;
        answer(3, "m1");
        now_ += 1ms;
        answer(3, "m2");
        decide(3, true);
    }
    void expect_nothing_invented() const
    {
        const std::vector<history::Decision> decisions = file().decisions();
        ASSERT_THAT(decisions, SizeIs(1));
        EXPECT_EQ(decisions[0].outcome, Outcome::passed);
        EXPECT_EQ(decisions[0].decider, "m2");
        EXPECT_THAT(decisions[0].silent, IsEmpty());
        EXPECT_FALSE(decisions[0].complete);
        ASSERT_THAT(decisions[0].answers, SizeIs(2));
        EXPECT_TRUE(decisions[0].answers[0].registered && decisions[0].answers[1].registered);
        EXPECT_THAT(metrics(), HasSubstr("cg_cards_admitted_by_silence_total 0\n"));
    }
};

} // namespace

TEST_F(ModuleListTest, AFolderThatCannotBeReadIsNoFolderWithoutModules)
{
    make_unreadable();
    start();
    listen();
    EXPECT_THAT(log_, Contains(HasSubstr("modules cannot be read: Not a directory; which modules are "
                                         "registered is not known")));
    pass_quickly();
    expect_nothing_invented();
    EXPECT_THAT(log_, Not(Contains(HasSubstr("but the daemon asks some")))) << "it is not empty but unknown";
}

TEST_F(ModuleListTest, AListThatTheDaemonAgreesWithIsNoContradiction)
{
    start();
    listen();
    pass_quickly();
    EXPECT_THAT(log_, IsEmpty());
}

TEST_F(ModuleListTest, AMissingFolderIsBelievedUntilTheDaemonAsksSomebody)
{
    remove_folder();
    start();
    listen();
    EXPECT_THAT(log_, Contains(HasSubstr("modules is missing: no module is registered")));
    EXPECT_THAT(log_, Not(Contains(HasSubstr("but the daemon asks some"))));
    pass_quickly();
    expect_nothing_invented();
    EXPECT_THAT(log_, Contains(HasSubstr("has no modules, but the daemon asks some")));
    const std::size_t messages = log_.size();
    plug(4);
    ask(4);
    pass(10s);
    EXPECT_THAT(log_, SizeIs(messages)); // once
}

TEST_F(ModuleListTest, AMissingFolderIsOneWithoutModulesForCardsThatNobodyIsAskedAbout)
{
    remove_folder();
    start();
    listen();
    plug(3);
    decide(3, true);
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::unasked));
}

TEST_F(ModuleListTest, TheListThatWasReadLastStands)
{
    start();
    listen();
    hear_daemon();
    make_unreadable();
    store_returns();
    EXPECT_THAT(log_, Contains(HasSubstr("the list read last is still used")));
    plug(3);
    ask(3);
    answer(3, "m1");
    EXPECT_THAT(recorder_->tracker().find({1, 3, 0})->waiting_for, ElementsAre("m2"));
    now_ += 300s;
    time_out(3);
    ASSERT_EQ(outcomes().back(), Outcome::silence);
    EXPECT_THAT(file().decisions().back().silent, ElementsAre("m2"));
    EXPECT_TRUE(file().decisions().back().complete);
}

TEST_F(ModuleListTest, TheListIsRememberedInTheFile)
{
    start();
    listen();
    hear_daemon();
    kill();
    make_unreadable();
    start();
    listen();
    EXPECT_THAT(log_, Contains(HasSubstr("the list of modules is the one in the history: m")));
    plug(3);
    ask(3);
    answer(3, "stranger");
    answer(3, "m1");
    answer(3, "m2");
    decide(3, true);
    const history::Decision passed = file().decisions().back();
    EXPECT_EQ(passed.decider, "m2");
    EXPECT_TRUE(passed.complete);
    EXPECT_FALSE(passed.answers.at(0).registered);
    EXPECT_THAT(metrics(), HasSubstr("cg_module_answer_seconds_count{module=\"m1\"} 1\n"));
}

TEST_F(ModuleListTest, WhatBecomesOfTheFolderIsTold)
{
    make_unreadable();
    start();
    listen();
    log_.clear();
    store_returns();
    EXPECT_THAT(log_, IsEmpty()); // nothing new
    make_readable();
    store_returns();
    EXPECT_THAT(log_, ElementsAre(HasSubstr("modules can be read again")));
    EXPECT_TRUE(recorder_->tracker().is_module("m3"));
    EXPECT_FALSE(recorder_->tracker().is_module("m1"));
    make_unreadable();
    store_returns();
    EXPECT_THAT(log_, SizeIs(2));
}

TEST_F(ModuleListTest, TheFirstDaemonThatWritesHasReadTheFolderSince)
{
    remove_folder();
    std::filesystem::create_directory(modules());
    start();
    listen();
    for (const char *module : {"m1", "m2"}) {
        std::ofstream(modules() + '/' + module) << "";
    }
    plug(3);
    ask(3);
    EXPECT_THAT(recorder_->tracker().find({1, 3, 0})->waiting_for, testing::UnorderedElementsAre("m1", "m2"));
    EXPECT_THAT(log_, IsEmpty());
}

TEST_F(ModuleListTest, ARestartOfTheRecorderLeavesTheDaemonItsList)
{
    start();
    listen();
    hear_daemon();
    kill();
    install("m3");
    start();
    listen();
    EXPECT_THAT(log_, ElementsAre(HasSubstr("the list of modules is the one in the history: m")));
    const history::Decision silence = miss_all(3);
    EXPECT_THAT(silence.silent, testing::UnorderedElementsAre("m1", "m2"));
    EXPECT_TRUE(silence.complete);
}

TEST_F(ModuleListTest, ADaemonThatStartedMeanwhileMayHaveReadTheFolderBeforeItChanged)
{
    start();
    listen();
    hear_daemon();
    kill();
    install("m3");
    restart_daemon();
    start();
    plug(4, true);
    ask(4, true);
    listen();
    const history::Decision silence = miss_all(3);
    EXPECT_THAT(silence.silent, testing::UnorderedElementsAre("m1", "m2", "m3"));
    EXPECT_FALSE(silence.complete);
    restart_daemon();
    EXPECT_TRUE(miss_all(5).complete);
}

TEST_F(ModuleListTest, OneThatStartedMeanwhileHasTheFoldersListWhileThatIsTheSame)
{
    start();
    listen();
    hear_daemon();
    kill();
    restart_daemon();
    start();
    plug(4, true);
    ask(4, true);
    listen();
    EXPECT_TRUE(miss_all(3).complete);
    install("m3");
    store_returns();
    EXPECT_FALSE(miss_all(5).complete) << "the daemon may not have noticed";
}

TEST_F(ModuleListTest, TheFolderCountsAsItWasWhenTheDaemonStarted)
{
    start();
    listen();
    plug(3);
    ask(3);
    std::ofstream(modules() + "/m3") << "";
    pass(10s);
    plug(4);
    ask(4);
    EXPECT_FALSE(recorder_->tracker().is_module("m3")) << "this daemon does not know it";
    restart_daemon();
    ask(3);
    EXPECT_TRUE(recorder_->tracker().is_module("m3"));
    EXPECT_THAT(recorder_->tracker().find({1, 3, 0})->waiting_for, testing::Contains("m3"));
}

namespace
{

class OneModuleList : public testing::Test
{
protected:
    [[nodiscard]] std::string folder() const { return folder_.path("modules"); }
    void make(const std::vector<std::string> &names) const
    {
        std::filesystem::remove_all(folder());
        std::filesystem::create_directory(folder());
        for (const std::string &name : names) {
            std::ofstream(folder() + '/' + name) << "";
        }
    }

    cg::Folder folder_;
    std::vector<std::string> log_;
    ModuleList list_{folder(), [this](const std::string &text) { log_.push_back(text); }};
};

} // namespace

TEST_F(OneModuleList, IsCertainForADaemonThatHasJustStarted)
{
    make({"m1"});
    EXPECT_EQ(list_.list(), std::nullopt);
    EXPECT_FALSE(list_.was_read());
    list_.read();
    EXPECT_TRUE(list_.was_read());
    EXPECT_EQ(list_.list(), (history::Modules{{"m1"}, ""}));
    list_.read_for("a", false);
    EXPECT_EQ(list_.list(), (history::Modules{{"m1"}, ""})) << "it may have read another one";
    list_.read_for("a", true);
    EXPECT_EQ(list_.list(), (history::Modules{{"m1"}, "a"}));
    EXPECT_THAT(log_, IsEmpty());
}

TEST_F(OneModuleList, StaysThatOfOneLifeWhateverBecomesOfTheFolder)
{
    make({"m1"});
    list_.read_for("a", true);
    make({"m2"});
    list_.read_for("a", true);
    EXPECT_EQ(list_.list(), (history::Modules{{"m1"}, "a"}));
    list_.read(); // the store returned: the daemon may have read the folder again, too
    EXPECT_EQ(list_.list(), (history::Modules{{"m2"}, ""}));
}

TEST_F(OneModuleList, IsCertainForTheNextLifeWhileNothingChanges)
{
    make({"m1"});
    list_.read_for("a", true);
    list_.read_for("b", false);
    EXPECT_EQ(list_.list(), (history::Modules{{"m1"}, "b"}));
    make({"m2"});
    list_.read_for("c", false);
    EXPECT_EQ(list_.list(), (history::Modules{{"m2"}, ""}));
    list_.read_for("d", true);
    EXPECT_EQ(list_.list(), (history::Modules{{"m2"}, "d"}));
}

TEST_F(OneModuleList, AMissingFolderIsAnEmptyListThatIsNotRemembered)
{
    list_.read();
    EXPECT_EQ(list_.list(), (history::Modules{}));
    EXPECT_FALSE(list_.was_read());
    list_.read_for("a", true);
    EXPECT_EQ(list_.list(), (history::Modules{})) << "and the daemon may see another one";
    EXPECT_THAT(log_, SizeIs(1));
}

TEST_F(OneModuleList, WhatWasRememberedIsForWhatIsNotKnown)
{
    std::ofstream(folder()) << "";
    list_.read();
    EXPECT_EQ(list_.list(), std::nullopt);
    list_.adopt({{"m1", "m\n2"}, "a"}, "b");
    EXPECT_EQ(list_.list(), (history::Modules{{"m1", "m\n2"}, ""})) << "it is another daemon's";
    EXPECT_EQ(log_.back(), "the list of modules is the one in the history: m1, m\\n2");
    list_.adopt({{"m3"}, ""}, "");
    EXPECT_EQ(list_.list()->names, (std::vector<std::string>{"m1", "m\n2"}));
    EXPECT_THAT(log_, SizeIs(2));
    list_.read_for("c", true);
    EXPECT_EQ(list_.list()->daemon, "") << "which may have read another one";
}

TEST_F(OneModuleList, WhatWasRememberedOfTheDaemonThatLivesGoesBeforeTheFolder)
{
    make({"m1"});
    list_.read();
    const history::Modules remembered{{"m2"}, "a"};
    list_.adopt(remembered, "b");
    EXPECT_EQ(list_.list(), (history::Modules{{"m1"}, ""}));
    EXPECT_THAT(log_, IsEmpty());
    for (const char *heard : {"", "a"}) {
        make({"m1"});
        list_.read();
        list_.adopt(remembered, heard);
        EXPECT_EQ(list_.list(), remembered);
    }
    list_.read_for("b", false);
    EXPECT_EQ(list_.list(), (history::Modules{{"m1"}, ""}));
}

TEST_F(OneModuleList, WhatIsAsItWasRememberedIsCertain)
{
    make({"m1"});
    list_.read();
    list_.adopt({{"m1"}, ""}, "b");
    EXPECT_EQ(list_.list()->daemon, "");
    list_.adopt({{"m1"}, "a"}, "b");
    EXPECT_EQ(list_.list()->daemon, "b");
    EXPECT_THAT(log_, IsEmpty());
}

TEST_F(OneModuleList, ARememberedEmptyListIsNamedSo)
{
    list_.adopt({}, "");
    EXPECT_EQ(log_.back(), "the list of modules is the one in the history: none");
}

TEST_F(OneModuleList, AContradictionIsReportedOnceForEachList)
{
    list_.read();
    log_.clear();
    list_.report_contradiction();
    list_.report_contradiction();
    EXPECT_THAT(log_, SizeIs(1));
    make({"m1"});
    list_.read();
    make({});
    list_.read();
    log_.clear();
    list_.report_contradiction();
    EXPECT_THAT(log_, SizeIs(1));
}

} // namespace recorder
