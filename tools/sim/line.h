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

// What is wrong with a line, and at which of its bytes, which may lie behind the last one. Ends the parsing
// of the line.
struct Mistake {
    std::size_t at;
    std::string message;
};

struct Word {
    std::string text{};  // without the quotes; NAME=VALUE is one word
    bool quoted = false; // begins with a quote: a text, never a keyword
    std::size_t begin = 0;
    std::size_t end = 0; // both in bytes of the line
};

// Parses from left to right. Each function that finds something else than it wants throws a Mistake that
// stands at the word's place; `what` is what its message calls the word wanted, as in "a role".
class Line
{
public:
    // Splits a line into words. Throws Mistake for a text without an end, a control character, no UTF-8.
    explicit Line(std::string_view text);

    // Whether all words were consumed.
    [[nodiscard]] bool at_end() const { return next_ == words_.size(); }
    // Where the next word begins, or would.
    [[nodiscard]] std::size_t at() const;
    // Whether the next word is a text in quotes.
    [[nodiscard]] bool at_quoted() const { return !at_end() && words_[next_].quoted; }
    // The line from a word's place to the end of the last word that was consumed.
    [[nodiscard]] std::string text_from(std::size_t begin) const;

    // Whether the next word is this keyword; then it is consumed.
    bool accept(std::string_view keyword);
    // Any word.
    Word word(const std::string &what);
    // Which of the keywords the next word is: its index.
    std::size_t choice(const std::string &what, const std::vector<std::string> &keywords);
    // A text in quotes, without them.
    std::string quoted(const std::string &what);
    // "1/3/0", "1/3".
    Position position();
    // "5s", "200ms", "1.5m": from the least to an hour.
    Milliseconds time(Milliseconds least = Milliseconds{1});
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
};

} // namespace cg::scenario

#endif
