// What a check of the doctor found.
#include "doctor/finding.h"

#include <algorithm>
#include <iterator>

#include "base/text.h"

namespace cg
{

namespace
{

constexpr std::size_t most_listed = 8;

// "a, b and c"
std::string enumerated(const std::vector<std::string> &texts)
{
    const std::string last = texts.empty() ? "" : texts.back();
    return texts.size() < 2 ? last : joined({texts.begin(), texts.end() - 1}) + " and " + last;
}

} // namespace

Finding refused(const store::Inspected &error, const std::string &fix)
{
    if (error.text.starts_with("NOPERM")) {
        return {Severity::skipped, "the server refuses to say: " + error.text, as_administrator};
    }
    if (error.text.starts_with("ERR unknown command")) {
        return {Severity::skipped, "the server does not say: " + error.text};
    }
    return {Severity::fail, "the server answers: " + error.text, fix};
}

std::string listed(const std::vector<std::string> &texts)
{
    const std::size_t shown = std::min(texts.size(), most_listed);
    const std::string text = joined({texts.begin(), texts.begin() + static_cast<std::ptrdiff_t>(shown)});
    return shown == texts.size() ? text : text + " and " + std::to_string(texts.size() - shown) + " more";
}

std::string databases_text(const std::set<int32_t> &databases)
{
    std::vector<std::string> numbers;
    std::transform(databases.begin(), databases.end(), std::back_inserter(numbers),
                   [](int32_t database) { return std::to_string(database); });
    return (numbers.size() == 1 ? "database " : "databases ") + enumerated(numbers);
}

std::string setting_names(const std::set<int32_t> &databases, platform::Setting (*setting_of)(int32_t))
{
    std::vector<std::string> names;
    for (const int32_t database : databases) {
        const std::string name = setting_of(database).name;
        if (std::find(names.begin(), names.end(), name) == names.end()) {
            names.push_back(name);
        }
    }
    return enumerated(names);
}

} // namespace cg
