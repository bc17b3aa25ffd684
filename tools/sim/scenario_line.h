// One line of a scenario, word by word.
#ifndef SIM_SCENARIO_LINE_H
#define SIM_SCENARIO_LINE_H

#include <string>
#include <string_view>
#include <vector>

#include "scenario.h"

namespace cg::scenario
{

struct Word {
    std::string text{};  // without quotes; of NAME=VALUE the value
    std::string key{};   // of NAME=VALUE the name
    bool quoted = false; // a text, never a keyword
    bool has_key = false;
    std::size_t column = 0;
};

// A mistake; ends the reading of a line.
struct Mistake {
    std::size_t column;
    std::string message;
};

// Reads from left to right. Whatever is not as it should be throws a Mistake that stands at the word's place.
class Line
{
public:
    // Takes a line apart. Throws Mistake: a text without an end, a control character, no UTF-8.
    explicit Line(std::string_view text);

    [[nodiscard]] bool is_empty() const { return words_.empty(); }
    [[nodiscard]] bool at_end() const { return next_ == words_.size(); }
    // The line without its comment and the blanks around.
    [[nodiscard]] const std::string &text() const { return text_; }
    [[nodiscard]] std::size_t column() const; // of the next word, or behind the last one

    // Whether the next word is this keyword; then it is taken.
    bool take(std::string_view keyword);
    // Any next word; `what` says for the message which one is wanted, as in "a module's name".
    Word word(const std::string &what);
    // The next word where it is NAME=VALUE, or a plain one; null at the end.
    [[nodiscard]] const Word *peek() const { return at_end() ? nullptr : &words_[next_]; }

    // A text in quotes.
    std::string quoted(const std::string &what);
    Position position();
    // "5s", "200ms", "2m", from `least` to an hour.
    Milliseconds time(Milliseconds least);
    std::string module();
    // One name, or several with commas between.
    std::vector<std::string> modules();
    int64_t number(const std::string &what);

    // Throws a Mistake when something is left.
    void end(const std::string &usage) const;

private:
    std::string text_;
    std::vector<Word> words_;
    std::size_t next_ = 0;
    std::size_t end_column_ = 1;
};

} // namespace cg::scenario

#endif
