// What a cause says.
#include "verdict.h"

#include <array>
#include <string_view>
#include <vector>

#include "base/text.h"

namespace admission
{

namespace
{

using store::Cause;

constexpr int32_t main_board = 2; // p_dev.DM_TYPE_MB

// The places of a key's parts: the first is the type's name.
struct Form {
    std::string_view type;
    std::size_t parts; // with the type's name
    std::size_t devid; // slot and sub-slot follow
};
constexpr Form card_key{"p_dev.card_info", 5, 2};
constexpr Form answer_key{"p_libpub.app_cg_card_check_ack", 5, 1};

// The text that was escaped; nothing when it was not.
std::optional<std::string> unescaped(std::string_view text)
{
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            plain += text[i];
            continue;
        }
        const auto byte = cg::from_hex(text.substr(i + 1, 2));
        if (!byte || byte->size() != 1) {
            return std::nullopt;
        }
        plain += *byte;
        i += 2;
    }
    return plain;
}

// The position in a key of this form; nothing in another text.
std::optional<Position> position_in(const std::vector<std::string> &parts, const Form &form)
{
    if (parts.size() != form.parts || parts[0] != form.type) {
        return std::nullopt;
    }
    std::array<int32_t, 3> ids{};
    for (std::size_t i = 0; i < ids.size(); ++i) {
        const auto number = cg::to_number(parts[form.devid + i], INT32_MIN, INT32_MAX);
        if (!number) {
            return std::nullopt;
        }
        ids.at(i) = static_cast<int32_t>(*number);
    }
    return Position{ids[0], ids[1], ids[2]};
}

struct AnswerKey {
    Position position{};
    std::string module{};
};

std::optional<AnswerKey> answer_in(const Cause &cause)
{
    if (cause.kind != Cause::Kind::record) {
        return std::nullopt;
    }
    const std::vector<std::string> parts = cg::split(cause.key, ':');
    const std::optional<Position> position = position_in(parts, answer_key);
    const std::optional<std::string> module = position ? unescaped(parts.back()) : std::nullopt;
    return module ? std::optional(AnswerKey{*position, *module}) : std::nullopt;
}

std::optional<Position> card_in(const Cause &cause)
{
    return cause.kind == Cause::Kind::record ? position_in(cg::split(cause.key, ':'), card_key)
                                             : std::nullopt;
}

} // namespace

Verdict verdict_of(bool pass, const Cause &cause, int32_t node_type)
{
    if (const std::optional<AnswerKey> answer = answer_in(cause)) {
        return {pass ? Outcome::passed : Outcome::denied, answer->module, cause.revision, answer->position};
    }
    const std::optional<Position> card = card_in(cause);
    if (pass && node_type == main_board) {
        return {Outcome::exempt, "", 0, card};
    }
    if (pass && cause.kind == Cause::Kind::timer) {
        return {Outcome::silence};
    }
    return {pass && card ? Outcome::unasked : Outcome::unseen, "", 0, card};
}

bool is_daemons_request(const Cause &cause, const Position &position)
{
    return card_in(cause) == position;
}

bool is_read(const Cause &cause, const Position &position, const std::string &module)
{
    if (cause.kind == Cause::Kind::unknown) {
        return true;
    }
    const std::optional<AnswerKey> answer = answer_in(cause);
    return answer && answer->position == position && answer->module == module;
}

} // namespace admission
