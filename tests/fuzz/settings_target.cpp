// The file of settings, read by its lines a second time in a simpler way.
#include "loop/settings.h"

#include <cerrno>
#include <optional>

#include "memory_file.h"

namespace
{

using fuzz::require;

constexpr const char *text_setting = "VX_ZLOG";
constexpr const char *number_setting = "VX_MOM_DEADLINE_MS";
constexpr int64_t fallback = 5000;
constexpr platform::Bounds bounds{1, 3600000};

std::string stripped(std::string text)
{
    constexpr std::string_view blanks = " \t\r\n";
    while (!text.empty() && blanks.find(text.back()) != std::string_view::npos) {
        text.pop_back();
    }
    while (!text.empty() && blanks.find(text.front()) != std::string_view::npos) {
        text.erase(0, 1);
    }
    return text;
}

std::string value_in(const std::vector<std::string> &lines, const std::string &name)
{
    std::string value;
    for (const std::string &line : lines) {
        const std::string text = stripped(line);
        const size_t equals = text.find('=');
        if (equals != std::string::npos && text.front() != '#' && stripped(text.substr(0, equals)) == name) {
            value = stripped(text.substr(equals + 1));
        }
    }
    return value;
}

// The number that a text is, or nothing when it is none within the bounds.
std::optional<int64_t> number_in(const std::string &text)
{
    const size_t sign = text.front() == '-' ? 1 : 0;
    if (text.size() == sign || text.find_first_not_of("0123456789", sign) != std::string::npos) {
        return std::nullopt;
    }
    errno = 0;
    const long long number = std::strtoll(text.c_str(), nullptr, 10);
    const bool fits = errno == 0 && number >= bounds.least && number <= bounds.most;
    return fits ? std::optional<int64_t>(number) : std::nullopt;
}

void check_number(const std::string &text)
{
    const auto number = text.empty() ? std::optional<int64_t>(fallback) : number_in(text);
    require(platform::number_problem({number_setting, text}, bounds).empty() == number.has_value(),
            "fault is found with what is no number in the bounds", text);
    // Mistakes are remembered, to be told once: all that are long would fill the memory.
    if (number || text.size() <= 2) {
        require(platform::setting_number(number_setting, fallback, bounds.least, bounds.most) ==
                    number.value_or(fallback),
                "a number counts when it is one", text);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const fuzz::MemoryFile file;
    static const bool prepared = setenv("VX_PLATFORM_CONF", file.path().c_str(), 1) == 0 &&
                                 unsetenv(text_setting) == 0 && unsetenv(number_setting) == 0;
    require(prepared, "the environment names the file");
    platform::on_setting_mistake([](const std::string &message) {
        require(message.compare(0, 10, "platform: ") == 0, "a mistake is told as the platform's", message);
    });
    const std::string_view text = fuzz::view_of(data, size);
    file.hold(text);
    const std::vector<std::string> lines = fuzz::parts_of(text, '\n');
    const std::string value = value_in(lines, text_setting);
    require(platform::setting(text_setting, "fallback") == (value.empty() ? "fallback" : value),
            "the last line of the name counts", value);
    check_number(value_in(lines, number_setting));
    return 0;
}
