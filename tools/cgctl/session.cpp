// What a verb says, and to whom.
#include "session.h"

#include <cerrno>
#include <ostream>

#include "failure.h"

namespace cgctl
{

void Session::notice(const std::string &text) const
{
    err << (json ? dump(Json{{"notice", text}}) : program + ": " + text) << std::endl;
}

void Session::error(const std::string &text) const
{
    err << (json ? dump(Json{{"error", text}}) : program + ": " + text) << std::endl;
}

void Session::line(const std::string &text) const
{
    errno = 0;
    out << text << '\n';
    check_output();
}

void Session::check_output() const
{
    if (!out.flush()) {
        throw Failure(failed, errno == EPIPE ? "" : "cannot write to the output");
    }
}

} // namespace cgctl
