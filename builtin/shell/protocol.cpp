// Frames of the debug shell. Not protobuf, which the tree has at hand: two shapes of lists of texts need no
// schema, and the shell must work with whatever schemas the platform is built for.
#include "shell/protocol.h"

namespace ssat
{
namespace
{

constexpr std::string_view magic = "SAT1";
constexpr size_t length_size = 4;

void append_length(std::string &bytes, size_t length)
{
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes += static_cast<char>((length >> static_cast<unsigned>(shift)) & 0xffU);
    }
}

// `bytes` must hold length_size bytes.
size_t length_in(std::string_view bytes)
{
    size_t length = 0;
    for (const char c : bytes.substr(0, length_size)) {
        length = length << 8U | static_cast<unsigned char>(c);
    }
    return length;
}

} // namespace

std::string encode(const Fields &fields)
{
    std::string body;
    for (const std::string &field : fields) {
        append_length(body, field.size());
        body += field;
    }
    std::string frame{magic};
    append_length(frame, body.size());
    return frame + body;
}

std::optional<size_t> decode_header(std::string_view header)
{
    if (header.size() < header_size || !header.starts_with(magic)) {
        return std::nullopt;
    }
    return length_in(header.substr(magic.size()));
}

std::optional<Fields> decode_fields(std::string_view body)
{
    Fields fields;
    while (!body.empty()) {
        if (body.size() < length_size) {
            return std::nullopt;
        }
        const size_t length = length_in(body);
        body.remove_prefix(length_size);
        if (body.size() < length) {
            return std::nullopt;
        }
        fields.emplace_back(body.substr(0, length));
        body.remove_prefix(length);
    }
    return fields;
}

} // namespace ssat
