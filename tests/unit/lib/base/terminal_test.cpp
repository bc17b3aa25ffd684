// What is known of the terminal that a program prints to.
#include "base/terminal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>

#include "base/output.h"

namespace cg
{

namespace
{

// A terminal in the place of standard output, as long as the object lives.
class TerminalTest : public testing::Test
{
protected:
    TerminalTest()
    {
        EXPECT_EQ(grantpt(master_), 0);
        EXPECT_EQ(unlockpt(master_), 0);
        const int terminal = open(ptsname(master_), O_RDWR | O_NOCTTY | O_CLOEXEC);
        std::cout.flush();
        EXPECT_EQ(dup2(terminal, STDOUT_FILENO), STDOUT_FILENO);
        close(terminal);
        unsetenv("NO_COLOR");
    }
    ~TerminalTest() override
    {
        dup2(before_, STDOUT_FILENO);
        close(before_);
        close(master_);
        unsetenv("NO_COLOR");
    }

    // Sets the terminal's columns; returns what the program makes of them.
    std::size_t width_with(unsigned short columns) const
    {
        const winsize size{24, columns, 0, 0};
        EXPECT_EQ(ioctl(master_, TIOCSWINSZ, &size), 0);
        return terminal_of(output_, "auto").width;
    }

    const int master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    const int before_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    const Output output_{std::cout, std::cerr};
};

} // namespace

TEST_F(TerminalTest, HasItsOwnWidthOrTheUsualOne)
{
    EXPECT_TRUE(terminal_of(output_, "auto").is_one);
    EXPECT_EQ(width_with(123), 123U);
    EXPECT_EQ(width_with(0), 80U);
}

TEST_F(TerminalTest, HasColoursUnlessTheyAreUnwanted)
{
    EXPECT_TRUE(terminal_of(output_, "auto").colour);
    EXPECT_FALSE(terminal_of(output_, "never").colour);
    setenv("NO_COLOR", "", 1);
    EXPECT_TRUE(terminal_of(output_, "auto").colour) << "empty is as good as unset";
    setenv("NO_COLOR", "1", 1);
    EXPECT_FALSE(terminal_of(output_, "auto").colour);
    EXPECT_TRUE(terminal_of(output_, "always").colour);
}

TEST_F(TerminalTest, IsNotWhatAnotherStreamPrintsTo)
{
    EXPECT_FALSE(terminal_of({std::cerr, std::cerr}, "auto").is_one);
}

} // namespace cg
