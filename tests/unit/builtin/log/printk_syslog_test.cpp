// The system log, read from a /dev/log of the test's own.
#include "vx_zlog.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include "unit/builtin/platform_fixture.h"

namespace
{

using testing::MatchesRegex;
using testing_platform::Mailbox;

// What the C library puts before a line of the daemon facility.
std::string line_of(int severity, const std::string &text)
{
    return "<" + std::to_string(LOG_DAEMON | severity) +
           ">[A-Z][a-z][a-z] [ 0-9][0-9] [0-9:]{8} APP_CG\\[[0-9]+\\]: " + text;
}

void in_private_view(const std::function<void()> &body)
{
    const int result = testing_platform::run_in_private_view([&] {
        body();
        return 0;
    });
    if (result == testing_platform::cannot_be_tried_here) {
        GTEST_SKIP() << "no private view of the file system here";
    }
    EXPECT_EQ(result, 0);
}

TEST(PrintkSyslog, LineHoldsProgramSeverityAndModule)
{
    in_private_view([] {
        const Mailbox log("/dev/log");
        EXPECT_EQ(printk_syslog_ext(4, "APP_CG", "CG_MNG", 1, "Card in slot %d/%d will be powered off", 1, 3),
                  0);
        EXPECT_THAT(log.next(),
                    MatchesRegex(line_of(4, "APP_CG-4-CG_MNG: Card in slot 1/3 will be powered off")));
    });
}

TEST(PrintkSyslog, BytesAreThoseOfTheCLibrary)
{
    in_private_view([] {
        const Mailbox log("/dev/log");
        const std::string long_reason(3000, 'r');
        for (const char *reason : {"overheated", "", "50% *:\xc3\xa9~", long_reason.c_str()}) {
            std::string ours;
            std::string theirs;
            for (int attempt = 0; attempt == 0 || (attempt < 5 && ours != theirs);
                 attempt++) { // a new second
                printk_syslog_ext(4, "APP_CG", "CG_MNG", 1, "Card in slot 1/3: %s.", reason);
                openlog("APP_CG", LOG_PID, LOG_DAEMON);
                syslog(LOG_MAKEPRI(LOG_DAEMON, 4), "APP_CG-4-CG_MNG: Card in slot 1/3: %s.", reason);
                ours = log.next();
                theirs = log.next();
            }
            EXPECT_EQ(ours, theirs);
        }
        closelog();
    });
}

TEST(PrintkSyslog, ValueCannotForgeASecondLine)
{
    in_private_view([] {
        const Mailbox log("/dev/log");
        printk_syslog_ext(3, "APP_CG", "M", 1, "reason: %s.\r\n", "none\nNov 20 root: all well\x1b[2J\x7f");
        EXPECT_THAT(log.next(), MatchesRegex(line_of(3, "APP_CG-3-M: reason: none\\\\x0aNov 20 root: all "
                                                        "well\\\\x1b\\[2J\\\\x7f\\.")));
    });
}

TEST(PrintkSyslog, PercentSignsOfAValueAreText)
{
    in_private_view([] {
        const Mailbox log("/dev/log");
        printk_syslog_ext(3, "APP_CG", "M", 1, "%s", "%s%n");
        EXPECT_THAT(log.next(), MatchesRegex(line_of(3, "APP_CG-3-M: %s%n")));
    });
}

TEST(PrintkSyslog, LongReasonsAreWhole)
{
    in_private_view([] {
        const Mailbox log("/dev/log");
        const std::string reason(3000, 'r');
        printk_syslog_ext(4, "APP_CG", "M", 1, "%s", reason.c_str());
        EXPECT_THAT(log.next(), testing::EndsWith("APP_CG-4-M: " + reason));
    });
}

TEST(PrintkSyslog, SystemLogMayComeLaterAndComeAgain)
{
    in_private_view([] {
        EXPECT_EQ(printk_syslog_ext(4, "APP_CG", "M", 1, "zeroth"), 0);
        for (const auto &texts : {std::vector{"zeroth", "first"}, {"second"}}) {
            const Mailbox log("/dev/log");
            EXPECT_EQ(printk_syslog_ext(4, "APP_CG", "M", 1, "%s", texts.back()), 0);
            for (const char *text : texts) {
                EXPECT_THAT(log.next(), MatchesRegex(line_of(4, std::string("APP_CG-4-M: ") + text)));
            }
            unlink("/dev/log");
        }
    });
}

TEST(PrintkSyslog, OtherFlagsWriteNothing)
{
    in_private_view([] {
        const Mailbox log("/dev/log");
        EXPECT_EQ(printk_syslog_ext(4, "APP_CG", "M", 0, "silent"), 0);
        EXPECT_EQ(printk_syslog_ext(4, "APP_CG", "M", 1, "loud"), 0);
        EXPECT_THAT(log.next(), MatchesRegex(line_of(4, "APP_CG-4-M: loud")));
    });
}

TEST(PrintkSyslog, ArgumentsThatAreNoneAreRefused)
{
    EXPECT_LT(printk_syslog_ext(-1, "APP_CG", "M", 1, "text"), 0);
    EXPECT_LT(printk_syslog_ext(8, "APP_CG", "M", 1, "text"), 0);
    EXPECT_LT(printk_syslog_ext(4, nullptr, "M", 1, "text"), 0);
    EXPECT_LT(printk_syslog_ext(4, "APP_CG", nullptr, 1, "text"), 0);
}

} // namespace
