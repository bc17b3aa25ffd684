// What may stand at the end of a command line that is being typed, read off the parser's verbs.
#include "command_line/completion.h"

#include <algorithm>

namespace cg
{

namespace
{

// The way through the words before the last one.
class Line
{
public:
    explicit Line(const Verb &program) : program_(program), verb_(&program) {}

    // Returns whether the words behind this one are still ours.
    bool pass(const std::string &word)
    {
        const std::size_t equals = word.find('=');
        if (option_ != nullptr) {
            note(*option_, word);
            option_ = nullptr;
        } else if (word == "--") {
            return false;
        } else if (word.starts_with("--") && equals != std::string::npos) {
            if (const Argument *known = option(word.substr(0, equals))) {
                note(*known, word.substr(equals + 1));
            }
        } else if (word.starts_with('-')) {
            const Argument *known = option(word);
            option_ = known != nullptr && !known->label.empty() ? known : nullptr;
        } else if (const Verb *below = verb_below(word)) {
            verb_ = below;
        } else {
            completion_.about = place_++ == 0 ? word : completion_.about;
        }
        return true;
    }

    Completion finish(const std::string &word)
    {
        const std::size_t equals = word.find('=');
        if (option_ != nullptr) {
            value_of(*option_, word);
        } else if (word.starts_with("--") && equals != std::string::npos) {
            if (const Argument *known = option(word.substr(0, equals))) {
                value_of(*known, word.substr(equals + 1));
                completion_.before.insert(0, word.substr(0, equals + 1));
            }
        } else if (word.starts_with('-')) {
            for (const Argument &known : verb_->options) {
                completion_.words.push_back({known.names.back(), known.description});
            }
        } else if (!verb_->verbs.empty()) {
            for (const Verb &below : verb_->verbs) {
                completion_.words.push_back({below.name, below.description});
            }
        } else if (!verb_->places.empty()) {
            const Argument &last = verb_->places.back();
            if (place_ < verb_->places.size()) {
                value_of(verb_->places[place_], word);
            } else if (last.repeated) {
                value_of(last, word);
            }
        }
        return completion_;
    }

private:
    // The program's own options may stand behind every verb.
    [[nodiscard]] const Argument *option(const std::string &name) const
    {
        for (const Verb *verb : {verb_, &program_}) {
            for (const Argument &known : verb->options) {
                if (std::find(known.names.begin(), known.names.end(), name) != known.names.end()) {
                    return &known;
                }
            }
        }
        return nullptr;
    }

    [[nodiscard]] const Verb *verb_below(const std::string &word) const
    {
        const auto below = std::find_if(verb_->verbs.begin(), verb_->verbs.end(),
                                        [&word](const Verb &known) { return known.name == word; });
        return below == verb_->verbs.end() ? nullptr : &*below;
    }

    void note(const Argument &known, const std::string &value)
    {
        if (known.names.back() == "--endpoint") {
            completion_.endpoint = value;
        } else if (known.names.back() == "--socket") {
            completion_.socket = value;
        }
    }

    void value_of(const Argument &known, const std::string &word)
    {
        completion_.kind = known.kind;
        completion_.is_list = known.repeated && !known.names.empty() && !known.words.empty();
        for (const std::string &value : known.words) {
            completion_.words.push_back({value});
        }
        const std::size_t comma = word.rfind(',');
        if (completion_.is_list && comma != std::string::npos) {
            completion_.before = word.substr(0, comma + 1);
        }
    }

    const Verb &program_;
    const Verb *verb_;
    const Argument *option_ = nullptr; // whose value the next word is
    std::size_t place_ = 0;            // of the next argument without a name
    Completion completion_{};
};

} // namespace

Completion completion_of(const Verb &program, const std::vector<std::string> &words)
{
    Line line(program);
    for (std::size_t i = 0; i + 1 < words.size(); ++i) {
        if (!line.pass(words[i])) {
            Completion other;
            other.kind = "--";
            return other;
        }
    }
    return line.finish(words.empty() ? "" : words.back());
}

} // namespace cg
