// What a check of the doctor found, and its renderers.
#include "doctor/finding.h"

#include <algorithm>

#include "base/text.h"

namespace cg
{

namespace
{

constexpr std::size_t most_listed = 8;

const char *word_of(Severity severity, bool for_people)
{
    switch (severity) {
    case Severity::ok:
        return "ok";
    case Severity::warn:
        return for_people ? "WARN" : "warn";
    case Severity::fail:
        return for_people ? "FAIL" : "fail";
    default:
        return for_people ? "skip" : "skipped";
    }
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

std::string finding_line(const std::string &check, const Finding &finding)
{
    std::string line = word_of(finding.severity, true);
    line.resize(6, ' ');
    line += check;
    line.resize(26, ' ');
    line += visible(finding.found);
    return finding.fix.empty() ? line : line + "; fix: " + visible(finding.fix);
}

Json finding_json(const std::string &check, const Finding &finding)
{
    return {{"version", 2},
            {"name", check},
            {"state", word_of(finding.severity, false)},
            {"found", visible(finding.found)},
            {"fix", visible(finding.fix)}};
}

} // namespace cg
