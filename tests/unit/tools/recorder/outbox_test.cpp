// What waits to be written, while it can and cannot be.
#include "outbox.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "database.h"
#include "history/reader.h"
#include "unit/support/folder.h"

namespace recorder
{

namespace
{

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

constexpr history::Time noon = history::Time{} + 1'700'049'600s;

history::Decision silence_of(const std::string &module)
{
    history::Decision decision;
    decision.card.position = {1, 3, 0};
    decision.outcome = history::Outcome::silence;
    decision.decided_at = noon;
    decision.silent = {module};
    return decision;
}

} // namespace

TEST(OutboxTest, KeepsWhatCannotBeWrittenAndWritesItInOrder)
{
    const cg::Folder folder;
    std::vector<std::string> log;
    int failures = 0;
    Outbox outbox(
        folder.path("h"), noon, [&](const std::string &text) { log.push_back(text); }, [&] { ++failures; });
    {
        const history::Database other(folder.path("h"), history::Database::Access::write);
        const history::Transaction held(other);
        outbox.put([](history::Writer &writer) { writer.add(silence_of("m1")); }, noon);
        outbox.put([](history::Writer &writer) { writer.add(silence_of("m2")); }, noon);
        EXPECT_EQ(outbox.waiting(), 2U);
    }
    outbox.flush(noon);
    EXPECT_EQ(outbox.waiting(), 0U);
    EXPECT_EQ(failures, 1); // while one waits the next is not tried
    EXPECT_THAT(log, ElementsAre(HasSubstr("database is locked; retrying"), "the history is written again"));
    const std::vector<history::Decision> written = history::Reader(folder.path("h")).decisions();
    ASSERT_THAT(written, SizeIs(2));
    EXPECT_THAT(written[1].silent, ElementsAre("m2"));
}

TEST(OutboxTest, AFileThatStaysLockedIsNotWrittenAgain)
{
    const cg::Folder folder;
    std::vector<std::string> log;
    {
        const history::Writer made(folder.path("h"), noon, [](const std::string &) {});
    }
    const history::Database other(folder.path("h"), history::Database::Access::write);
    const history::Transaction held(other);
    Outbox outbox(
        folder.path("h"), noon, [&](const std::string &text) { log.push_back(text); }, [] {});
    EXPECT_FALSE(outbox.is_open());
    EXPECT_FALSE(outbox.flush(noon)) << "nothing waits, but it is not open";
    EXPECT_THAT(log, ElementsAre(HasSubstr("retrying")));
}

TEST(OutboxTest, ADamagedFileIsMovedAsideWhileItRuns)
{
    const cg::Folder folder;
    std::vector<std::string> log;
    Outbox outbox(
        folder.path("h"), noon, [&](const std::string &text) { log.push_back(text); }, [] {});
    bool first = true;
    outbox.put(
        [&](history::Writer &writer) {
            if (std::exchange(first, false)) {
                // Else the log would heal it when the file is closed.
                history::Database(folder.path("h"), history::Database::Access::write)
                    .run("PRAGMA wal_checkpoint(TRUNCATE)");
                std::ofstream(folder.path("h")) << std::string(500'000, 'x');
                throw history::Error("damaged", history::Error::Kind::damaged);
            }
            writer.add(silence_of("m1"));
        },
        noon);
    EXPECT_EQ(outbox.waiting(), 1U);
    outbox.flush(noon);
    EXPECT_EQ(outbox.waiting(), 0U);
    EXPECT_THAT(log, testing::Contains(HasSubstr("it was moved to")));
    EXPECT_THAT(history::Reader(folder.path("h")).decisions(), SizeIs(1));
}

TEST(OutboxTest, WhatComesFirstGoesBeforeWhatWaitsWithEachOpening)
{
    const cg::Folder folder;
    std::vector<int> written;
    int openings = 0;
    Outbox outbox(
        folder.path("h"), noon, [](const std::string &) {}, [] {});
    const auto number = [&](int value) {
        return [&written, value](history::Writer &) { written.push_back(value); };
    };
    outbox.on_open([&](history::Writer &, const std::optional<history::Gap> &) {
        outbox.put(number(10 * ++openings), noon);
        outbox.put(number(10 * openings + 1), noon);
    });
    EXPECT_EQ(openings, 1);
    outbox.put(number(1), noon);
    EXPECT_TRUE(outbox.flush(noon));
    EXPECT_THAT(written, ElementsAre(10, 11, 1));
    bool damaged = true;
    outbox.put(
        [&](history::Writer &) {
            if (std::exchange(damaged, false)) {
                throw history::Error("damaged", history::Error::Kind::damaged);
            }
            written.push_back(2);
        },
        noon);
    EXPECT_FALSE(outbox.is_open());
    EXPECT_TRUE(outbox.flush(noon));
    EXPECT_THAT(written, ElementsAre(10, 11, 1, 20, 21, 2));
}

TEST(OutboxTest, ADisplacedFileIsOpenedAgainUntilThatWorks)
{
    const cg::Folder folder;
    std::vector<std::string> log;
    std::vector<std::optional<history::Gap>> told;
    bool broken = false;
    Outbox outbox(
        folder.path("h"), noon, [&](const std::string &text) { log.push_back(text); }, [] {});
    outbox.on_open([&](history::Writer &, const std::optional<history::Gap> &displaced) {
        told.push_back(displaced);
        if (broken) {
            throw history::Error("held", history::Error::Kind::passing);
        }
    });
    EXPECT_TRUE(outbox.flush(noon + 1s));
    std::filesystem::remove(folder.path("h"));
    outbox.put([](history::Writer &writer) { writer.add(silence_of("m1")); }, noon + 2s);
    EXPECT_EQ(outbox.waiting(), 1U) << "it would be lost in the former file";
    EXPECT_THAT(log, ElementsAre(HasSubstr("the history was deleted or moved and is opened again: ")));
    broken = true;
    EXPECT_FALSE(outbox.flush(noon + 3s));
    broken = false;
    EXPECT_TRUE(outbox.flush(noon + 5s));
    EXPECT_THAT(history::Reader(folder.path("h")).decisions(), SizeIs(1));
    ASSERT_THAT(told, SizeIs(3));
    EXPECT_EQ(told[0], std::nullopt);
    for (const auto &gap : {told[1], told[2]}) {
        EXPECT_EQ(gap->from, noon + 1s);
        EXPECT_EQ(gap->until, noon + 2s) << "nothing is lost after that";
        EXPECT_EQ(gap->why, "the history was deleted or moved");
    }
}

TEST(OutboxTest, AFileThatCannotBeResumedIsNotOpen)
{
    const cg::Folder folder;
    Outbox outbox(
        folder.path("h"), noon, [](const std::string &) {}, [] {});
    bool broken = true;
    outbox.on_open([&](history::Writer &, const std::optional<history::Gap> &) {
        outbox.put([](history::Writer &writer) { writer.add(silence_of("m2")); }, noon);
        if (broken) {
            throw history::Error("held", history::Error::Kind::passing);
        }
    });
    EXPECT_FALSE(outbox.is_open());
    outbox.put([](history::Writer &writer) { writer.add(silence_of("m1")); }, noon);
    EXPECT_FALSE(outbox.flush(noon));
    broken = false;
    EXPECT_TRUE(outbox.flush(noon));
    const std::vector<history::Decision> written = history::Reader(folder.path("h")).decisions();
    ASSERT_THAT(written, SizeIs(2)) << "what an attempt put that failed is dropped";
    EXPECT_THAT(written[0].silent, ElementsAre("m2"));
}

TEST(OutboxTest, WhatIsTooMuchForMemoryLeavesAGap)
{
    const cg::Folder folder;
    Outbox outbox(
        folder.path("h"), noon, [](const std::string &) {}, [] {});
    bool broken = true;
    for (std::size_t i = 0; i < most_waiting + 5; ++i) {
        outbox.put(
            [&](history::Writer &) {
                if (broken) {
                    throw history::Error("full", history::Error::Kind::passing);
                }
            },
            noon);
    }
    EXPECT_EQ(outbox.waiting(), most_waiting);
    broken = false;
    outbox.flush(noon);
    const std::vector<history::Gap> gaps = history::Reader(folder.path("h")).gaps({}, {});
    ASSERT_THAT(gaps, SizeIs(1));
    EXPECT_THAT(gaps[0].why, HasSubstr("decisions were lost"));
}

TEST(OutboxTest, TheGapIsNotLostItselfHoweverMuchIs)
{
    const cg::Folder folder;
    std::vector<std::string> log;
    Outbox outbox(
        folder.path("h"), noon, [&](const std::string &text) { log.push_back(text); }, [] {});
    bool broken = true;
    std::size_t written = 0;
    const auto put = [&](std::size_t count, history::Time at) {
        for (std::size_t i = 0; i < count; ++i) {
            outbox.put(
                [&](history::Writer &) {
                    if (broken) {
                        throw history::Error("held", history::Error::Kind::passing);
                    }
                    ++written;
                },
                at);
        }
    };
    put(most_waiting, noon);
    put(most_waiting, noon + 1s);
    put(1, noon + 5s);
    broken = false;
    EXPECT_TRUE(outbox.flush(noon + 6s));
    EXPECT_EQ(written, most_waiting);
    std::vector<history::Gap> gaps = history::Reader(folder.path("h")).gaps({}, {});
    ASSERT_THAT(gaps, SizeIs(1));
    EXPECT_EQ(gaps[0].from, noon + 1s);
    EXPECT_EQ(gaps[0].until, noon + 5s);
    EXPECT_THAT(log, SizeIs(3)); // it fails, it loses, it is written again
    broken = true;
    put(most_waiting + 1, noon + 7s);
    broken = false;
    EXPECT_TRUE(outbox.flush(noon + 8s));
    EXPECT_THAT(history::Reader(folder.path("h")).gaps({}, {}), SizeIs(2)); // another hole
}

} // namespace recorder
