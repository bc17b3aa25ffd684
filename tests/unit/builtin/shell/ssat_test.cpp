// The debug shell, as its client sees it: what a call returns, what it printed, and where that went.
//
// Everything is asked through the client that the tools use, not through the shell's own parts: an operator
// cares that the two agree, and descriptor 1 can be lent by a whole process only.
#include <chrono>
#include <csignal>
#include <cstdint>
#include <string>
#include <vector>

#include "shell/protocol.h"
#include "shell/socket.h"
#include "ssat_fixture.h"

namespace
{

using namespace std::chrono_literals;
using ssat_test::module;
using ssat_test::Ssat;
using ssat_test::Texts;
using testing_platform::content_of;
using testing_platform::patience;

// --- Calling

TEST_F(Ssat, HandlerGetsItsArgumentsInTheTemplatesOrder)
{
    start();
    const ssat::Reply reply = run("two", {"b=3", "a=10"});
    EXPECT_EQ(reply.result, 7);
    EXPECT_EQ(reply.output, "a=10 b=3\r\n");
    EXPECT_EQ(reply.output_at, "");
    EXPECT_FALSE(reply.truncated);
    EXPECT_EQ(stop(), 0);
}

TEST_F(Ssat, HandlersTakeUpToEightArguments)
{
    start();
    EXPECT_EQ(run("nothing").result, 7);
    const Texts names = {"one", "two", "three", "four", "five", "six", "seven", "eight"};
    const std::vector<int32_t> results = {1, 1 - 10, 321, 4321, 54321, 654321, 7654321, 87654321};
    Texts arguments;
    int32_t value = 1;
    for (size_t i = 0; i < names.size(); ++i, value *= 10) {
        arguments.push_back(std::string(1, static_cast<char>('a' + i)) + "=" + std::to_string(value));
        EXPECT_EQ(run(names[i], arguments).result, results[i]) << names[i];
    }
    EXPECT_EQ(stop(), 0);
}

TEST_F(Ssat, NumbersOfThirtyTwoBitsAreTaken)
{
    start();
    EXPECT_EQ(run("one", {"a=-2147483648"}).result, INT32_MIN);
    EXPECT_EQ(run("one", {"a=2147483647"}).result, INT32_MAX);
    EXPECT_EQ(run("one", {"a=0x7fffFFFF"}).result, INT32_MAX);
    EXPECT_EQ(run("one", {"a=-0x80000000"}).result, INT32_MIN);
    EXPECT_EQ(run("one", {"a=010"}).result, 10);
}

TEST_F(Ssat, AnythingElseIsNoNumber)
{
    start();
    for (const std::string value : {"", "x", "1x", "1 ", " 1", "1.0", "--1", "+1", "0x", "2147483648",
                                    "-2147483649", "0xffffffff", "99999999999999999999"}) {
        const ssat::Error error = refusal_of("one", {"a=" + value});
        EXPECT_EQ(error.failure(), ssat::Failure::wrong_usage) << value;
        EXPECT_EQ(std::string(error.what()),
                  "'a=" + value + "' is not a number from -2147483648 to 2147483647 (decimal, or 0x...); " +
                      "usage: one a=NUMBER");
    }
}

TEST_F(Ssat, EveryArgumentIsWantedExactlyOnce)
{
    start();
    const auto complaint = [&](const std::string &command, const Texts &arguments) {
        const ssat::Error error = refusal_of(command, arguments);
        EXPECT_EQ(error.failure(), ssat::Failure::wrong_usage);
        return std::string(error.what());
    };
    const std::string usage = "; usage: two a=NUMBER b=NUMBER";
    EXPECT_EQ(complaint("two", {"a=1"}), "'b' is missing" + usage);
    EXPECT_EQ(complaint("two", {}), "'a' is missing" + usage);
    EXPECT_EQ(complaint("two", {"a=1", "b=2", "a=1"}), "'a' is given twice" + usage);
    EXPECT_EQ(complaint("two", {"a=1", "b=2", "c=3"}), "'c' is not an argument of this command" + usage);
    EXPECT_EQ(complaint("two", {"1", "2"}), "'1' is not of the form NAME=NUMBER" + usage);
    EXPECT_EQ(complaint("two", {"\x1b[2J=1"}), "'\\x1b[2J' is not an argument of this command" + usage);
    EXPECT_EQ(complaint("nothing", {"a=1"}),
              "'a' is not an argument of this command; usage: nothing (no arguments)");
}

TEST_F(Ssat, WhatIsNotOfferedIsNamed)
{
    start();
    const ssat::Error error = refusal_of("nonsense");
    EXPECT_EQ(error.failure(), ssat::Failure::unknown_command);
    EXPECT_EQ(std::string(error.what()), "module 'test' has no command 'nonsense'");
    try {
        ssat::run(path, "other", "nothing", {}, patience);
        ADD_FAILURE() << "it was run";
    } catch (const ssat::Error &other) {
        EXPECT_EQ(other.failure(), ssat::Failure::unknown_command);
    }
}

TEST_F(Ssat, HelpListsCommandsInTheOrderOfRegistration)
{
    start();
    const auto commands = ssat::commands(path, patience);
    ASSERT_EQ(commands.size(), 15U);
    EXPECT_EQ(commands[0].module, "test");
    EXPECT_EQ(commands[0].name, "nothing");
    EXPECT_EQ(commands[0].args_template, "void");
    EXPECT_EQ(commands[2].name, "two");
    EXPECT_EQ(commands[2].args_template, "a=%d b=%d");
}

// --- Descriptor 1

TEST_F(Ssat, OutputOfAnyBytesGoesToTheClientAlone)
{
    start();
    EXPECT_EQ(run("binary").output, std::string("a\0\xff\n\x1b", 5));
    EXPECT_EQ(run("nothing").output, "");
    EXPECT_EQ(stop(), 0);
    EXPECT_EQ(content_of(printed), "");
}

TEST_F(Ssat, DuplicateThatACommandKeepsDoesNotEndTheLoan)
{
    start();
    for (int i = 0; i < 3; ++i) {
        const ssat::Reply reply = run("keep");
        EXPECT_EQ(reply.output, "kept\n");
        EXPECT_EQ(reply.output_at, "");
    }
    EXPECT_EQ(stop(), 0);
    EXPECT_EQ(content_of(printed), "");
}

TEST_F(Ssat, OutputThatACommandHasMovedStaysWhereItPointed)
{
    start();
    const ssat::Reply mover = run("move");
    EXPECT_EQ(mover.output, "before\n");
    EXPECT_EQ(mover.output_at, moved_to);

    const ssat::Reply later = run("two", {"a=1", "b=2"});
    EXPECT_EQ(later.output, "");
    EXPECT_EQ(later.output_at, moved_to);
    EXPECT_EQ(content_of(moved_to), "after\na=1 b=2\r\n");
    EXPECT_EQ(later.result, -1);

    EXPECT_EQ(run("move").output_at, moved_to) << "moved a second time, to a fresh opening";
    EXPECT_EQ(stop(), 0);
    EXPECT_EQ(content_of(printed), "");
}

TEST_F(Ssat, AFileThatTheOutputWasMovedToMayBeCut)
{
    start();
    EXPECT_EQ(run("move").output_at, moved_to);
    (void)run("much", {"bytes=5000"});
    ASSERT_EQ(truncate(moved_to.c_str(), 0), 0);
    (void)run("two", {"a=1", "b=2"});
    EXPECT_EQ(content_of(moved_to), "a=1 b=2\r\n");
    ASSERT_EQ(truncate(moved_to.c_str(), 4), 0);
    (void)run("two", {"a=3", "b=4"});
    EXPECT_EQ(content_of(moved_to), "a=1 a=3 b=4\r\n");
    EXPECT_EQ(stop(), 0);
}

TEST_F(Ssat, ClosedOutputIsToldAndDoesNotBecomeAConnection)
{
    start();
    const ssat::Reply reply = run("close");
    EXPECT_EQ(reply.output, "last\n");
    EXPECT_EQ(reply.output_at, "closed");
    EXPECT_EQ(run("two", {"a=1", "b=2"}).output_at, "/dev/null");
    EXPECT_EQ(stop(), 0);
}

TEST_F(Ssat, OutputBeyondTheLimitIsCutAndSaidSo)
{
    start();
    const size_t bytes = ssat::max_output_size;
    const ssat::Reply whole = run("much", {"bytes=" + std::to_string(bytes)});
    EXPECT_EQ(whole.output.size(), bytes);
    EXPECT_FALSE(whole.truncated);
    const ssat::Reply cut = run("much", {"bytes=" + std::to_string(bytes + 1024)});
    EXPECT_EQ(cut.output.size(), bytes);
    EXPECT_TRUE(cut.truncated);
}

// --- The client

TEST_F(Ssat, ClientTellsWhenNobodyIsThere)
{
    EXPECT_EQ(refusal_of("nothing").failure(), ssat::Failure::nobody_there);
    start();
    daemon->send(SIGKILL);
    daemon->wait();
    const ssat::Error dead = refusal_of("nothing");
    EXPECT_EQ(dead.failure(), ssat::Failure::nobody_there);
    EXPECT_EQ(std::string(dead.what()), path + ": no process listens there");
}

TEST_F(Ssat, ClientGivesUpOnASilentShell)
{
    ssat::SocketFile silent;
    int error = 0;
    ASSERT_TRUE(silent.open(path, error));
    try {
        ssat::run(path, module, "nothing", {}, 20ms);
        ADD_FAILURE() << "nobody can have answered";
    } catch (const ssat::Error &failure) {
        EXPECT_EQ(failure.failure(), ssat::Failure::timed_out);
    }
}

TEST_F(Ssat, ClientTellsWhenTheProcessEndsInTheMiddle)
{
    start();
    EXPECT_EQ(refusal_of("end").failure(), ssat::Failure::broken);
    EXPECT_EQ(daemon->wait(), 77);
}

TEST(SsatProtocol, FieldsSurviveTheJourney)
{
    const ssat::Fields fields = {"", std::string("\0\n", 2), std::string(70'000, 'x')};
    const std::string frame = ssat::encode(fields);
    const auto length = ssat::decode_header(frame);
    ASSERT_TRUE(length.has_value());
    EXPECT_EQ(*length, frame.size() - ssat::header_size);
    EXPECT_EQ(ssat::decode_fields(frame.substr(ssat::header_size)), fields);
}

} // namespace
