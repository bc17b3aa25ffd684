// The recorder's command line.
#include "options.h"

#include <gmock/gmock.h>

#include <sstream>

#include "base/failure.h"

namespace recorder
{

namespace
{

using namespace std::chrono_literals;
using testing::HasSubstr;

} // namespace

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
         std::vector<std::vector<std::string>>{{"--listen", "127.0.0.1:65536"},
                                               {"--keep-days", "36501"},
                                               {"--keep-mib", "1048577"},
                                               {"--keep-mib", "0"},
                                               {"--silence-after", "86401"},
                                               {"--silence-after", "0"},
                                               {"--listen", "0.0.0.0:9717"},
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
    EXPECT_THAT(out.str(), HasSubstr("Usage: cg_recorderd [OPTIONS]"));
}

TEST(OptionsTest, ValuesAreUsed)
{
    std::ostringstream out;
    const auto options =
        parse_options({"--history", "/h", "--modules", "/m", "--life", "/l", "--listen", "127.0.0.2:65535",
                       "--keep-days", "36500", "--keep-mib", "1048576", "--silence-after", "86400"},
                      out);
    ASSERT_TRUE(options);
    EXPECT_EQ(options->settings.history, "/h");
    EXPECT_EQ(options->settings.modules, "/m");
    EXPECT_EQ(options->settings.service_log, "/l");
    EXPECT_EQ(options->listen, "127.0.0.2:65535");
    EXPECT_EQ(options->settings.limits.age, 24h * 36500);
    EXPECT_EQ(options->settings.limits.bytes, int64_t{1} << 40U);
    EXPECT_EQ(options->settings.silence_after, 86400s);
    EXPECT_EQ(parse_options({"--keep-days", "1"}, out)->settings.limits.age, 24h);
    EXPECT_EQ(out.str(), "");
}

TEST(OptionsTest, HelpHasTheDefaultsAndAMistakeHasAStatus)
{
    std::ostringstream out;
    EXPECT_FALSE(parse_options({"--version"}, out));
    EXPECT_THAT(out.str(), testing::StartsWith("cg_recorderd "));
    EXPECT_FALSE(parse_options({"-h"}, out));
    for (const char *text : {"--listen ADDRESS=127.0.0.1:9717", "--modules FOLDER=/etc/app_cg/deny_check",
                             "--life FILE=/run/app_cg/life", "--keep-days N:INT in [1 - 36500]=365", "=256",
                             "=300", "/var/lib/cg_recorder/history.sqlite", "Examples:"}) {
        EXPECT_THAT(out.str(), HasSubstr(text));
    }
    try {
        parse_options({"--listen", "0.0.0.0:1"}, out);
        FAIL();
    } catch (const cg::Failure &failure) {
        EXPECT_EQ(failure.status(), cg::wrong_usage);
        EXPECT_THAT(failure.what(), HasSubstr("--listen: not an address of this machine itself; "
                                              "127.0.0.1:PORT, or off; see `cg_recorderd --help`"));
    }
}

} // namespace recorder
