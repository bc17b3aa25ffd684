// The checks that stand, as the history has them.
#include "open_checks.h"

#include <gmock/gmock.h>

#include "history/reader.h"
#include "unit/support/folder.h"

namespace recorder
{

namespace
{

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr history::Time noon = history::Time{} + 1'700'049'600s;

class OpenChecksTest : public testing::Test
{
protected:
    OpenChecksTest()
    {
        card_.card.position = {1, 3, 0};
        card_.open = true;
        card_.requested_at = noon;
        card_.waiting_for = {"m1", "m2"};
    }
    // Returns how many writes that took.
    std::size_t update(const std::vector<const admission::TrackedCard *> &cards)
    {
        const std::size_t before = writes_;
        checks_.update(cards);
        return writes_ - before;
    }
    [[nodiscard]] std::vector<history::OpenCheck> file() const
    {
        return history::Reader(folder_.path("h")).open_checks();
    }

    cg::Folder folder_;
    history::Writer writer_{folder_.path("h"), noon, [](const std::string &) {}};
    std::size_t writes_ = 0;
    OpenChecks checks_{[this](const Outbox::Write &write) {
        ++writes_;
        write(writer_);
    }};
    admission::TrackedCard card_;
};

} // namespace

TEST_F(OpenChecksTest, AreWrittenOnceAndDeletedAtTheirEnd)
{
    EXPECT_EQ(update({&card_}), 1U);
    ASSERT_THAT(file(), SizeIs(1));
    EXPECT_EQ(file()[0].requested_at, noon);
    EXPECT_EQ(update({&card_}), 0U);
    card_.open = false;
    EXPECT_EQ(update({&card_}), 1U);
    EXPECT_THAT(file(), IsEmpty());
    EXPECT_EQ(update({&card_}), 0U);
}

TEST_F(OpenChecksTest, AreWrittenWithEachThingThatChanges)
{
    update({&card_});
    card_.answers = {{"m1", 0, "", noon + 1s, true, 1000ms}};
    EXPECT_EQ(update({&card_}), 1U);
    EXPECT_THAT(file().at(0).answers, SizeIs(1));
    card_.answers[0].at = noon + 2s; // another one in its place
    EXPECT_EQ(update({&card_}), 1U);
    card_.waiting_for = {"m2"};
    EXPECT_EQ(update({&card_}), 1U);
    EXPECT_THAT(file().at(0).waiting_for, ElementsAre("m2"));
    card_.any_will_do = true;
    EXPECT_EQ(update({&card_}), 1U);
    EXPECT_TRUE(file().at(0).any_will_do);
    card_.requested_at = noon + 60s;
    EXPECT_EQ(update({&card_}), 1U);
    EXPECT_EQ(file().at(0).requested_at, noon + 60s);
}

TEST_F(OpenChecksTest, OneThatTheHistoryHasIsWrittenAgain)
{
    writer_.set_open({{{1, 3, 0}}, noon - 1s, {}, {}});
    EXPECT_EQ(update({&card_}), 1U);
    ASSERT_THAT(file(), SizeIs(1));
    EXPECT_EQ(file()[0].requested_at, noon);
}

TEST_F(OpenChecksTest, ANewFileHasThemAgain)
{
    update({&card_});
    checks_.forget();
    EXPECT_EQ(update({&card_}), 1U);
}

} // namespace recorder
