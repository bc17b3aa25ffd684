// Data and live messages, as lines and as JSON.
#include "base/output.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <sstream>

#include "base/failure.h"

namespace cg
{

namespace
{

// Where nothing can be written, for a reason.
class BrokenBuffer : public std::streambuf
{
public:
    explicit BrokenBuffer(int error) : error_(error) {}

protected:
    int overflow(int /*character*/) override
    {
        errno = error_;
        return traits_type::eof();
    }

private:
    int error_;
};

std::string failure_for(int error)
{
    BrokenBuffer buffer(error);
    std::ostream out(&buffer);
    try {
        Output{out, out}.line("x");
    } catch (const Failure &failure) {
        EXPECT_EQ(failure.status(), failed);
        return failure.what();
    }
    return "no failure";
}

} // namespace

TEST(Output, MessagesNameTheProgramOrAreJson)
{
    std::ostringstream out;
    std::ostringstream err;
    Output output{out, err, false, "cg_x"};
    output.notice("one");
    output.error("two");
    output.json = true;
    output.notice("three");
    output.error("four");
    EXPECT_EQ(err.str(), "cg_x: one\ncg_x: two\n{\"notice\":\"three\"}\n{\"error\":\"four\"}\n");
    output.line("data");
    EXPECT_EQ(out.str(), "data\n");
}

TEST(Output, AReaderThatWentAwayNeedsNoMessage)
{
    EXPECT_EQ(failure_for(EPIPE), "");
    EXPECT_EQ(failure_for(ENOSPC), "cannot write to the output");
}

} // namespace cg
