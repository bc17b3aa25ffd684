// What a verb says, and to whom.
#include "session.h"

#include <ostream>

#include "failure.h"

namespace cgctl
{

void Session::notice(const std::string &text) const
{
    err << (json ? dump(Json{{"notice", text}}) : "cgctl: " + text) << std::endl;
}

void Session::error(const std::string &text) const
{
    err << (json ? dump(Json{{"error", text}}) : "cgctl: " + text) << std::endl;
}

void Session::line(const std::string &text) const
{
    if (!(out << text << std::endl)) {
        throw Failure(failed, "cannot write to the output");
    }
}

} // namespace cgctl
