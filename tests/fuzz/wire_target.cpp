// What comes from a server, byte for byte, through the functions that make our replies. Whatever it is, and
// wherever it is cut, it must come to what it would come to with the library's own functions.
//
// Input: the bytes as they are. Their number decides how they are cut.
#include "wire_reader.h"

#include <algorithm>

#include "fuzz.h"

namespace
{

using fuzz::require;
using wire_test::shown;

// The library's own functions reserve at once what a list announces.
constexpr long long most_announced = 100000;

bool announces_too_much(std::string_view bytes)
{
    for (size_t star = bytes.find('*'); star != std::string_view::npos; star = bytes.find('*', star + 1)) {
        const std::string digits(bytes.substr(star + 1, 20));
        if (std::atoll(digits.c_str()) > most_announced) {
            return true;
        }
    }
    return false;
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view bytes = fuzz::view_of(data, size);
    if (announces_too_much(bytes)) {
        return 0;
    }
    wire_test::OurReader ours;
    wire_test::TheirReader theirs;
    std::vector<store::Reply> held; // some are kept while others come
    const size_t piece = 1 + size % 13;
    for (size_t at = 0; at < size; at += piece) {
        ours.feed(bytes.substr(at, piece));
        theirs.feed(bytes.substr(at, piece));
        for (;;) {
            store::Reply reply = ours.next();
            const auto right = theirs.next();
            require(shown(reply.get()) == shown(right.get()), "both hold the same", shown(right.get()));
            if (reply == nullptr) {
                break;
            }
            if (held.size() < 3) {
                held.push_back(std::move(reply));
            }
        }
        if (at % 5 == 0) {
            held.clear();
        }
    }
    require(ours.failed() == theirs.failed(), "both take the stream for broken or not");
    return 0;
}
