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
