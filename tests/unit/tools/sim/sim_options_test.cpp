// The command line.
#include "sim_options.h"

#include <gmock/gmock.h>

#include <sstream>

#include "base/failure.h"

namespace cg
{

namespace
{

// What is wrong with a command line; empty when nothing is.
std::string mistake(const std::vector<std::string> &arguments)
{
    std::ostringstream out;
    try {
        parse_options(arguments, out);
    } catch (const Failure &failure) {
        EXPECT_EQ(failure.status(), wrong_usage);
        return failure.what();
    }
    return "";
}

} // namespace

TEST(SimOptions, AreParsed)
{
    std::ostringstream out;
    const auto options = parse_options({"--speed", "20", "a", "--keep", "-", "--stay", "--json", "--check",
                                        "--endpoint", "unix:/s", "--socket", "/d"},
                                       out);
    ASSERT_TRUE(options);
    EXPECT_EQ(options->files, (std::vector<std::string>{"a", "-"}));
    EXPECT_EQ(options->speed, 20);
    EXPECT_TRUE(options->keep && options->stay && options->json && options->check);
    EXPECT_EQ(options->endpoint, "unix:/s");
    EXPECT_EQ(options->socket, "/d");
    const auto plain = parse_options({"a"}, out);
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->speed, 1);
    EXPECT_FALSE(plain->keep || plain->stay || plain->json || plain->check);
}

TEST(SimOptions, HelpAndVersionGoToTheOutput)
{
    std::ostringstream out;
    EXPECT_FALSE(parse_options({"--help"}, out));
    EXPECT_THAT(out.str(), testing::HasSubstr("--speed N"));
    out.str("");
    EXPECT_FALSE(parse_options({"--version"}, out));
    EXPECT_THAT(out.str(), testing::MatchesRegex("cg_sim [0-9.]+\n"));
}

TEST(SimOptions, WrongOnesAreRefused)
{
    EXPECT_THAT(mistake({}), testing::HasSubstr("FILE is required; `cg_sim --help`"));
    EXPECT_THAT(mistake({"a", "--fast"}), testing::HasSubstr("--fast"));
    for (const char *speed : {"0", "0.009", "1001", "-1", "nan", "inf", "x", ""}) {
        EXPECT_THAT(mistake({"--speed", speed, "a"}), testing::HasSubstr("--speed")) << speed;
    }
    EXPECT_EQ(mistake({"--speed", "0.01", "a"}), "");
    EXPECT_EQ(mistake({"--speed", "1000", "a"}), "");
}

} // namespace cg
