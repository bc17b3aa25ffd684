// One line of a scenario, word by word.
#include "scenario_line.h"

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

// The column of a byte: characters before it, and one.
std::size_t column_of(std::string_view text, std::size_t byte)
{
    std::size_t column = 1;
    for (std::size_t i = 0; i < byte && i < text.size(); ++i) {
        column += (static_cast<unsigned char>(text[i]) & 0xC0U) != 0x80U ? 1 : 0;
    }
    return column;
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
    const auto at = static_cast<std::size_t>(differs.first - line.begin());
    if (!is_utf8(line)) {
        throw Mistake{column_of(text, at), "these bytes are no UTF-8"};
    }
    throw Mistake{column_of(text, at), "a control character; only blanks and tabs stand between words"};
}

class Splitter
{
public:
    explicit Splitter(std::string_view text) : text_(text) {}

    std::vector<Word> split()
    {
        std::vector<Word> words;
        for (skip_blanks(); at_ < text_.size() && text_[at_] != '#'; skip_blanks()) {
            words.push_back(next());
        }
        return words;
    }

    [[nodiscard]] std::size_t at() const { return at_; }

private:
    void skip_blanks()
    {
        while (at_ < text_.size() && is_blank(text_[at_])) {
            ++at_;
        }
    }

    Word next()
    {
        Word word;
        word.column = column_of(text_, at_);
        if (text_[at_] == ',') {
            word.text = text_[at_++];
            return word;
        }
        while (at_ < text_.size() && !is_blank(text_[at_]) && text_[at_] != ',') {
            if (text_[at_] == '"') {
                require_alone(word);
                word.text = in_quotes();
                word.quoted = true;
                require_gap();
                break;
            }
            if (text_[at_] == '=' && !word.has_key) {
                word.has_key = true;
                word.key = std::exchange(word.text, "");
            } else {
                word.text += text_[at_];
            }
            ++at_;
        }
        return word;
    }

    void require_alone(const Word &word) const
    {
        if (!word.text.empty()) {
            throw Mistake{column_of(text_, at_),
                          "a text in quotes begins in the middle of a word; a blank goes before it"};
        }
    }

    void require_gap() const
    {
        if (at_ < text_.size() && !is_blank(text_[at_]) && text_[at_] != ',') {
            throw Mistake{column_of(text_, at_), "a blank goes behind a text in quotes"};
        }
    }

    std::string in_quotes()
    {
        const std::size_t begin = at_++;
        std::string inside;
        for (; at_ < text_.size() && text_[at_] != '"'; ++at_) {
            if (text_[at_] == '\\') {
                ++at_;
                if (at_ == text_.size() || (text_[at_] != '"' && text_[at_] != '\\')) {
                    throw Mistake{column_of(text_, at_ - 1),
                                  R"(a backslash in quotes; it stands only before " and \)"};
                }
            }
            inside += text_[at_];
        }
        if (at_ == text_.size()) {
            throw Mistake{column_of(text_, begin), "this text in quotes has no end on the line"};
        }
        ++at_;
        return inside;
    }

    std::string_view text_;
    std::size_t at_ = 0;
};

// As it stands in a message.
std::string name_of(const Word &word)
{
    return word.has_key ? in_quotes(word.key + '=' + word.text) : in_quotes(word.text);
}

} // namespace

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

bool Line::take(std::string_view keyword)
{
    const Word *word = peek();
    const bool is = word != nullptr && !word->quoted && !word->has_key && word->text == keyword;
    next_ += is ? 1 : 0;
    return is;
}

Word Line::word(const std::string &what)
{
    if (at_end()) {
        throw Mistake{column(), what + " is missing here"};
    }
    return words_[next_++];
}

std::string Line::quoted(const std::string &what)
{
    const Word word = this->word(what + " in quotes");
    if (!word.quoted || word.has_key) {
        throw Mistake{word.column, what + " stands in quotes: \"" + visible(word.text) + '"'};
    }
    return word.text;
}

Position Line::position()
{
    const Word word = this->word("a position as in 1/3/0");
    try {
        return parse_position(word.has_key ? word.key + '=' + word.text : word.text);
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
    if (error != std::errc{} || factor == 0 || !std::isfinite(value) || word.quoted || word.has_key) {
        throw Mistake{word.column, name_of(word) + " is no time; a number and ms, s or m, as in 5s"};
    }
    const double milliseconds = std::round(value * factor);
    if (!(milliseconds >= static_cast<double>(least.count()) &&
          milliseconds <= static_cast<double>(Milliseconds(longest_time).count()))) {
        throw Mistake{word.column,
                      name_of(word) + " is out of range; from " + text_of(least) + " to an hour"};
    }
    return Milliseconds(static_cast<int64_t>(milliseconds));
}

std::string Line::module()
{
    const Word word = this->word("a module's name");
    std::string name = word.has_key ? word.key + '=' + word.text : word.text;
    if (const std::string mistake = module_name_mistake(name); !mistake.empty()) {
        throw Mistake{word.column, mistake};
    }
    return name;
}

std::vector<std::string> Line::modules()
{
    std::vector<std::string> names{module()};
    while (take(",")) {
        names.push_back(module());
    }
    return names;
}

int64_t Line::number(const std::string &what)
{
    const Word word = this->word(what);
    const auto number = to_number(word.text, INT32_MIN, INT32_MAX);
    if (!number || word.has_key) {
        throw Mistake{word.column, name_of(word) + " is not " + what};
    }
    return *number;
}

void Line::end(const std::string &usage) const
{
    if (!at_end()) {
        throw Mistake{column(), name_of(words_[next_]) + " is not expected here; " + usage};
    }
}

} // namespace cg::scenario
