// Commands to a server past the client under test, and replies as text.
#ifndef SUPPORT_RAW_COMMAND_H
#define SUPPORT_RAW_COMMAND_H

#include <hiredis/hiredis.h>

#include <memory>
#include <string>
#include <vector>

namespace cg
{

struct FreeRawContext {
    void operator()(redisContext *context) const { redisFree(context); }
};
using RawContext = std::unique_ptr<redisContext, FreeRawContext>;

// Runs a command and returns the reply as text: texts as they are, numbers in decimal, "(nil)", errors as
// "(error) ...", the elements of a list each followed by a line end; "(no reply)" when there is none.
std::string run_raw(redisContext &context, const std::vector<std::string> &command);

} // namespace cg

#endif
