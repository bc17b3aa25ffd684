// Who made a change, as text and back.
#include "store/origin.h"

#include "store/codec/number.h"

namespace store
{

namespace
{

// Revisions and writes are counted from 1.
bool parse_count(std::string_view text, uint64_t &number)
{
    return parse_shortest(text, number) && number != 0;
}

Cause parse_cause(std::string_view text)
{
    if (text == "-") {
        return {Cause::Kind::none};
    }
    if (text == "timer") {
        return {Cause::Kind::timer};
    }
    if (text == "connection") {
        return {Cause::Kind::connection};
    }
    const std::size_t blank = text.find(' ');
    if (blank == std::string_view::npos || blank + 1 == text.size()) {
        return {};
    }
    uint64_t revision = 0;
    return parse_count(text.substr(0, blank), revision)
               ? Cause{Cause::Kind::record, revision, std::string(text.substr(blank + 1))}
               : Cause{};
}

} // namespace

void append_cause(Cause::Kind kind, uint64_t revision, std::string_view key, std::string &mark)
{
    switch (kind) {
    case Cause::Kind::none:
        mark += " -";
        break;
    case Cause::Kind::timer:
        mark += " timer";
        break;
    case Cause::Kind::connection:
        mark += " connection";
        break;
    case Cause::Kind::record:
        mark += ' ';
        mark += std::to_string(revision);
        mark += ' ';
        mark += key;
        break;
    case Cause::Kind::unknown:
        break;
    }
}

std::string text_of(const Origin &origin)
{
    std::string mark = origin.instance + '.' + std::to_string(origin.number);
    append_cause(origin.cause.kind, origin.cause.revision, origin.cause.key, mark);
    return mark;
}

Origin parse_origin(std::string_view text)
{
    const std::size_t blank = text.find(' ');
    const std::string_view writer = text.substr(0, blank);
    const std::size_t dot = writer.rfind('.');
    if (dot == std::string_view::npos || dot == 0) {
        return {};
    }
    uint64_t number = 0;
    if (!parse_count(writer.substr(dot + 1), number)) {
        return {};
    }
    return {std::string(writer.substr(0, dot)), number,
            blank == std::string_view::npos ? Cause{} : parse_cause(text.substr(blank + 1))};
}

} // namespace store
