// Writing where nobody may read.
#include "loop/standard_error.h"

#include <array>
#include <csignal>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "unit/builtin/platform_fixture.h"

namespace
{

using platform::write_without_waiting;

struct TwoEnds {
    TwoEnds()
    {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        out.reset(ends[0]);
        in.reset(ends[1]);
    }
    platform::Descriptor out;
    platform::Descriptor in;
};

TEST(StandardError, PipeThatNobodyReadsGetsWhatItHasRoomFor)
{
    const TwoEnds pipe;
    const std::string text(1'000'000, 'x');
    std::string_view rest(text);
    write_without_waiting(pipe.in.get(), rest);
    const size_t written = text.size() - rest.size();
    EXPECT_GE(written, 4096U);
    EXPECT_FALSE(rest.empty());
    std::string read_back(text.size(), '\0');
    EXPECT_EQ(read(pipe.out.get(), read_back.data(), read_back.size()), static_cast<ssize_t>(written));
    write_without_waiting(pipe.in.get(), rest);
    EXPECT_LT(rest.size(), text.size() - written) << "what was read makes room";
}

TEST(StandardError, FileGetsAll)
{
    const testing_platform::TempFolder folder;
    const platform::Descriptor file(open(folder.file("log").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    const std::string text(1'000'000, 'x');
    std::string_view rest(text);
    write_without_waiting(file.get(), rest);
    EXPECT_TRUE(rest.empty());
    EXPECT_EQ(testing_platform::content_of(folder.file("log")), text);
}

TEST(StandardError, ReportThatNobodyReadsIsNotWaitedFor)
{
    const TwoEnds pipe;
    testing_platform::Child writer{[&] {
        (void)dup2(pipe.in.get(), STDERR_FILENO);
        for (int i = 0; i < 100'000; i++) {
            platform::report_on_standard_error("line %d\n", i);
        }
        return 0;
    }};
    EXPECT_EQ(writer.wait(), 0);
    std::string begins(14, '\0');
    EXPECT_EQ(read(pipe.out.get(), begins.data(), begins.size()), static_cast<ssize_t>(begins.size()));
    EXPECT_EQ(begins, "line 0\nline 1\n");
}

TEST(StandardError, ReaderThatHasGoneIsNotWaitedFor)
{
    testing_platform::Child writer{[] {
        (void)std::signal(SIGPIPE, SIG_IGN);
        TwoEnds pipe;
        pipe.out.reset();
        std::string_view rest("text");
        write_without_waiting(pipe.in.get(), rest);
        return rest == "text" ? 0 : 2;
    }};
    EXPECT_EQ(writer.wait(), 0);
}

} // namespace
