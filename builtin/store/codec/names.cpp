// The names in the store; see the header.
#include "store/codec/names.h"

namespace store
{

namespace
{

bool stays_plain(unsigned char byte)
{
    return (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
           byte == '.' || byte == '_' || byte == '-' || byte == '~' || byte >= 0x80;
}

int hex_value(char digit)
{
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    return digit >= 'A' && digit <= 'F' ? digit - 'A' + 10 : -1;
}

} // namespace

std::string counter_key(const std::string &type)
{
    return "@rev:" + type;
}

std::string index_key(const std::string &type)
{
    return "@idx:" + type;
}

std::string channel_prefix(int32_t database)
{
    return "@chg:" + std::to_string(database) + ":";
}

std::string key_part(std::string_view text)
{
    static constexpr std::string_view digits = "0123456789ABCDEF";
    std::string part;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (stays_plain(byte)) {
            part += character;
        } else {
            part += '%';
            part += digits[byte >> 4U];
            part += digits[byte & 0xfU];
        }
    }
    return part;
}

bool parse_key_part(std::string_view part, std::string &text)
{
    for (size_t i = 0; i < part.size(); i++) {
        if (part[i] != '%') {
            if (!stays_plain(static_cast<unsigned char>(part[i]))) {
                return false;
            }
            text += part[i];
            continue;
        }
        if (i + 2 >= part.size() || hex_value(part[i + 1]) < 0 || hex_value(part[i + 2]) < 0) {
            return false;
        }
        const auto byte = static_cast<unsigned char>(hex_value(part[i + 1]) * 16 + hex_value(part[i + 2]));
        if (stays_plain(byte)) {
            return false;
        }
        text += static_cast<char>(byte);
        i += 2;
    }
    return true;
}

} // namespace store
