// The file of credentials. What is accepted means what a simple reading of its lines says; what is refused is
// refused in words that do not depend on a secret, so that none can get into a log.
#include <algorithm>
#include <optional>

#include "store/connection/endpoint.h"

#include "memory_file.h"

namespace
{

using fuzz::require;
using store::Credentials;

constexpr std::string_view blanks = " \t";

// The value of the last line that begins with this word; empty when there is none.
std::string last_value(const std::vector<std::string> &lines, const std::string &word)
{
    std::string value;
    for (const std::string &line : lines) {
        if (line.size() > word.size() && line.compare(0, word.size(), word) == 0 &&
            blanks.find(line[word.size()]) != std::string_view::npos) {
            value = line.substr(line.find_first_not_of(blanks, word.size()));
        }
    }
    return value;
}

void check(const Credentials &credentials, const std::vector<std::string> &lines)
{
    require(credentials.user == last_value(lines, "user"), "the user is the one in the file");
    require(credentials.password == last_value(lines, "password"), "the password is the one in the file");
    require(credentials.sentinel_user == last_value(lines, "sentinel-user"), "so is the sentinels' user");
    require(credentials.sentinel_password == last_value(lines, "sentinel-password"),
            "so is the sentinels' password");
    require(credentials.user.empty() || !credentials.password.empty(), "a user has a password");
    require(credentials.sentinel_user.empty() || !credentials.sentinel_password.empty(),
            "a user of the sentinels has a password");
}

// The same file with other secrets.
std::string with_other_secrets(std::vector<std::string> lines)
{
    std::string text;
    for (std::string &line : lines) {
        for (const std::string word : {"password", "sentinel-password"}) {
            const size_t begin = line.compare(0, word.size(), word) == 0
                                     ? line.find_first_not_of(blanks, word.size())
                                     : std::string::npos;
            if (begin != std::string::npos && begin != word.size()) {
                std::fill(line.begin() + static_cast<std::ptrdiff_t>(begin), line.end(), 'x');
            }
        }
        text += line + '\n';
    }
    text.pop_back();
    return text;
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const fuzz::MemoryFile file;
    const std::string_view text = fuzz::view_of(data, size);
    const std::vector<std::string> lines = fuzz::parts_of(text, '\n');
    file.hold(text);
    std::string why;
    const auto credentials = store::read_credentials(file.path(), why);
    if (credentials) {
        check(*credentials, lines);
        return 0;
    }
    require(why.compare(0, file.path().size(), file.path()) == 0, "a refusal names the file", why);
    file.hold(with_other_secrets(lines));
    std::string why_again;
    require(!store::read_credentials(file.path(), why_again), "what was wrong is no secret", why);
    require(why_again == why, "a refusal does not depend on a secret", why);
    return 0;
}
