// The doctor's checks of the folder of check modules, whose mistakes the daemon makes up for without a word.
#include "doctor/module_checks.h"

#include <algorithm>
#include <map>

#include "base/text.h"
#include "base/times.h"

namespace cg
{

namespace
{

std::string path_of(const Examination &examination, const std::string &file_name)
{
    return shell_word(examination.module_folder + '/' + file_name);
}

std::string right_length()
{
    return "at most " + std::to_string(longest_module_name) + " bytes";
}

// A name that an acknowledgement can carry and a person can read.
bool is_usable(const std::string &name)
{
    return visible(name) == name;
}

} // namespace

Finding check_module_folder(Examination &examination)
{
    examination.modules = read_module_folder(examination.module_folder);
    const std::string folder = shell_word(examination.module_folder);
    if (!examination.modules.readable) {
        return {Severity::fail, examination.module_folder + ": " + examination.modules.problem,
                "`mkdir -p " + folder + "`, and `chmod a+rx " + folder +
                    "`; then restart the daemon, which reads it only when it connects"};
    }
    if (examination.modules.entries.empty()) {
        return {Severity::warn,
                examination.module_folder + " is empty: every card is admitted without a check",
                "`touch " + path_of(examination, "NAME") +
                    "` for each check module, and restart the daemon, which reads it only when it connects"};
    }
    return {Severity::ok, listed(asked_of(examination.modules))};
}

Finding check_module_count(Examination &examination)
{
    const std::vector<ModuleEntry> &entries = examination.modules.entries;
    if (entries.size() <= most_modules) {
        return {Severity::ok, std::to_string(entries.size()) + " of at most " + std::to_string(most_modules)};
    }
    std::vector<std::string> ignored;
    std::string fix =
        "keep " + std::to_string(most_modules) + "; if these are not needed, remove them: `rm -r";
    for (std::size_t i = most_modules; i < entries.size(); ++i) {
        ignored.push_back(in_quotes(entries[i].file_name));
        fix += ' ' + path_of(examination, entries[i].file_name);
    }
    return {Severity::fail,
            std::to_string(entries.size()) + " entries, of which the daemon ignores " + listed(ignored),
            fix + '`'};
}

Finding check_module_names(Examination &examination)
{
    std::vector<std::string> wrong;
    std::vector<std::string> fixes;
    for (const ModuleEntry &entry : examination.modules.entries) {
        const bool is_cut = entry.file_name != entry.name;
        if (!is_usable(entry.name)) {
            wrong.push_back("no module can have the name " + in_quotes(entry.name) +
                            (is_cut ? ", which is what " + in_quotes(entry.file_name) + " is cut to" : ""));
            fixes.push_back("give the entry a name of " + right_length() +
                            ", UTF-8 without control characters (`ls -b " +
                            shell_word(examination.module_folder) + "` shows it)");
        } else if (is_cut) {
            wrong.push_back(in_quotes(entry.file_name) + " is cut to " + in_quotes(entry.name));
            fixes.push_back("have the module answer under a name of " + right_length() + ", and `mv " +
                            path_of(examination, entry.file_name) + ' ' + path_of(examination, entry.name) +
                            '`');
        }
    }
    if (!wrong.empty()) {
        return {Severity::fail, listed(wrong), listed(fixes)};
    }
    return {Severity::ok, right_length() + " each, as modules can have them"};
}

// The daemon knows the first by the name; the others' bits are cleared by nobody.
Finding check_duplicates(Examination &examination)
{
    std::map<std::string, std::vector<std::string>> files;
    for (const ModuleEntry &entry : examination.modules.entries) {
        files[entry.name].push_back(entry.file_name);
    }
    std::vector<std::string> wrong;
    std::vector<std::string> fixes;
    for (const auto &[name, duplicates] : files) {
        if (duplicates.size() > 1) {
            std::vector<std::string> quoted;
            for (const std::string &entry : duplicates) {
                quoted.push_back(in_quotes(entry));
            }
            wrong.push_back(listed(quoted) + " are both " + in_quotes(name) +
                            " to the daemon, so every card waits " + seconds_text(check_timeout) +
                            " for the second");
            for (std::size_t i = 1; i < duplicates.size(); ++i) {
                fixes.push_back("`rm -r " + path_of(examination, duplicates[i]) +
                                "`, or a name that differs in its first " +
                                std::to_string(longest_module_name) + " bytes");
            }
        }
    }
    if (!wrong.empty()) {
        return {Severity::fail, listed(wrong), listed(fixes)};
    }
    return {Severity::ok, "no duplicates"};
}

} // namespace cg
