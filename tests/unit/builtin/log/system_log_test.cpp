// Lines on their way to a system log that is slow, hangs, is away, or comes back.
#include "log/system_log.h"

#include <algorithm>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include "log/platform_log.h"
#include "loop/descriptor_reserve.h"
#include "loop/health.h"
#include "loop/loop.h"
#include "unit/builtin/platform_fixture.h"

namespace
{

using platform::Loop;
using platform::SystemLog;
using testing::ContainerEq;
using testing::HasSubstr;
using testing_platform::content_of;
using testing_platform::Mailbox;
using testing_platform::ScopedSetting;
using Texts = std::vector<std::string>;

constexpr std::chrono::milliseconds at_once(0);

Texts numbered(size_t first, size_t last)
{
    Texts lines;
    for (size_t i = first; i <= last; i++) {
        lines.push_back("line " + std::to_string(i));
    }
    return lines;
}

class SystemLogTest : public testing::Test
{
protected:
    testing_platform::TempFolder folder;
    const std::string path = folder.file("log");
    const std::string own_log = folder.file("own.log");
    std::optional<Mailbox> reader{path};

    SystemLogTest()
    {
        static int tests = 0;
        const ScopedSetting setting("VX_ZLOG", "file:" + own_log);
        platform::log_open("system_log_test" + std::to_string(++tests));
    }

    Texts read(size_t lines) const
    {
        Texts found;
        for (size_t i = 0; i < lines; i++) {
            found.push_back(reader->next());
        }
        return found;
    }
    // Writes lines from a loop, which then serves until `work`, on a thread of its own, is done.
    template <typename Work>
    static void write_and_serve(SystemLog &log, const Texts &lines, const Work &work)
    {
        Loop loop("system_log_test");
        const platform::Wake done(loop.context(), [&] { loop.stop(); });
        std::optional<std::thread> worker;
        const platform::Timer start = loop.after(std::chrono::milliseconds(0), [&] {
            for (const std::string &line : lines) {
                log.write(line);
            }
            worker.emplace([&] {
                work();
                done.call();
            });
        });
        loop.run();
        worker->join();
    }
    // So many lines, or less when nothing more comes.
    Texts read_up_to(size_t lines) const
    {
        Texts found;
        while (found.size() < lines && (found.empty() || !found.back().empty())) {
            found.push_back(reader->next());
        }
        return found;
    }
    void replace_reader()
    {
        unlink(path.c_str());
        reader.emplace(path);
    }
};

TEST_F(SystemLogTest, SlowReaderGetsAllInOrder)
{
    SystemLog log(path);
    const Texts lines = numbered(1, 5000);
    Texts found;
    write_and_serve(log, lines, [&] { found = read(lines.size()); });
    EXPECT_THAT(found, ContainerEq(lines));
    EXPECT_EQ(log.dropped(), 0U);
    EXPECT_EQ(content_of(own_log), "");
}

TEST_F(SystemLogTest, LineThatIsWrittenWhileOthersWaitIsNotAheadOfThem)
{
    SystemLog log(path);
    for (const std::string &line : numbered(1, 300)) {
        log.write(line);
    }
    Texts found = read(5);
    log.write("line 301");
    write_and_serve(log, {"line 302"}, [&] {
        for (const std::string &line : read(297)) {
            found.push_back(line);
        }
    });
    EXPECT_THAT(found, ContainerEq(numbered(1, 302)));
}

TEST_F(SystemLogTest, WhatCannotWaitIsCountedAndReportedOnceAndAtTheEnd)
{
    SystemLog log(path, 10000);
    Texts found;
    write_and_serve(log, numbered(1, 1000), [&] {
        while (found.empty() || content_of(own_log).find("lines dropped: ") == std::string::npos) {
            found.push_back(reader->next(std::chrono::milliseconds(10)));
        }
    });
    std::erase(found, "");
    for (std::string line = reader->next(at_once); !line.empty(); line = reader->next(at_once)) {
        found.push_back(line);
    }
    EXPECT_THAT(found, ContainerEq(numbered(1, found.size()))) << "the earliest are kept";
    EXPECT_EQ(found.size() + log.dropped(), 1000U);
    EXPECT_EQ(platform::noted_health().at("system_log_dropped"), log.dropped());
    const std::string said = content_of(own_log);
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 2) << said;
    EXPECT_THAT(said, HasSubstr("system log: dropping lines: " + path + " is not read"));
    EXPECT_THAT(said, HasSubstr("system log: lines dropped: " + std::to_string(log.dropped()) + ";"));
    log.write("again");
    EXPECT_EQ(reader->next(), "again");
}

TEST_F(SystemLogTest, RestartedReaderIsFound)
{
    SystemLog log(path);
    Texts found;
    write_and_serve(log, numbered(1, 300), [&] {
        found = read(1);
        reader.reset();
        replace_reader();
        found.push_back(reader->next());
    });
    EXPECT_EQ(found.front(), "line 1");
    // Those that stood in the first reader's queue went with it; those behind wait for the next reader.
    EXPECT_THAT(found.back(), HasSubstr("line "));
    EXPECT_EQ(log.dropped(), 0U);
}

TEST_F(SystemLogTest, ReaderThatReplacesOneThatHangsIsFound)
{
    const Mailbox hangs(folder.file("other"));
    rename(folder.file("other").c_str(), path.c_str());
    SystemLog log(path);
    write_and_serve(log, numbered(1, 300), [&] {
        replace_reader();
        EXPECT_THAT(reader->next(), HasSubstr("line "));
    });
}

