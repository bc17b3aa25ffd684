// What the recorder knows of the daemon's registry of modules, above all that it is empty.
#include "recorder_fixture.h"

namespace recorder
{

namespace
{

using testing::Contains;
using testing::Not;
using testing::UnorderedElementsAre;

// The folder's order is the file system's.
const testing::Matcher<std::string> &is_loss()
{
    static const std::string text =
        "no module is registered any more, and every card is admitted unchecked; before: ";
    static const testing::Matcher<std::string> either =
        testing::AnyOf(text + "m1, m2; run `cgctl doctor`", text + "m2, m1; run `cgctl doctor`");
    return either;
}

class RegistryTest : public RecorderTest
{
protected:
    // The daemon admits a card by its information, since it has nobody to ask.
    void admit_unasked(int slot)
    {
        plug(slot);
        cause_.erase(slot);
        result(slot, true);
    }
    void pass_by_all(int slot)
    {
        plug(slot);
        ask(slot);
        answer(slot, "m1");
        answer(slot, "m2");
        decide(slot, true);
    }
    void expect_registered(int modules) const
    {
        EXPECT_THAT(metrics(), HasSubstr("\ncg_modules_registered " + std::to_string(modules) + "\n"));
    }
    void remove_modules() const
    {
        std::filesystem::remove(folder_.path("modules/m1"));
        std::filesystem::remove(folder_.path("modules/m2"));
    }
};

} // namespace

TEST_F(RegistryTest, IsTheFolderUntilTheDaemonShowsThatItIsNot)
{
    start();
    listen();
    expect_registered(2);
    pass_by_all(3);
    expect_registered(2);
    admit_unasked(4);
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::passed, Outcome::unasked));
    expect_registered(0);
    admit_unasked(5);
    EXPECT_THAT(log_, ElementsAre(is_loss())) << "once";
    pass_by_all(6);
    expect_registered(2);
    admit_unasked(7);
    EXPECT_THAT(log_, ElementsAre(is_loss(), is_loss())) << "it was lost again";
}

TEST_F(RegistryTest, TheNextDaemonMayHaveReadItsFolder)
{
    start();
    listen();
    admit_unasked(3);
    expect_registered(0);
    restart_daemon();
    plug(4);
    ask(4);
    expect_registered(2);
    restart_daemon();
    admit_unasked(5);
    expect_registered(0);
}

TEST_F(RegistryTest, AFolderThatIsEmptiedIsReportedWithWhatItHad)
{
    start();
    listen();
    pass_by_all(3);
    remove_modules();
    recorder_->store_lost(1, now_);
    recorder_->store_returned(now_);
    expect_registered(0);
    EXPECT_THAT(log_, Contains(is_loss()));
    kill();
    log_.clear();
    now_ += 10s;
    start();
    EXPECT_THAT(log_, Contains(is_loss())) << "the file knows it";
    EXPECT_THAT(file().registered_before(), UnorderedElementsAre("m1", "m2"));
    listen();
    std::filesystem::remove(folder_.path("h"));
    pass(2s);
    EXPECT_THAT(file().registered_before(), UnorderedElementsAre("m1", "m2")) << "the next one too";
}

TEST_F(RegistryTest, ADeviceThatNeverHadAModuleLosesNone)
{
    remove_modules();
    start();
    listen();
    admit_unasked(3);
    expect_registered(0);
    EXPECT_THAT(log_, IsEmpty());
    EXPECT_THAT(file().registered_before(), IsEmpty());
}

TEST_F(RegistryTest, WithoutAListNothingIsShown)
{
    std::filesystem::remove_all(folder_.path("modules"));
    std::ofstream(folder_.path("modules")) << "no folder"; // which cannot be read
    start();
    listen();
    EXPECT_THAT(metrics(), Not(HasSubstr("\ncg_modules_registered ")));
    admit_unasked(3);
    expect_registered(0);
}

} // namespace recorder
