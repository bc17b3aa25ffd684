// The recorder's parts: the daemon's notes, the outbox, the metrics, the options.
#include <gmock/gmock.h>
#include <prometheus/text_serializer.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "base/failure.h"
#include "database.h"
#include "history/reader.h"
#include "life_file.h"
#include "metrics.h"
#include "options.h"
#include "outbox.h"
#include "unit/support/folder.h"

namespace recorder
{

namespace
{

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr history::Time noon = history::Time{} + 1'700'049'600s;

class LifeFileTest : public testing::Test
{
protected:
    void append(const std::string &text) const { std::ofstream(path_, std::ios::app) << text; }
    static std::vector<std::string> statuses(LifeFile &file)
    {
        std::vector<std::string> found;
        for (const LifeLine &line : file.poll()) {
            found.push_back(line.event.is_start ? "start" : line.event.status);
        }
        return found;
    }

    cg::Folder folder_;
    std::string path_ = folder_.path("life");
};

std::string text_of(const Metrics &metrics)
{
    std::ostringstream out;
    prometheus::TextSerializer().Serialize(out, metrics.registry()->Collect());
    return out.str();
}

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

TEST(LifeLines, AreTakenOrPassedOver)
{
    EXPECT_EQ(parse_life("1700049600000 start 42")->pid, 42);
    EXPECT_EQ(parse_life("1700049600000 start 42")->at, noon);
    EXPECT_EQ(parse_life("1700049600000 exit killed KILL")->status, "KILL");
    for (const char *line :
         {"", "x start 1", "1 start", "1 start 1 2", "1 exit exited", "1 exit a b c", "1 exit exited 7\033",
          "-1 start 1", "1 sleep 1", "1 exit exited 01234567890123456789"}) {
        EXPECT_FALSE(parse_life(line)) << line;
    }
}

TEST_F(LifeFileTest, TellsWhatIsAppendedInWholeLines)
{
    LifeFile file(path_);
    EXPECT_THAT(file.poll(), IsEmpty());
    EXPECT_FALSE(file.is_readable());
    append("1 start 42\nrubbish\n2 exit exi");
    EXPECT_THAT(statuses(file), ElementsAre("start"));
    EXPECT_TRUE(file.is_readable());
    append("ted 77\n");
    EXPECT_THAT(statuses(file), ElementsAre("77"));
    EXPECT_THAT(statuses(file), IsEmpty());
}

TEST_F(LifeFileTest, TellsWhatIsBehindALineAndWhetherTheDaemonRuns)
{
    append("1 start 42\n2 exit exited 1\n3 start 43\n");
    LifeFile file(path_);
    const std::vector<LifeLine> lines = file.poll();
    EXPECT_EQ(file.last_line(), "3 start 43");
    EXPECT_TRUE(file.tells_of_running());
    ASSERT_THAT(lines_behind("2 exit exited 1", lines), SizeIs(1));
    EXPECT_EQ(lines_behind("2 exit exited 1", lines)[0].text, "3 start 43");
    EXPECT_THAT(lines_behind("3 start 43", lines), IsEmpty());
    EXPECT_THAT(lines_behind("0 start 7", lines), SizeIs(3));
    EXPECT_THAT(lines_behind("", lines), SizeIs(3));
    append("4 exit killed KILL\n");
    EXPECT_THAT(statuses(file), ElementsAre("KILL"));
    EXPECT_FALSE(file.tells_of_running());
    ASSERT_EQ(unlink(path_.c_str()), 0);
    EXPECT_THAT(file.poll(), IsEmpty());
    EXPECT_FALSE(file.tells_of_running());
}

TEST(LifeLines, TwoStartsInARowAreAnEndThatNobodyNoted)
{
    const LifeLine start{{noon, true, 42, "", ""}, "1 start 42"};
    const LifeLine exit{{noon, false, 0, "exited", "77"}, "2 exit exited 77"};
    EXPECT_FALSE(tell_of_an_end("", {}));
    EXPECT_FALSE(tell_of_an_end("", {start}));
    EXPECT_FALSE(tell_of_an_end("0 exit exited 77", {start}));
    EXPECT_TRUE(tell_of_an_end("0 start 41", {start}));
    EXPECT_TRUE(tell_of_an_end("", {start, start}));
    EXPECT_TRUE(tell_of_an_end("0 start 41", {exit}));
}

TEST_F(LifeFileTest, NoticesATruncatedAndAReplacedFile)
{
    append("1 start 42\n2 exit exited 1\n");
    LifeFile file(path_);
    EXPECT_THAT(statuses(file), SizeIs(2));
    ASSERT_EQ(truncate(path_.c_str(), 0), 0);
    append("3 start 43\n");
    EXPECT_THAT(statuses(file), ElementsAre("start"));
    std::ofstream(path_ + ".new") << "3 start 43\n4 exit exited 2\n";
    ASSERT_EQ(rename((path_ + ".new").c_str(), path_.c_str()), 0);
    EXPECT_THAT(statuses(file), ElementsAre("2"));
}

TEST_F(LifeFileTest, ALineThatIsTooLongIsPassedOver)
{
    const std::size_t most = std::size_t{256} << 10U; // that is read at once
    append("1 start 42\n" + std::string(2 * most, 'x'));
    LifeFile file(path_);
    EXPECT_THAT(statuses(file), ElementsAre("start"));
    EXPECT_FALSE(file.met_overlong_line()) << "it may still be";
    EXPECT_THAT(statuses(file), IsEmpty());
    EXPECT_TRUE(file.met_overlong_line());
    EXPECT_THAT(statuses(file), IsEmpty());
    append("1 start 43");
    EXPECT_THAT(statuses(file), IsEmpty());
    append("\n2 exit exited 77\n3 start");
    EXPECT_THAT(statuses(file), ElementsAre("77")) << "the end of the long one is none of ours";
    append(" 44\n");
    EXPECT_THAT(statuses(file), ElementsAre("start"));
}

TEST_F(LifeFileTest, ALongLineEndsWithItsFile)
{
    append(std::string(std::size_t{300} << 10U, 'x'));
    LifeFile file(path_);
    EXPECT_THAT(statuses(file), IsEmpty());
    ASSERT_EQ(truncate(path_.c_str(), 0), 0);
    append("1 start 42\n");
    EXPECT_THAT(statuses(file), ElementsAre("start"));
}

TEST_F(LifeFileTest, APipeInItsPlaceHoldsNobodyUp)
{
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    LifeFile file(path_);
    EXPECT_THAT(file.poll(), IsEmpty());
    EXPECT_FALSE(file.is_readable());
}

TEST(OutboxTest, KeepsWhatCannotBeWrittenAndWritesItInOrder)
{
    const cg::Folder folder;
    std::vector<std::string> told;
    int failures = 0;
    Outbox outbox(
        folder.path("h"), noon, [&](const std::string &text) { told.push_back(text); }, [&] { ++failures; });
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
    EXPECT_THAT(told, ElementsAre(HasSubstr("database is locked; it is tried again"),
                                  "the history is written again"));
    const std::vector<history::Decision> written = history::Reader(folder.path("h")).decisions();
    ASSERT_THAT(written, SizeIs(2));
    EXPECT_THAT(written[1].silent, ElementsAre("m2"));
}

TEST(OutboxTest, ADamagedFileIsMovedAsideWhileItRuns)
{
    const cg::Folder folder;
    std::vector<std::string> told;
    Outbox outbox(
        folder.path("h"), noon, [&](const std::string &text) { told.push_back(text); }, [] {});
    bool first = true;
    outbox.put(
        [&](history::Writer &writer) {
            if (std::exchange(first, false)) {
                // Else the log would heal it when the file is closed.
                history::Database(folder.path("h"), history::Database::Access::write)
                    .run("PRAGMA wal_checkpoint(TRUNCATE)");
                std::ofstream(folder.path("h")) << std::string(50'000, 'x');
                throw history::Error("damaged", history::Error::Kind::damaged);
            }
            writer.add(silence_of("m1"));
        },
        noon);
    EXPECT_EQ(outbox.waiting(), 1U);
    outbox.flush(noon);
    EXPECT_EQ(outbox.waiting(), 0U);
    EXPECT_THAT(told, testing::Contains(HasSubstr("it was moved to")));
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
    outbox.on_open([&](history::Writer &) {
        outbox.put_first({number(10 * ++openings), number(10 * openings + 1)});
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

TEST(OutboxTest, AFileThatCannotBeTakenUpIsNotOpen)
{
    const cg::Folder folder;
    Outbox outbox(
        folder.path("h"), noon, [](const std::string &) {}, [] {});
    bool broken = true;
    outbox.on_open([&](history::Writer &) {
        if (broken) {
            throw history::Error("held", history::Error::Kind::passing);
        }
    });
    EXPECT_FALSE(outbox.is_open());
    outbox.put([](history::Writer &writer) { writer.add(silence_of("m1")); }, noon);
    EXPECT_FALSE(outbox.flush(noon));
    broken = false;
    EXPECT_TRUE(outbox.flush(noon));
    EXPECT_THAT(history::Reader(folder.path("h")).decisions(), SizeIs(1));
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
    std::vector<std::string> told;
    Outbox outbox(
        folder.path("h"), noon, [&](const std::string &text) { told.push_back(text); }, [] {});
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
    EXPECT_THAT(told, SizeIs(3)); // it fails, it loses, it is written again
    broken = true;
    put(most_waiting + 1, noon + 7s);
    broken = false;
    EXPECT_TRUE(outbox.flush(noon + 8s));
    EXPECT_THAT(history::Reader(folder.path("h")).gaps({}, {}), SizeIs(2)); // another hole
}

TEST_F(LifeFileTest, TheLastEnd)
{
    const auto lines = [](const std::vector<std::string> &texts) {
        std::vector<LifeLine> all;
        all.reserve(texts.size());
        for (const std::string &text : texts) {
            all.push_back({parse_life(text).value(), text});
        }
        return all;
    };
    const auto at = [](int64_t ms) { return history::Time(std::chrono::milliseconds(ms)); };
    EXPECT_EQ(last_end("", {}), std::nullopt);
    EXPECT_EQ(last_end("10 start 1", {}), std::nullopt);
    EXPECT_EQ(last_end("10 exit exited 0", lines({"20 start 2"})), at(10));
    EXPECT_EQ(last_end("10 start 1", lines({"20 start 2"})), at(20)); // nobody could note the first one's
    EXPECT_EQ(last_end("10 start 1", lines({"20 exit exited 0", "15 start 2", "16 exit exited 0"})),
              at(20)); // a clock was set
    EXPECT_EQ(last_end("", lines({"10 start 1"})), std::nullopt);
}

TEST(MetricsTest, AStrangersNameMakesNoSeries)
{
    Metrics metrics;
    metrics.set_modules({"m1", "a\"b\n"});
    history::Decision denied = silence_of("evil");
    denied.answers = {{"stranger", -1, "", noon, false, 500ms}, {"m1", 0, "", noon, true, 250s}};
    metrics.count(denied);
    metrics.count(silence_of("m1"));
    const std::string text = text_of(metrics);
    EXPECT_THAT(text, Not(HasSubstr("evil")));
    EXPECT_THAT(text, Not(HasSubstr("stranger")));
    EXPECT_THAT(text, HasSubstr("cg_admissions_by_silence_total{module=\"other\"} 1\n"));
    EXPECT_THAT(text, HasSubstr("cg_admissions_by_silence_total{module=\"m1\"} 1\n"));
    EXPECT_THAT(text, HasSubstr("cg_admissions_by_silence_total{module=\"a\\\"b\\\\n\"} 0\n"));
    EXPECT_THAT(text, HasSubstr("cg_cards_admitted_by_silence_total 2\n"));
    EXPECT_THAT(text, HasSubstr("cg_decisions_total{decider=\"\",outcome=\"silence\"} 2\n"));
    EXPECT_THAT(text, HasSubstr("cg_module_answer_seconds_bucket{module=\"m1\",le=\"240\"} 0\n"));
    EXPECT_THAT(text, HasSubstr("cg_module_answer_seconds_bucket{module=\"m1\",le=\"300\"} 1\n"));
}

TEST(MetricsTest, ACheckThatWasCutOffIsNobodysDecisionAndNobodysSilence)
{
    Metrics metrics;
    metrics.set_modules({"m1", "m2"});
    history::Decision decision = silence_of("m2");
    decision.outcome = history::Outcome::withdrawn;
    decision.reason = admission::started_afresh;
    decision.answers = {{"m1", 0, "", noon, true, 1s}};
    metrics.count(decision);
    const std::string text = text_of(metrics);
    EXPECT_THAT(text, HasSubstr("cg_decisions_total{decider=\"\",outcome=\"withdrawn\"} 1\n"));
    EXPECT_THAT(text, HasSubstr("cg_admissions_by_silence_total{module=\"m2\"} 0\n"));
    EXPECT_THAT(text, HasSubstr("cg_cards_admitted_by_silence_total 0\n"));
    EXPECT_THAT(text, HasSubstr("cg_module_answer_seconds_count{module=\"m1\"} 1\n"));
}

TEST(MetricsTest, AnAnswerThatWasToldBeforeIsNotCountedAgain)
{
    Metrics metrics;
    metrics.set_modules({"m1"});
    history::Decision decision = silence_of("m2");
    decision.answers = {{"m1", 1, "no", noon, true, 1s}};
    metrics.count(decision);
    const history::Answer late{"m1", 0, "", noon + 2s, true, 3s};
    decision.answers.push_back(late);
    metrics.count(late);
    decision.told_before = 2;
    metrics.count(decision);
    EXPECT_THAT(text_of(metrics), HasSubstr("cg_module_answer_seconds_count{module=\"m1\"} 2\n"));
}

TEST(MetricsTest, WhetherTheStoreIsThere)
{
    Metrics metrics;
    EXPECT_THAT(text_of(metrics), HasSubstr("cg_store_connected 0\n"));
    metrics.show_store(true);
    EXPECT_THAT(text_of(metrics), HasSubstr("cg_store_connected 1\n"));
    metrics.show_store(false);
    EXPECT_THAT(text_of(metrics), HasSubstr("cg_store_connected 0\n"));
}

TEST(MetricsTest, TheDaemonsEndsByStatus)
{
    EXPECT_EQ(exit_label({{}, false, 0, "exited", "77"}), "77");
    EXPECT_EQ(exit_label({{}, false, 0, "killed", "KILL"}), "KILL");
    EXPECT_EQ(exit_label({{}, false, 0, "exited", "4711"}), "other");
    EXPECT_EQ(exit_label({{}, false, 0, "killed", "WHATEVER"}), "other");
    Metrics metrics;
    EXPECT_THAT(text_of(metrics), HasSubstr("cg_daemon_exits_total{status=\"77\"} 0\n"));
}

TEST(OptionsTest, DefaultsAndMistakes)
{
    std::ostringstream out;
    const auto options = parse_options({}, out);
    ASSERT_TRUE(options);
    EXPECT_EQ(options->settings.limits.age, 24h * 365);
    EXPECT_EQ(options->settings.limits.bytes, int64_t{256} << 20U);
    EXPECT_EQ(options->settings.silence_after, 300s);
    EXPECT_EQ(options->listen, "127.0.0.1:9717");
    EXPECT_EQ(parse_options({"--listen", "off"}, out)->listen, "");
    for (const std::vector<std::string> &wrong :
         std::vector<std::vector<std::string>>{{"--listen", "0.0.0.0:9717"},
                                               {"--listen", "127.0.0.1"},
                                               {"--listen", "127.0.0.1:70000"},
                                               {"--listen", "127.0.0.1,0.0.0.0:1"},
                                               {"--keep-days", "0"},
                                               {"--keep-mib", "x"},
                                               {"--silence-after", "-1"},
                                               {"what"}}) {
        EXPECT_THROW(parse_options(wrong, out), cg::Failure) << wrong.back();
    }
    EXPECT_FALSE(parse_options({"--help"}, out));
    EXPECT_THAT(out.str(), HasSubstr("--silence-after"));
}

} // namespace recorder
