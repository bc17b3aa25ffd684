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

bool is_blank(char c)
{
    return c == ' ' || c == '\t';
}

// The column of a byte.
std::size_t column_of(std::string_view text, std::size_t byte)
{
    return characters_in(text.substr(0, byte)) + 1;
}

// Nothing that a terminal would obey, and nothing that could not be shown.
void require_plain(std::string_view text)
{
    std::string line(text);
    std::replace(line.begin(), line.end(), '\t', ' ');
    const std::string plain = visible(line);
    if (plain == line) {
        return;
    }
    const auto differs = std::mismatch(line.begin(), line.end(), plain.begin(), plain.end());
    throw Mistake{column_of(text, static_cast<std::size_t>(differs.first - line.begin())),
                  is_utf8(line) ? "a control character; only blanks and tabs stand between words"
                                : "these bytes are no UTF-8"};
}

class Splitter
{
public:
    explicit Splitter(std::string_view text) : text_(text) {}

    std::vector<Word> split()
    {
        std::vector<Word> words;
        for (skip_blanks(); !at_end() && text_[at_] != '#'; skip_blanks()) {
            words.push_back(next());
        }
        return words;
    }

    [[nodiscard]] std::size_t at() const { return at_; }

private:
    [[nodiscard]] bool at_end() const { return at_ == text_.size(); }
    [[nodiscard]] bool at_gap() const { return at_end() || is_blank(text_[at_]) || text_[at_] == ','; }

    void skip_blanks()
    {
        while (!at_end() && is_blank(text_[at_])) {
            ++at_;
        }
    }

    Word next()
    {
        Word word{"", text_[at_] == '"', column_of(text_, at_)};
        if (text_[at_] == ',') {
            word.text = text_[at_++];
            return word;
        }
        while (!at_gap()) {
            if (text_[at_] != '"') {
                word.text += text_[at_++];
                continue;
            }
            if (!word.text.empty() && word.text.find('=') != word.text.size() - 1) {
                throw Mistake{column_of(text_, at_),
                              "a text in quotes begins in the middle of a word; a blank goes before it"};
            }
            word.text += in_quotes();
            if (!at_gap()) {
                throw Mistake{column_of(text_, at_), "a blank goes behind a text in quotes"};
            }
        }
        return word;
    }

    std::string in_quotes()
    {
        const std::size_t begin = at_++;
        std::string inside;
        for (; !at_end() && text_[at_] != '"'; ++at_) {
            if (text_[at_] == '\\') {
                ++at_;
                if (at_end() || (text_[at_] != '"' && text_[at_] != '\\')) {
                    throw Mistake{column_of(text_, at_ - 1),
                                  R"(a backslash in quotes; it stands only before " and \)"};
                }
            }
            inside += text_[at_];
        }
        if (at_end()) {
            throw Mistake{column_of(text_, begin), "this text in quotes has no end on the line"};
        }
        ++at_;
        return inside;
    }

    std::string_view text_;
    std::size_t at_ = 0;
};

} // namespace

std::size_t characters_in(std::string_view text)
{
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

std::string text_of(Milliseconds time)
{
    const int64_t count = time.count();
    if (count % 1000 != 0 && count < 1000) {
        return std::to_string(count) + "ms";
    }
    std::string fraction = '.' + std::to_string(1000 + count % 1000).substr(1);
    fraction.erase(fraction.find_last_not_of(".0") + 1);
    return std::to_string(count / 1000) + fraction + 's';
}

Line::Line(std::string_view text)
{
    require_plain(text);
    Splitter splitter(text);
    words_ = splitter.split();
    std::size_t end = splitter.at();
    while (end > 0 && is_blank(text[end - 1])) {
        --end;
    }
    end_column_ = column_of(text, end);
    text_ = text.substr(0, end);
    text_.erase(0, text_.find_first_not_of(" \t"));
}

std::size_t Line::column() const
{
    return at_end() ? end_column_ + 1 : words_[next_].column;
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
        throw Mistake{column(), what + " is missing here"};
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
    throw Mistake{other.column,
                  in_quotes(other.text) + " is not " + what + "; " + suggestion(other.text, keywords)};
}

std::string Line::quoted(const std::string &what)
{
    const Word word = this->word(what + " in quotes");
    if (!word.quoted) {
        throw Mistake{word.column, what + " stands in quotes: \"" + visible(word.text) + '"'};
    }
    return word.text;
}

Position Line::position()
{
    const Word word = this->word("a position as in 1/3/0");
    try {
        return parse_position(word.text);
    } catch (const Failure &failure) {
        throw Mistake{word.column, failure.what()};
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
        throw Mistake{word.column, in_quotes(word.text) + " is no time; a number and ms, s or m, as in 5s"};
    }
    const double milliseconds = std::round(value * factor);
    if (!(milliseconds >= static_cast<double>(least.count()) &&
          milliseconds <= static_cast<double>(Milliseconds(longest_time).count()))) {
        throw Mistake{word.column,
                      in_quotes(word.text) + " is out of range; from " + text_of(least) + " to an hour"};
    }
    return Milliseconds(static_cast<int64_t>(milliseconds));
}

std::string Line::module()
{
    const Word word = this->word("a module's name");
    if (const std::string mistake = module_name_mistake(word.text); !mistake.empty()) {
        throw Mistake{word.column, mistake};
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
        throw Mistake{word.column, in_quotes(word.text) + " is not " + what};
    }
    return static_cast<int32_t>(*number);
}

void Line::end(const std::string &usage) const
{
    if (!at_end()) {
        throw Mistake{column(), in_quotes(words_[next_].text) + " is not expected here; " + usage};
    }
}

} // namespace cg::scenario
