// One line of a scenario, word by word.
#ifndef SIM_LINE_H
#define SIM_LINE_H

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "records/position.h"

namespace cg::scenario
{

using Milliseconds = std::chrono::milliseconds;

// What is wrong with a line, and at which column, counted from 1 in characters. Ends the parsing of the line.
struct Mistake {
    std::size_t column;
    std::string message;
};

struct Word {
    std::string text{};  // without the quotes; NAME=VALUE is one word
    bool quoted = false; // begins with a quote: a text, never a keyword
    std::size_t column = 0;
};

// How many characters a text has.
std::size_t characters_in(std::string_view text);

// A time as a scenario has it: "300s", "1.5s", "20ms".
std::string text_of(Milliseconds time);

// Reads from left to right. Each function that finds something else than it wants throws a Mistake that
// stands at the word's place; `what` is what its message calls the word wanted, as in "a role".
class Line
{
public:
    // Splits a line into words. Throws Mistake for a text without an end, a control character, no UTF-8.
    explicit Line(std::string_view text);

    [[nodiscard]] bool at_end() const { return next_ == words_.size(); }
    // The line without its comment and the blanks around it.
    [[nodiscard]] const std::string &text() const { return text_; }
    [[nodiscard]] std::size_t column() const; // of the next word, or behind the last one
    // Whether the next word is a text in quotes.
    [[nodiscard]] bool at_quoted() const { return !at_end() && words_[next_].quoted; }

    // Whether the next word is this keyword; then it is consumed.
    bool accept(std::string_view keyword);
    Word word(const std::string &what);
    // Which of the keywords the next word is: its index.
    std::size_t choice(const std::string &what, const std::vector<std::string> &keywords);
    std::string quoted(const std::string &what);
    Position position();
    // "5s", "200ms", "2m": from `least` to an hour.
    Milliseconds time(Milliseconds least);
    // A module's name, of the form that the daemon accepts.
    std::string module();
    // One name, or several with commas between.
    std::vector<std::string> modules();
    // A number of 32 bits.
    int32_t number(const std::string &what);

    // Throws a Mistake that shows the usage when something is left.
    void end(const std::string &usage) const;

private:
    std::string text_;
    std::vector<Word> words_;
    std::size_t next_ = 0;
    std::size_t end_column_ = 1;
};

} // namespace cg::scenario

#endif
