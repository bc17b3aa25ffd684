// The configured endpoint: any text of an operator is refused with a line that names it, or is an endpoint
// that comes out the same when its parts are written down again.
#include "store/connection/endpoint.h"

#include "fuzz.h"

namespace
{

using fuzz::require;
using store::Endpoint;
using store::HostPort;

void check_place(const HostPort &place)
{
    require(!place.host.empty() && place.port > 0 && place.port <= 65535, "a place has a host and a port");
    require(place.host.find_first_of(" \t\r\n,@") == std::string::npos, "a host is one word", place.host);
}

std::string text_of(const Endpoint &endpoint)
{
    if (!endpoint.path.empty()) {
        return "unix:" + endpoint.path;
    }
    if (endpoint.group.empty()) {
        return "tcp:" + store::place_text({endpoint.host, endpoint.port});
    }
    std::string text = "sentinel:" + endpoint.group + '@';
    for (const HostPort &place : endpoint.sentinels) {
        text += (text.back() == '@' ? "" : ",") + store::place_text(place);
    }
    return text;
}

void check(const Endpoint &endpoint)
{
    const int forms =
        (endpoint.path.empty() ? 0 : 1) + (endpoint.host.empty() ? 0 : 1) + (endpoint.group.empty() ? 0 : 1);
    require(forms == 1, "an endpoint is of one form", endpoint.text);
    require(endpoint.group.empty() == endpoint.sentinels.empty(), "a group has sentinels", endpoint.text);
    if (!endpoint.host.empty()) {
        check_place({endpoint.host, endpoint.port});
    }
    for (const HostPort &place : endpoint.sentinels) {
        check_place(place);
    }
    require(endpoint.path.size() < 108, "a socket's path fits into its address", endpoint.path);

    std::string why;
    const auto again = store::parse_endpoint(text_of(endpoint), why);
    require(again.has_value(), "an endpoint written down is one", text_of(endpoint));
    require(again->path == endpoint.path && again->host == endpoint.host && again->port == endpoint.port &&
                again->group == endpoint.group && again->sentinels == endpoint.sentinels,
            "an endpoint written down is the same one", text_of(endpoint));
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text = fuzz::c_text(fuzz::view_of(data, size));
    std::string why;
    const auto endpoint = store::parse_endpoint(text, why);
    if (endpoint) {
        require(endpoint->text == text, "the text is kept for messages", text);
        check(*endpoint);
    } else {
        require(why.find("'" + text + "'") != std::string::npos, "a refusal names the text", why);
    }
    return 0;
}
