// What a verb says, and to whom.
#include "base/output.h"

#include <cerrno>
#include <ostream>

#include "base/failure.h"
#include "base/json.h"

namespace cg
{

void Output::notice(const std::string &text) const
{
    err << (json ? dump(Json{{"notice", text}}) : program + ": " + text) << std::endl;
}

void Output::error(const std::string &text) const
{
    err << (json ? dump(Json{{"error", text}}) : program + ": " + text) << std::endl;
}

void Output::line(const std::string &text) const
{
    errno = 0;
    out << text << '\n';
    check_output();
}

void Output::check_output() const
{
    if (!out.flush()) {
        throw Failure(failed, errno == EPIPE ? "" : "cannot write to the output");
    }
}

} // namespace cg
