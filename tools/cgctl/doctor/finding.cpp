// What a check of the doctor found.
#include "doctor/finding.h"

#include <algorithm>

#include "base/text.h"

namespace cg
{

namespace
{

constexpr std::size_t most_listed = 8;

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

} // namespace cg
