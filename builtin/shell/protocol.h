// The language between the debug shell and its client.
//
// A client connects to a unix stream socket, sends one request, reads one reply, and both hang up. Either is
// a frame:
//
//     'S' 'A' 'T' '1'      the last one is the version; a change that an old peer would misread counts it up
//     length               of all that follows, 4 bytes, most significant first
//     fields               each a length of 4 bytes, most significant first, and so many bytes
//
// Requests, by field:
//     "run"  module  command  name=value ...
//     "help"
//
// Replies, by field:
//     status  message                                          any status but "ok": why nothing was called
//     "ok"  result  output  output_at  "whole" or "cut"        to "run"; the result in decimal
//     "ok"  module  command  template  ...                     to "help"; three fields per command
//
// Lengths and not line ends delimit, because what a command prints may hold any byte. The end of
// the connection says nothing, so a truncated answer is never read as a whole one.
#ifndef SHELL_PROTOCOL_H
#define SHELL_PROTOCOL_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ssat
{

constexpr size_t header_size = 8;
constexpr size_t max_request_size = size_t{64} * 1024;
constexpr size_t max_output_size = size_t{8} * 1024 * 1024;
constexpr size_t max_reply_size = max_output_size + max_request_size;

namespace status
{
constexpr std::string_view ok = "ok";
constexpr std::string_view wrong_usage = "wrong-usage";
constexpr std::string_view denied = "denied";
constexpr std::string_view unknown_command = "unknown-command";
constexpr std::string_view bad_request = "bad-request";
} // namespace status

using Fields = std::vector<std::string>;

// Returns the frame that carries the fields.
std::string encode(const Fields &fields);

// Reads a frame's header. Returns the length of what follows, or nothing when the bytes are not a header of
// this version. `header` must hold header_size bytes.
std::optional<size_t> decode_header(std::string_view header);

// Returns the fields of what follows the header, or nothing when the lengths do not add up.
std::optional<Fields> decode_fields(std::string_view body);

} // namespace ssat

#endif
