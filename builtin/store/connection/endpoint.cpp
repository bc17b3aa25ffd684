// Reading the configured endpoint and credentials. They are text of an operator, so every refusal names the
// text and what would be right. A secret is never repeated in one.
#include "store/connection/endpoint.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "store/codec/number.h"

namespace store
{

namespace
{

constexpr const char *right_forms = "use unix:/path, tcp:host:port or sentinel:NAME@host:port,host:port";
constexpr const char *right_file = "use a file with the lines 'user NAME' and 'password SECRET', mode 0600";
constexpr size_t longest_path = sizeof(sockaddr_un::sun_path) - 1;
constexpr size_t longest_line = 4096;
constexpr size_t longest_file = 65536;

bool parse_port(std::string_view text, int &port)
{
    return parse_number(text, port) && port > 0 && port <= 65535;
}

// What no name or address of a host has, but a list with a slip in it.
bool is_out_of_place(char c)
{
    return static_cast<unsigned char>(c) <= ' ' || c == '\x7f' || c == '@' || c == ',';
}

bool parse_host_port(std::string_view text, HostPort &place)
{
    const size_t colon = text.rfind(':');
    if (colon == std::string_view::npos || !parse_port(text.substr(colon + 1), place.port)) {
        return false;
    }
    std::string_view host = text.substr(0, colon);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    } else if (host.find(':') != std::string_view::npos) {
        return false;
    }
    place.host = host;
    return !host.empty() && std::none_of(host.begin(), host.end(), is_out_of_place);
}

bool parse_tcp(std::string_view rest, Endpoint &endpoint)
{
    HostPort place;
    if (!parse_host_port(rest, place)) {
        return false;
    }
    endpoint.host = place.host;
    endpoint.port = place.port;
    return true;
}

// The addresses after the '@'. Returns what is wrong with them, or nothing.
std::string parse_sentinels(std::string_view rest, std::vector<HostPort> &sentinels)
{
    for (size_t begin = 0; begin <= rest.size();) {
        const size_t end = std::min(rest.find(',', begin), rest.size());
        const std::string_view text = rest.substr(begin, end - begin);
        HostPort place;
        if (text.empty()) {
            return ": the address of a sentinel is empty";
        }
        if (!parse_host_port(text, place)) {
            return ": '" + std::string(text) + "' is no host:port";
        }
        // Twice the same one would count as two that agree.
        if (std::find(sentinels.begin(), sentinels.end(), place) != sentinels.end()) {
            return ": " + place_text(place) + " is named twice";
        }
        sentinels.push_back(place);
        begin = end + 1;
    }
    return "";
}

std::string parse_group(std::string_view rest, Endpoint &endpoint)
{
    const size_t at = rest.find('@');
    if (at == std::string_view::npos) {
        return ": there is no '@' after the name of the group";
    }
    endpoint.group = rest.substr(0, at);
    if (std::any_of(endpoint.group.begin(), endpoint.group.end(), is_out_of_place)) {
        return ": '" + endpoint.group + "' is no name of a group";
    }
    return endpoint.group.empty() ? ": the name of the group is empty"
                                  : parse_sentinels(rest.substr(at + 1), endpoint.sentinels);
}

// Parses "WORD VALUE". Other words may begin with this one, so a blank has to follow.
bool parse_word(std::string_view line, std::string_view word, std::string &value)
{
    if (line.substr(0, word.size()) != word) {
        return false;
    }
    const size_t begin = line.find_first_not_of(" \t", word.size());
    if (begin == word.size() || begin == std::string_view::npos) {
        return false;
    }
    value = line.substr(begin);
    return true;
}

bool parse_line(std::string_view line, Credentials &credentials)
{
    return line.empty() || parse_word(line, "user", credentials.user) ||
           parse_word(line, "password", credentials.password) ||
           parse_word(line, "sentinel-user", credentials.sentinel_user) ||
           parse_word(line, "sentinel-password", credentials.sentinel_password);
}

// Returns what is wrong with the text of a file, or nothing.
std::string parse_lines(std::string_view text, Credentials &credentials)
{
    size_t number = 1;
    for (size_t begin = 0; begin < text.size(); number++) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        const std::string_view line = text.substr(begin, end - begin);
        if (line.size() > longest_line) {
            return "line " + std::to_string(number) + " is longer than " + std::to_string(longest_line) +
                   " bytes";
        }
        if (!parse_line(line, credentials)) {
            return "line " + std::to_string(number) +
                   " is neither 'user NAME' nor 'password SECRET', nor one of these with 'sentinel-' before "
                   "it";
        }
        begin = end + 1;
    }
    // A name alone would go to the server as nobody, and fail there with a text that says nothing of this.
    if (!credentials.user.empty() && credentials.password.empty()) {
        return "there is a line 'user NAME' and none 'password SECRET'";
    }
    if (!credentials.sentinel_user.empty() && credentials.sentinel_password.empty()) {
        return "there is a line 'sentinel-user NAME' and none 'sentinel-password SECRET'";
    }
    return "";
}