TEST_F(SystemLogTest, LinesWaitForAReaderThatIsNotThereYet)
{
    unlink(path.c_str());
    SystemLog log(path);
    write_and_serve(log, numbered(1, 3), [&] {
        replace_reader();
        EXPECT_THAT(read(3), ContainerEq(numbered(1, 3)));
    });
}

TEST_F(SystemLogTest, LineThatIsTooLongForAMessageIsCutAndMarked)
{
    SystemLog log(path);
    for (const size_t length : {300'000U, 1'000'000U, 10'000'000U}) {
        log.write(std::string(length, 'x'));
        const std::string line = reader->next();
        EXPECT_THAT(line.substr(0, 100'000), std::string(100'000, 'x'));
        EXPECT_THAT(line.substr(line.size() - 12), "x[truncated]");
    }
    log.write("next");
    EXPECT_EQ(reader->next(), "next");
    EXPECT_EQ(log.dropped(), 0U);
    EXPECT_EQ(content_of(own_log), "");
}

TEST_F(SystemLogTest, NoCharacterIsCutThrough)
{
    SystemLog log(path);
    for (const size_t before : {0U, 1U, 2U}) {
        std::string text(before, 'x');
        while (text.size() < 1'000'000) {
            text += "\xe2\x82\xac";
        }
        log.write(text);
        const std::string line = reader->next();
        EXPECT_THAT(line.substr(std::max<size_t>(line.size(), 14) - 14), "\xe2\x82\xac[truncated]");
    }
}

// Opens descriptors until there are none left.
std::vector<platform::Descriptor> all_descriptors()
{
    std::vector<platform::Descriptor> all;
    for (int fd = 0; (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) {
        all.emplace_back(fd);
    }
    return all;
}

// A process with few descriptors; returns whether `body` returned true in it.
template <typename Body>
bool with_few_descriptors(const Body &body)
{
    testing_platform::Child child([&] {
        const rlimit few{64, 64};
        (void)setrlimit(RLIMIT_NOFILE, &few);
        return body() ? 0 : 2;
    });
    return child.wait() == 0;
}

TEST_F(SystemLogTest, OutOfDescriptorsItConnectsByTheReserve)
{
    EXPECT_TRUE(with_few_descriptors([&] {
        platform::hold_descriptor_reserve();
        std::vector<platform::Descriptor> others;
        SystemLog log(path);
        others = all_descriptors();
        log.write("line 1");
        return reader->next(at_once) == "line 1";
    }));
}

TEST_F(SystemLogTest, OutOfDescriptorsItKeepsTheSocketThatItHas)
{
    EXPECT_TRUE(with_few_descriptors([&] {
        SystemLog log(path);
        Loop loop("system_log_test");
        const platform::Wake done(loop.context(), [&] { loop.stop(); });
        std::vector<platform::Descriptor> others;
        Texts found;
        std::optional<std::thread> worker;
        const platform::Timer start = loop.after(std::chrono::milliseconds(0), [&] {
            for (const std::string &line : numbered(1, 300)) {
                log.write(line);
            }
            others = all_descriptors();
        });
        // Later than the search for another reader.
        const platform::Timer later = loop.after(std::chrono::milliseconds(1500), [&] {
            worker.emplace([&] {
                found = read_up_to(300);
                done.call();
            });
        });
        loop.run();
        worker->join();
        return found == numbered(1, 300);
    }));
}

TEST_F(SystemLogTest, DropNamesWhyTheSystemLogCannotBeReached)
{
    EXPECT_TRUE(with_few_descriptors([&] {
        SystemLog log(path, 100);
        const auto others = all_descriptors();
        log.write("line 1");
        log.write("line 2");
        return log.dropped() == 1;
    }));
    EXPECT_THAT(content_of(own_log),
                HasSubstr("dropping lines: " + path + " cannot be reached: Too many open files"));
}

TEST_F(SystemLogTest, WhatWaitsLeavesAtTheEnd)
{
    testing_platform::Child writer{[&] {
        SystemLog log(path);
        for (const std::string &line : numbered(1, 500)) {
            log.write(line);
        }
        return 0;
    }};
    EXPECT_THAT(read(500), ContainerEq(numbered(1, 500)));
    EXPECT_EQ(writer.wait(), 0);
    EXPECT_EQ(content_of(own_log), "");
}

TEST_F(SystemLogTest, ReaderThatComesBackAtTheEndGetsWhatWaits)
{
    unlink(path.c_str());
    auto log = std::make_unique<SystemLog>(path);
    for (const std::string &line : numbered(1, 3)) {
        log->write(line);
    }
    const std::future<void> end = std::async(std::launch::async, [&] { log.reset(); });
    EXPECT_EQ(end.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout) << "it gives time";
    replace_reader();
    EXPECT_THAT(read_up_to(3), ContainerEq(numbered(1, 3)));
}

TEST_F(SystemLogTest, ReaderThatNeverReadsDoesNotHoldUpTheEnd)
{
    {
        SystemLog log(path);
        for (const std::string &line : numbered(1, 500)) {
            log.write(line);
        }
    }
    EXPECT_THAT(content_of(own_log), HasSubstr("lost at the process's end: "));
    EXPECT_EQ(reader->next(), "line 1");
}

TEST_F(SystemLogTest, LoopMayEndBeforeTheLog)
{
    SystemLog log(path);
    write_and_serve(log, numbered(1, 300), [] {});
    write_and_serve(log, numbered(301, 302), [&] { EXPECT_THAT(read(302), ContainerEq(numbered(1, 302))); });
}

} // namespace
