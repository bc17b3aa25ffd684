// The manual page, put together from the verbs and from texts that are written by hand.
#include "command_line/manual.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "base/failure.h"
#include "base/text.h"

namespace cg
{

namespace
{

// In their order on the page, behind the verbs. A page need not have all.
constexpr std::array sections{"records", "environment", "files", "exit-status", "examples", "see-also"};

constexpr const char *made_from =
    ".\\\" Made from the verbs and from docs/man/cgctl by `cgctl manual`. Change those, and then run\n"
    ".\\\" cmake --build build/dev --target manual\n";

// The text with every occurrence of `name` replaced.
std::string filled_in(std::string text, const std::string &name, const std::string &value)
{
    for (auto at = text.find(name); at != std::string::npos; at = text.find(name, at + value.size())) {
        text.replace(at, name.size(), value);
    }
    return text;
}

// The files of the folder; each is to be used once.
class Prose
{
public:
    explicit Prose(std::string folder) : folder_(std::move(folder))
    {
        std::error_code problem;
        for (const auto &entry : std::filesystem::directory_iterator(folder_, problem)) {
            unused_.insert(entry.path().stem().string());
        }
        if (problem) {
            throw Failure(failed, folder_ + ": " + problem.message());
        }
    }

    [[nodiscard]] bool has(const std::string &name) const { return unused_.contains(name); }

    std::string use(const std::string &name)
    {
        const std::string path = folder_ + '/' + name + ".mdoc";
        std::ostringstream text;
        if (!(text << std::ifstream(path).rdbuf())) {
            throw Failure(failed,
                          path + " is missing or empty: it says what the page has to say about " + name);
        }
        unused_.erase(name);
        return text.str();
    }

    void expect_all_used() const
    {
        if (!unused_.empty()) {
            throw Failure(failed, folder_ + '/' + *unused_.begin() +
                                      ".mdoc belongs to no verb and is not a section of the page");
        }
    }

private:
    std::string folder_;
    std::set<std::string> unused_;
};

// A text as the formatter shows it: no line begins with a command, and a backslash is one.
std::string plain(std::string text)
{
    text = filled_in(std::move(text), "\\", "\\e");
    return text.starts_with('.') || text.starts_with('\'') ? "\\&" + text : text;
}

// A sentence to a line, as the formatter wants it.
std::string sentences(const std::string &text)
{
    std::string lines = filled_in(plain(text), ". ", ".\n");
    return lines + (lines.ends_with('.') ? "\n" : ".\n");
}

std::string flag(const std::string &name)
{
    return name.starts_with("--") ? "Fl Fl " + name.substr(2) : "Fl " + name.substr(1);
}

std::string value(const Argument &argument)
{
    if (argument.label.empty() || argument.words.empty()) {
        return argument.label.empty() ? "" : " Ar " + argument.label;
    }
    std::string words;
    for (const std::string &word : argument.words) {
        words += (words.empty() ? " Cm " : " | ") + word;
    }
    return words;
}

// The options that every verb has, and the page describes once.
bool is_general(const Argument &option)
{
    return option.names.back() == "--json" || option.names.back() == "--help";
}

std::string shown_place(const Argument &place)
{
    return value(place).substr(1) + (place.repeated ? " ..." : "");
}

// One form of the command for the synopsis.
std::string synopsis(const Verb &verb)
{
    std::string text = ".Nm" + (verb.path.empty() ? "" : " Cm " + verb.path) + '\n';
    for (const Argument &option : verb.options) {
        if (!is_general(option) && option.names.back() != "--version") {
            const std::string form = flag(option.names.back()) + value(option);
            text += (option.required ? "." : ".Op ") + form + '\n';
        }
    }
    for (const Argument &place : verb.places) {
        text += (place.required ? "." : ".Op ") + shown_place(place) + '\n';
    }
    if (verb.path.empty()) {
        text += verb.wants_verb ? ".Ar VERB ...\n" : ".Op Ar VERB ...\n";
    }
    return text + (verb.takes_command ? ".Fl Fl\n.Ar COMMAND Op Ar ARG ...\n" : "");
}

std::string arguments(const Verb &verb, bool general)
{
    std::string items;
    for (const Argument &place : verb.places) {
        items += ".It " + shown_place(place) + '\n' + sentences(place.description);
    }
    for (const Argument &option : verb.options) {
        if (general || !is_general(option)) {
            std::string names;
            for (const std::string &name : option.names) {
                names += (names.empty() ? "" : " , ") + flag(name);
            }
            items += ".It " + names + value(option) + '\n' + sentences(option.description);
        }
    }
    return items.empty() ? "" : ".Bl -tag -width Ds\n" + items + ".El\n";
}

std::string examples(const Verb &verb)
{
    std::string text;
    for (const std::string &example : verb.examples) {
        text += plain(example) + '\n';
    }
    return text.empty() ? "" : ".Pp\nFor example:\n.Bd -literal -offset indent\n" + text + ".Ed\n";
}

std::string description(const Verb &verb, Prose &prose)
{
    const std::string file = filled_in(verb.path, " ", "-");
    const bool is_below = verb.path != verb.name;
    std::string text = ".Ss " + verb.path + '\n' + sentences(verb.description);
    if (!is_below || prose.has(file)) {
        text += prose.use(file);
    }
    text += arguments(verb, false);
    // A group's examples are those of the verbs below it.
    return text + (verb.verbs.empty() ? examples(verb) : "");
}

} // namespace

std::string manual_page(const Verb &program, const std::string &prose_folder)
{
    Prose prose(prose_folder);
    std::string forms;
    std::string verbs;
    const std::string head = prose.use("head");
    const std::string about = prose.use("about");
    for_each_verb(program, [&](const Verb &verb) {
        if (!verb.wants_verb || verb.path.empty()) {
            forms += synopsis(verb);
        }
        verbs += verb.path.empty() ? "" : description(verb, prose);
    });
    std::string page = made_from + head + ".Sh SYNOPSIS\n" + forms + ".Sh DESCRIPTION\n" + about +
                       arguments(program, true) + ".Sh VERBS\n" + verbs;
    for (const char *section : sections) {
        page += prose.has(section) ? prose.use(section) : "";
    }
    prose.expect_all_used();
    return page;
}

} // namespace cg
