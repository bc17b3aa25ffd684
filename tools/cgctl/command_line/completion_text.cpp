// What both completion scripts are made with.
#include "command_line/completion.h"
#include "records/record_types.h"

namespace cg
{

namespace
{

std::string type_names(bool full)
{
    std::string names;
    for (const RecordType &type : record_types()) {
        if (type.db < 0) {
            continue; // lives in no database of its own
        }
        const std::string name = type.name();
        names += (names.empty() ? "" : " ") + (full ? name : name.substr(name.rfind('.') + 1));
    }
    return names;
}

} // namespace

void for_each_verb(const Verb &verb, const std::function<void(const Verb &)> &action)
{
    action(verb);
    for (const Verb &below : verb.verbs) {
        for_each_verb(below, action);
    }
}

std::string shell_quoted(const std::string &text)
{
    return '\'' + filled_in(text, "'", "'\\''") + '\'';
}

std::string short_type_names()
{
    return type_names(false);
}

std::string full_type_names()
{
    return type_names(true);
}

std::string filled_in(std::string text, const std::string &name, const std::string &value)
{
    for (auto at = text.find(name); at != std::string::npos; at = text.find(name, at + value.size())) {
        text.replace(at, name.size(), value);
    }
    return text;
}

} // namespace cg
