// One line of a scenario, word by word.
#include "line.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "base/failure.h"
#include "base/text.h"
#include "modules/module_folder.h"

namespace cg::scenario
{

namespace
{

constexpr std::chrono::hours longest_time{1};

// Nothing that a terminal would obey, and nothing that could not be shown.
void require_plain(const std::string &line)
{
    const std::string plain = visible(line);
    if (plain == line) {
        return;
    }
    const auto differs = std::mismatch(line.begin(), line.end(), plain.begin(), plain.end());
    throw Mistake{static_cast<std::size_t>(differs.first - line.begin()),
                  is_utf8(line) ? "a control character; only blanks and tabs stand between words"
                                : "these bytes are not UTF-8"};
}

// The text in quotes that begins at a place, without them; `at` becomes the place behind it.
std::string unquoted(std::string_view text, std::size_t &at)
{
    const std::size_t begin = at++;
    std::string inside;
    for (; at < text.size() && text[at] != '"'; ++at) {
        if (text[at] == '\\') {
            ++at;
            if (at == text.size() || (text[at] != '"' && text[at] != '\\')) {
                throw Mistake{at - 1, R"(a backslash in quotes; it stands only before " and \)"};
            }
        }
        inside += text[at];
    }
    if (at == text.size()) {
        throw Mistake{begin, "this text in quotes has no end on the line"};
    }
    ++at;
    return inside;
}

// The word that begins at a place: a comma, or what ends before a blank or a comma outside of quotes.
Word word_at(std::string_view text, std::size_t begin)
{
    if (text[begin] == ',') {
        return {",", false, begin, begin + 1};
    }
    std::size_t end = std::min(text.find_first_of(" ,\"", begin), text.size());
    Word word{std::string(text.substr(begin, end - begin)), text[begin] == '"', begin};
    if (end < text.size() && text[end] == '"') {
        if (!word.text.empty() && !word.text.ends_with('=')) {
            throw Mistake{end, "a text in quotes begins in the middle of a word; a blank goes before it"};
        }
        word.text += unquoted(text, end);
        if (end < text.size() && text[end] != ' ' && text[end] != ',') {
            throw Mistake{end, "a blank goes behind a text in quotes"};
        }
    }
    word.end = end;
    return word;
}

} // namespace

Line::Line(std::string_view text) : text_(text)
{
    std::replace(text_.begin(), text_.end(), '\t', ' ');
    require_plain(text_);
    std::size_t at = text_.find_first_not_of(' ');
    while (at != std::string::npos && text_[at] != '#') {
        words_.push_back(word_at(text_, at));
        at = text_.find_first_not_of(' ', words_.back().end);
    }
}

std::size_t Line::at() const
{
    return !at_end() ? words_[next_].begin : words_.empty() ? 0 : words_.back().end + 1;
}

std::string Line::text_from(std::size_t begin) const
{
    return next_ == 0 ? "" : text_.substr(begin, words_[next_ - 1].end - begin);
}

bool Line::accept(std::string_view keyword)
{
    const bool is_next = !at_end() && !words_[next_].quoted && words_[next_].text == keyword;
    next_ += is_next ? 1 : 0;
    return is_next;
}

Word Line::word(const std::string &what)
{
    if (at_end()) {
        throw Mistake{at(), what + " is missing here"};
    }
    return words_[next_++];
}

std::size_t Line::choice(const std::string &what, const std::vector<std::string> &keywords)
{
    for (std::size_t i = 0; i < keywords.size(); ++i) {
        if (accept(keywords[i])) {
            return i;
        }
    }
    const Word other = word(what);
    throw Mistake{other.begin,
                  in_quotes(other.text) + " is not " + what + "; " + suggestion(other.text, keywords)};
}

std::string Line::quoted(const std::string &what)
{
    const Word word = this->word(what + " in quotes");
    if (!word.quoted) {
        throw Mistake{word.begin, what + " stands in quotes: " + in_quotes(word.text)};
    }
    return word.text;
}

Position Line::position()
{
    const Word word = this->word("a position as in 1/3/0");
    try {
        return parse_position(word.text);
    } catch (const Failure &failure) {
        throw Mistake{word.begin, failure.what()};
    }
}

Milliseconds Line::time(Milliseconds least)
{
    const Word word = this->word("a time as in 5s");
    double value = 0;
    const char *end = word.text.data() + word.text.size();
    const auto [stopped, error] = std::from_chars(word.text.data(), end, value, std::chars_format::fixed);
    const std::string_view unit(stopped, static_cast<std::size_t>(end - stopped));
    const double factor = unit == "ms" ? 1 : unit == "s" ? 1000 : unit == "m" ? 60000 : 0;
    if (error != std::errc{} || factor == 0 || !std::isfinite(value) || word.quoted) {
        throw Mistake{word.begin, in_quotes(word.text) + " is not a time; a number and ms, s or m, as in 5s"};
    }
    const double milliseconds = std::round(value * factor);
    if (milliseconds < static_cast<double>(least.count()) ||
        milliseconds > static_cast<double>(Milliseconds(longest_time).count())) {
        throw Mistake{word.begin, in_quotes(word.text) + " is out of range; from " +
                                      std::to_string(least.count()) + " ms to an hour"};
    }
    return Milliseconds(static_cast<int64_t>(milliseconds));
}

std::string Line::module()
{
    const Word word = this->word("a module's name");
    if (const std::string mistake = module_name_mistake(word.text); !mistake.empty()) {
        throw Mistake{word.begin, mistake};
    }
    return word.text;
}

std::vector<std::string> Line::modules()
{
    std::vector<std::string> names{module()};
    while (accept(",")) {
        names.push_back(module());
    }
    return names;
}

int32_t Line::number(const std::string &what)
{
    const Word word = this->word(what);
    const auto number = to_number(word.text, INT32_MIN, INT32_MAX);
    if (!number) {
        throw Mistake{word.begin, in_quotes(word.text) + " is not " + what};
    }
    return static_cast<int32_t>(*number);
}

void Line::end(const std::string &usage) const
{
    if (!at_end()) {
        throw Mistake{at(), in_quotes(words_[next_].text) + " is not expected here; " + usage};
    }
}

} // namespace cg::scenario
