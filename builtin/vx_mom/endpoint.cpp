// Reading the configured endpoint and credentials. They are text of an operator, so every refusal names the
// text and what would be right.
#include "endpoint.h"

#include <sys/stat.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <string_view>

namespace vx_mom
{

namespace
{

constexpr const char *right_forms = "use unix:/path or tcp:host:port";
constexpr const char *right_file = "use a file with the lines 'user NAME' and 'password SECRET', mode 0600";

bool parse_port(std::string_view text, int &port)
{
    const char *end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, port);
    return result.ec == std::errc() && result.ptr == end && port > 0 && port <= 65535;
}

bool parse_tcp(std::string_view rest, Endpoint &endpoint)
{
    const size_t colon = rest.rfind(':');
    if (colon == std::string_view::npos || !parse_port(rest.substr(colon + 1), endpoint.port)) {
        return false;
    }
    std::string_view host = rest.substr(0, colon);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    } else if (host.find(':') != std::string_view::npos) {
        return false;
    }
    endpoint.host = host;
    return !host.empty();
}

bool take_word(const std::string &line, std::string_view word, std::string &value)
{
    if (line.compare(0, word.size(), word) != 0) {
        return false;
    }
    const size_t begin = line.find_first_not_of(" \t", word.size());
    if (begin == word.size() || begin == std::string::npos) {
        return false;
    }
    value = line.substr(begin);
    return true;
}

bool is_private(const std::string &path, std::string &why)
{
    struct stat status {
    };
    if (stat(path.c_str(), &status) != 0) {
        why = path + ": " + std::strerror(errno) + ", " + right_file;
        return false;
    }
    if ((status.st_mode & (S_IROTH | S_IWOTH)) != 0) {
        why = path + ": others may read or write it, use mode 0600";
        return false;
    }
    return true;
}

} // namespace

std::optional<Endpoint> parse_endpoint(const std::string &text, std::string &why)
{
    Endpoint endpoint;
    endpoint.text = text;
    if (text.rfind("unix:", 0) == 0) {
        endpoint.path = text.substr(5);
        if (!endpoint.path.empty() && endpoint.path.front() == '/') {
            return endpoint;
        }
    } else if (text.rfind("tcp:", 0) == 0) {
        if (parse_tcp(std::string_view(text).substr(4), endpoint)) {
            return endpoint;
        }
    } else if (text.rfind("sentinel:", 0) == 0) {
        why = "endpoint '" + text + "': Sentinel groups are not supported yet, " + right_forms;
        return std::nullopt;
    }
    why = "endpoint '" + text + "' is none, " + right_forms;
    return std::nullopt;
}

std::optional<Credentials> read_credentials(const std::string &path, std::string &why)
{
    Credentials credentials;
    if (path.empty()) {
        return credentials;
    }
    if (!is_private(path, why)) {
        return std::nullopt;
    }
    std::ifstream file(path);
    if (!file) {
        why = path + ": cannot be read, " + right_file;
        return std::nullopt;
    }
    std::string line;
    while (std::getline(file, line)) {
        if (!line.empty() && !take_word(line, "user", credentials.user) &&
            !take_word(line, "password", credentials.password)) {
            why = path + ": a line is neither 'user NAME' nor 'password SECRET'";
            return std::nullopt;
        }
    }
    return credentials;
}

} // namespace vx_mom
