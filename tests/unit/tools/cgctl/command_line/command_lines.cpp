// Command lines of ours as pages show them.
#include "command_lines.h"

#include <algorithm>
#include <regex>
#include <sstream>

namespace cg
{

namespace
{

// Cuts a script into simple commands of words.
class Words
{
public:
    explicit Words(const std::string &script) : script_(script) {}

    std::vector<CommandLine> read()
    {
        while (at_ < script_.size()) {
            take(script_[at_]);
            ++at_;
        }
        end_command();
        return commands_;
    }

private:
    void take(char c)
    {
        if (c == '\\') {
            take_escaped();
        } else if (c == '\'' || c == '"') {
            take_quoted(c);
        } else if (c == '#' && !in_word_) {
            at_ = std::min(script_.find('\n', at_), script_.size()) - 1;
        } else if (c == ' ' || c == '\t') {
            end_word();
        } else if (std::string("\n|&;()").find(c) != std::string::npos) {
            end_command();
        } else if (c == '<' || c == '>') {
            end_word();
            skip_ = true;
        } else {
            word_ += c;
            in_word_ = true;
        }
    }

    void take_escaped()
    {
        ++at_;
        if (at_ < script_.size() && script_[at_] != '\n') {
            word_ += script_[at_];
            in_word_ = true;
        }
    }

    void take_quoted(char quote)
    {
        const std::size_t end = script_.find(quote, at_ + 1);
        word_ += script_.substr(at_ + 1, end - at_ - 1);
        at_ = std::min(end, script_.size());
        in_word_ = true;
    }

    void end_word()
    {
        if (in_word_ && !skip_) {
            words_.push_back(word_);
        }
        skip_ = skip_ && !in_word_;
        word_.clear();
        in_word_ = false;
    }

    void end_command()
    {
        end_word();
        skip_ = false;
        if (!words_.empty()) {
            commands_.push_back(words_);
        }
        words_.clear();
    }

    const std::string &script_;
    std::size_t at_ = 0;
    std::string word_;
    bool in_word_ = false;
    bool skip_ = false; // the next word is a redirection's file
    CommandLine words_;
    std::vector<CommandLine> commands_;
};

bool is_our_program(const std::string &word)
{
    return word == "cgctl" || word.ends_with("/cgctl");
}

} // namespace

std::vector<CommandLine> commands_in(const std::string &script)
{
    static const std::regex assignment("[A-Za-z_]+=.*");
    std::vector<CommandLine> ours;
    for (CommandLine &command : Words(script).read()) {
        const auto program = std::find_if_not(command.begin(), command.end(), [](const std::string &word) {
            return word == "$" || word == "!" || word == "if" || std::regex_match(word, assignment);
        });
        if (program != command.end() && is_our_program(*program)) {
            ours.emplace_back(program + 1, command.end());
        }
    }
    return ours;
}

std::vector<ShellText> shown_in_markdown(const std::string &page)
{
    static const std::regex span("`([^`]+)`");
    std::vector<ShellText> shown;
    std::istringstream lines(page);
    std::string line;
    std::string prose;
    bool fenced = false;
    bool for_shell = false;
    while (std::getline(lines, line)) {
        if (line.starts_with("```")) {
            fenced = !fenced;
            for_shell = fenced && (line.starts_with("```sh") || line == "```");
            if (for_shell) {
                shown.push_back({});
            }
        } else if (for_shell) {
            shown.back().text += line + '\n';
        } else if (!fenced) {
            prose += line + '\n';
        }
    }
    for (std::sregex_iterator match(prose.begin(), prose.end(), span); match != std::sregex_iterator();
         ++match) {
        std::string text = (*match)[1];
        std::replace(text.begin(), text.end(), '\n', ' ');
        shown.push_back({text, true});
    }
    return shown;
}

std::vector<ShellText> shown_in_mdoc(const std::string &page)
{
    std::vector<ShellText> shown;
    std::istringstream lines(page);
    std::string line;
    bool literal = false;
    while (std::getline(lines, line)) {
        line = std::regex_replace(line, std::regex(R"(\\\(aq)"), "'");
        line = std::regex_replace(line, std::regex(R"(\\e)"), "\\");
        if (line.starts_with(".Bd -literal")) {
            literal = true;
            shown.push_back({});
        } else if (line.starts_with(".Ed")) {
            literal = false;
        } else if (literal) {
            shown.back().text += line + '\n';
        } else if (line.starts_with(".Dl ")) {
            shown.push_back({line.substr(4)});
        }
    }
    return shown;
}

} // namespace cg
