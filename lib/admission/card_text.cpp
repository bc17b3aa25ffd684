// A card's admission in words.
#include "admission/card_text.h"

#include "base/text.h"
#include "p_dev.pb-c.h"

namespace cg
{

namespace
{

using admission::Decision;
using admission::Outcome;
using admission::State;
using admission::TrackedCard;
using std::chrono::milliseconds;

std::string enum_word(const ProtobufCEnumDescriptor &type, int32_t value, std::size_t prefix)
{
    const ProtobufCEnumValue *found = protobuf_c_enum_descriptor_get_value(&type, value);
    if (found == nullptr) {
        return std::to_string(value);
    }
    return cg::lower(std::string_view(found->name).substr(prefix));
}

// Admitted by a result that names no answer, timer or card as its cause: an earlier build or another
// program wrote it.
bool is_unexplained(const TrackedCard &card)
{
    return card.state == State::passed && card.decider.empty();
}

std::string decider_text(const TrackedCard &card)
{
    return card.decider.empty() ? "" : "by " + visible(card.decider);
}

// Whom the time-out that admitted the card waited for, as far as somebody heard of it.
std::string silent_text(const TrackedCard &card)
{
    return card.explained && !card.last->silent.empty() ? "of " + visible(joined(card.last->silent)) : "";
}

std::string whom_text(const TrackedCard &card)
{
    const bool any = card.any_will_do && card.waiting_for.size() > 1;
    return card.waiting_for.empty() ? "" : (any ? "for any of " : "for ") + visible(joined(card.waiting_for));
}

std::string whole_seconds(milliseconds span)
{
    return std::to_string(std::chrono::ceil<std::chrono::seconds>(span).count()) + " s";
}

Json or_null(const std::optional<Time> &time)
{
    return time ? Json(utc_text(*time)) : Json(nullptr);
}

Json seconds_or_null(const std::optional<milliseconds> &span)
{
    return span ? Json(static_cast<double>(span->count()) / 1000) : Json(nullptr);
}

Json text_or_null(const std::string &text)
{
    return text.empty() ? Json(nullptr) : Json(text);
}

} // namespace

std::string short_type(int32_t node_type)
{
    return enum_word(p_dev__dm_node_type_e__descriptor, node_type, std::string_view("DM_TYPE_").size());
}

std::string role_word(int32_t role)
{
    return enum_word(p_dev__dm_role_e__descriptor, role, std::string_view("DM_ROLE_").size());
}

const Decision *denial_of(const TrackedCard &card)
{
    return card.denied && card.explained ? &*card.last : nullptr;
}

std::string state_text(const TrackedCard &card, std::optional<milliseconds> left)
{
    const auto [first, second] = state_parts(card, std::nullopt);
    return first + (second.empty() ? "" : " " + second) +
           (left && card.state == State::waiting ? " (" + whole_seconds(*left) + " left)" : "");
}

std::pair<std::string, std::string> state_parts(const TrackedCard &card, std::optional<milliseconds> left)
{
    const std::string word = text_of(card.state);
    switch (card.state) {
    case State::waiting:
        return {word + (left ? " " + whole_seconds(*left) : ""), whom_text(card)};
    case State::silence:
        return {word, silent_text(card)};
    case State::passed:
        return {word, is_unexplained(card) ? "(cause unknown)" : ""};
    case State::denied:
        return {word, decider_text(card)};
    case State::offline:
        return card.denied ? std::pair{word + ", " + text_of(State::denied), decider_text(card)}
                           : std::pair{word, std::string{}};
    default:
        return {word, ""};
    }
}

std::string ago_text(Time time, Time now)
{
    return "(" + span_text(std::chrono::duration_cast<milliseconds>(now - time)) + " ago)";
}

std::string since_text(const TrackedCard &card, Time now)
{
    if (!card.since) {
        return {};
    }
    return clock_text(*card.since, now) + ' ' + ago_text(*card.since, now);
}

Tone tone_of(const TrackedCard &card)
{
    switch (card.denied ? State::denied : card.state) {
    case State::absent:
    case State::offline:
        return Tone::quiet;
    case State::waiting:
        return Tone::waiting;
    case State::silence:
    case State::undecided:
        return Tone::warning;
    case State::denied:
        return Tone::bad;
    case State::passed:
        return is_unexplained(card) ? Tone::warning : Tone::good;
    case State::exempt:
    case State::unasked:
        return Tone::good;
    }
    return Tone::plain;
}

Tone tone_of(Outcome outcome)
{
    switch (outcome) {
    case Outcome::denied:
        return Tone::bad;
    case Outcome::silence:
    case Outcome::unseen:
        return Tone::warning;
    case Outcome::withdrawn:
        return Tone::quiet;
    default:
        return Tone::good;
    }
}

Tone tone_of(const Decision &decision)
{
    return was_cut_off(decision) ? Tone::warning : tone_of(decision.outcome);
}

std::string decision_text(const Decision &decision)
{
    std::string text = text_of(decision.outcome);
    if (decision.outcome == Outcome::unseen && decision.admitted) {
        text += *decision.admitted ? ", passed" : ", denied";
    }
    if (!decision.decider.empty()) {
        text += " by " + visible(decision.decider);
    }
    if (!decision.silent.empty()) {
        text += (decision.outcome == Outcome::silence ? " of " : " while waiting for ") +
                visible(joined(decision.silent));
    }
    if (!decision.reason.empty()) {
        text += ": " + visible(decision.reason);
    }
    return text;
}

std::string answer_text(const admission::Answer &answer)
{
    return visible(answer.module) + (answer.ret == 0 ? " PASS" : " DENY") +
           (answer.took ? " after " + seconds_text(*answer.took) : "") +
           (answer.reason.empty() ? "" : ": " + visible(answer.reason)) +
           (answer.registered ? "" : " (not registered: its answers are ignored)");
}

void Summary::add(const TrackedCard &card)
{
    ++counts_[card.denied ? State::denied : card.state]; // its denial is why it went offline
}

std::string Summary::text() const
{
    std::size_t total = 0;
    std::string parts;
    for (const State state : {State::passed, State::silence, State::waiting, State::denied, State::exempt,
                              State::unasked, State::undecided, State::offline, State::absent}) {
        const auto found = counts_.find(state);
        if (found != counts_.end()) {
            total += found->second;
            parts += (parts.empty() ? ": " : ", ") + std::to_string(found->second) + ' ' + text_of(state);
        }
    }
    return std::to_string(total) + (total == 1 ? " card" : " cards") + parts;
}

Json answer_json(const admission::Answer &answer)
{
    return {{"module", answer.module},
            {"verdict", answer.ret == 0 ? "PASS" : "DENY"},
            {"ret", answer.ret},
            {"reason", text_or_null(answer.reason)},
            {"at", utc_text(answer.at)},
            {"took_s", seconds_or_null(answer.took)},
            {"registered", answer.registered}};
}

Json decision_json(const Decision &decision)
{
    Json answers = Json::array();
    for (const admission::Answer &answer : decision.answers) {
        answers.push_back(answer_json(answer));
    }
    return {{"outcome", word_of(decision.outcome)},
            {"admitted", decision.admitted ? Json(*decision.admitted) : Json(nullptr)},
            {"decider", text_or_null(decision.decider)},
            {"silent", decision.silent},
            {"reason", text_or_null(decision.reason)},
            {"requested_at", or_null(decision.requested_at)},
            {"decided_at", utc_text(decision.decided_at)},
            {"role", decision.role ? Json(role_word(*decision.role)) : Json(nullptr)},
            {"complete", decision.complete},
            {"answers", answers}};
}

Json admission_json(const TrackedCard &card, std::optional<milliseconds> left)
{
    Json answers = Json::array();
    for (const admission::Answer &answer : card.answers) {
        answers.push_back(answer_json(answer));
    }
    return {{"state", word_of(card.state)},
            {"unseen", is_unexplained(card)},
            {"denied", card.denied},
            {"decider", text_or_null(card.decider)},
            {"since", or_null(card.since)},
            {"waiting_for", card.waiting_for},
            {"any_will_do", card.any_will_do},
            {"requested_at", card.open ? or_null(card.requested_at) : Json(nullptr)},
            {"time_left_s", seconds_or_null(left)},
            {"answers", answers},
            {"decision", card.last ? decision_json(*card.last) : Json(nullptr)}};
}

} // namespace cg
