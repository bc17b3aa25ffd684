// The debug shell's frames, and what is done with a request. Any local process of the right user may send
// bytes; a handler is called only for a request that is right in every part, and every answer is a frame.
//
// Input: the bytes of a frame, header first, with percent signs for those that are no text.
#include <unistd.h>

#include "shell/commands.h"

#include "fuzz.h"

namespace
{

using fuzz::require;
using ssat::Fields;

int calls = 0;

int32_t no_arguments()
{
    ++calls;
    return 11;
}

int32_t one_argument(int32_t level)
{
    ++calls;
    (void)std::printf("%d", level);
    return level;
}

int32_t three_arguments(int32_t dev, int32_t slot, int32_t op)
{
    ++calls;
    (void)std::printf("%d/%d/%d", dev, slot, op);
    return 3;
}

template <typename... Args>
ssat_handler_f handler_of(int32_t (*function)(Args...))
{
    return reinterpret_cast<ssat_handler_f>(reinterpret_cast<void (*)()>(function));
}

ssat::CommandTable make_table()
{
    ssat::CommandTable table;
    require(table.add("app_cg", "dump", "void", handler_of(no_arguments)) &&
                table.add("app_cg", "log-level", "level=%d", handler_of(one_argument)) &&
                table.add("app_cg", "update", "dev=%d slot=%d op=%d", handler_of(three_arguments)),
            "the commands can be registered");
    return table;
}

void check_reply(const Fields &request, const Fields &reply)
{
    const bool ran = !reply.empty() && reply[0] == ssat::status::ok && request[0] == "run";
    require(calls == (ran ? 1 : 0), "a handler is called once for an answer that says so, else never");
    require(reply.size() >= (ran ? 5U : 2U), "an answer has all of its fields");
    if (ran && request[2] == "log-level") {
        require(reply[1] == reply[2], "the number given is the one that the handler printed", reply[2]);
        require(request.size() == 4, "each argument is given once");
    }
    const std::string frame = ssat::encode(reply);
    const auto length = ssat::decode_header(frame.substr(0, ssat::header_size));
    require(length == frame.size() - ssat::header_size, "an answer's header says how long it is");
    require(ssat::decode_fields(std::string_view(frame).substr(ssat::header_size)) == reply,
            "an answer reads as it was meant");
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const ssat::CommandTable table = make_table();
    static const ssat::Identity output = ssat::identity_of(STDOUT_FILENO);
    const std::string bytes = fuzz::bytes_of(fuzz::view_of(data, size));
    const std::string_view frame = bytes;
    const std::string_view header = frame.substr(0, ssat::header_size);
    const std::string_view body = frame.substr(header.size());
    const auto length = ssat::decode_header(header);
    require(length.has_value() == (header.size() == ssat::header_size && header.starts_with("SAT1")),
            "a header begins with the protocol's name");
    // The length is left out of account: inputs that only lack the right one would teach nothing.
    const auto request = ssat::decode_fields(body);
    if (!request) {
        return 0;
    }
    const std::string written = ssat::encode(*request);
    require(written.substr(ssat::header_size) == body, "a body that decodes is the one that is written");
    require(ssat::decode_header(written) == body.size(), "its header says how long it is");
    if (!length || body.size() > ssat::max_request_size) {
        return 0;
    }
    calls = 0;
    const Fields reply = table.answer(*request, output);
    check_reply(request->empty() ? Fields{""} : *request, reply);
    return 0;
}