class File
{
public:
    // Does not wait for a writer, should it be a pipe.
    explicit File(const std::string &path) : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    ~File()
    {
        if (fd_ >= 0) {
            (void)close(fd_);
        }
    }
    int fd() const { return fd_; }

private:
    int fd_;
};

// Returns what is wrong with the file, or nothing. Asks the open file and not its name, which may come to
// mean another one in between.
std::string file_problem(const File &file)
{
    struct stat status {
    };
    if (file.fd() < 0 || fstat(file.fd(), &status) != 0) {
        return std::string(std::strerror(errno)) + ", " + right_file;
    }
    if (!S_ISREG(status.st_mode)) {
        return std::string("not a regular file, ") + right_file;
    }
    if ((status.st_mode & S_IRWXO) != 0) {
        return "others have rights to it, use mode 0600";
    }
    return "";
}

std::string read_all(const File &file, std::string &text)
{
    std::array<char, 4096> part;
    for (;;) {
        const ssize_t got = read(file.fd(), part.data(), part.size());
        if (got == 0) {
            return "";
        }
        if (got < 0) {
            return std::string("cannot be read: ") + std::strerror(errno);
        }
        text.append(part.data(), static_cast<size_t>(got));
        if (text.size() > longest_file) {
            return "longer than " + std::to_string(longest_file) + " bytes, " + right_file;
        }
    }
}

} // namespace

std::string place_text(const HostPort &place)
{
    const bool needs_brackets = place.host.find(':') != std::string::npos;
    return (needs_brackets ? "[" + place.host + "]" : place.host) + ":" + std::to_string(place.port);
}

std::optional<Endpoint> parse_endpoint(const std::string &text, std::string &why)
{
    Endpoint endpoint;
    endpoint.text = text;
    std::string detail;
    if (text.rfind("unix:", 0) == 0) {
        endpoint.path = text.substr(5);
        if (!endpoint.path.empty() && endpoint.path.front() == '/' && endpoint.path.size() <= longest_path) {
            return endpoint;
        }
        // It would be cut without a word, and the socket not found.
        detail = endpoint.path.size() <= longest_path
                     ? ""
                     : ": a socket's path has at most " + std::to_string(longest_path) + " bytes";
    } else if (text.rfind("tcp:", 0) == 0) {
        if (parse_tcp(std::string_view(text).substr(4), endpoint)) {
            return endpoint;
        }
    } else if (text.rfind("sentinel:", 0) == 0) {
        detail = parse_group(std::string_view(text).substr(9), endpoint);
        if (detail.empty()) {
            return endpoint;
        }
    }
    why = "endpoint '" + text + "' is none" + detail + ", " + right_forms;
    return std::nullopt;
}

std::optional<Credentials> read_credentials(const std::string &path, std::string &why)
{
    Credentials credentials;
    if (path.empty()) {
        return credentials;
    }
    const File file(path);
    std::string text;
    std::string problem = file_problem(file);
    if (problem.empty()) {
        problem = read_all(file, text);
    }
    if (problem.empty()) {
        problem = parse_lines(text, credentials);
    }
    if (!problem.empty()) {
        why = path + ": " + problem;
        return std::nullopt;
    }
    return credentials;
}

} // namespace store
