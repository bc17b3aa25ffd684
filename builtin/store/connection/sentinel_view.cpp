// Reading and weighing what sentinels say; see the header.
#include "store/connection/sentinel_view.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

#include "store/codec/number.h"
#include "store/connection/stream.h"

namespace store
{

namespace
{

constexpr size_t longest_host = 255;
constexpr size_t longest_words = 200; // of a stranger in a message

bool is_printable(char c)
{
    return c > ' ' && c <= '~';
}

// The place that two texts give; nothing when they give none.
std::optional<HostPort> place_of(const std::string &host, const std::string &port)
{
    int number = 0;
    const bool is_host =
        !host.empty() && host.size() <= longest_host && std::all_of(host.begin(), host.end(), is_printable);
    if (!is_host || !parse_number(port, number) || number <= 0 || number > 65535) {
        return std::nullopt;
    }
    return HostPort{host, number};
}

std::optional<HostPort> place_of(const redisReply *address)
{
    if (address == nullptr || address->type != REDIS_REPLY_ARRAY || address->elements != 2) {
        return std::nullopt;
    }
    return place_of(text_of(address->element[0]), text_of(address->element[1]));
}

// A value of a list of names and values; empty when it is not there.
std::string value_of(const redisReply *list, std::string_view name)
{
    if (list == nullptr || list->type != REDIS_REPLY_ARRAY) {
        return "";
    }
    for (size_t i = 0; i + 1 < list->elements; i += 2) {
        if (text_of(list->element[i]) == name) {
            return text_of(list->element[i + 1]);
        }
    }
    return "";
}

bool has_only_doubts(std::string_view flags)
{
    constexpr std::array<std::string_view, 3> doubts{"master", "s_down", "disconnected"};
    for (size_t begin = 0; begin <= flags.size();) {
        const size_t end = std::min(flags.find(',', begin), flags.size());
        if (std::find(doubts.begin(), doubts.end(), flags.substr(begin, end - begin)) == doubts.end()) {
            return false;
        }
        begin = end + 1;
    }
    return true;
}

SentinelView::Health health_of(const std::string &flags)
{
    if (flags == "master") {
        return SentinelView::Health::plain;
    }
    return flags.empty() || has_only_doubts(flags) ? SentinelView::Health::doubtful
                                                   : SentinelView::Health::troubled;
}

bool is_run_id(const std::string &text)
{
    return text.size() <= 64 && text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

} // namespace

std::optional<SentinelView> read_view(const redisReply *details, const redisReply *address,
                                      const std::string &group, std::string &problem)
{
    const std::optional<HostPort> place = place_of(address);
    if (!place) {
        if (address != nullptr && address->type == REDIS_REPLY_ERROR) {
            problem = "refuses: " + quotable(text_of(address));
        } else if (address != nullptr && address->type == REDIS_REPLY_NIL) {
            problem = "no group '" + group + "'";
        } else {
            problem = "answers with something that is no address";
        }
        return std::nullopt;
    }
    SentinelView view;
    view.place = *place;
    // While it replaces a master a sentinel already names the promoted one, with the epoch that goes with it,
    // but the other details are the old one's yet.
    if (!parse_number(value_of(details, "config-epoch"), view.epoch) || view.epoch < 0) {
        view.epoch = -1;
    }
    view.flags = value_of(details, "flags");
    if (place_of(value_of(details, "ip"), value_of(details, "port")) == place) {
        const std::string run_id = value_of(details, "runid");
        view.run_id = is_run_id(run_id) ? run_id : "";
        view.health = health_of(view.flags);
    }
    return view;
}

namespace
{

using Views = std::vector<SentinelView>;

Views newest(const Views &views)
{
    int64_t epoch = -1;
    for (const SentinelView &view : views) {
        epoch = std::max(epoch, view.epoch);
    }
    Views result;
    std::copy_if(views.begin(), views.end(), std::back_inserter(result),
                 [epoch](const SentinelView &view) { return view.epoch == epoch; });
    return result;
}

Views naming(const Views &views, const HostPort &place)
{
    Views result;
    std::copy_if(views.begin(), views.end(), std::back_inserter(result),
                 [&place](const SentinelView &view) { return view.place == place; });
    return result;
}

// Those that name what most of them name.
Views majority(const Views &views)
{
    Views result;
    for (const SentinelView &view : views) {
        Views same = naming(views, view.place);
        if (same.size() > result.size()) {
            result = std::move(same);
        }
    }
    return result;
}

// A run that only some know of began just now, and none is to be relied upon yet.
std::string common_run_id(const Views &views)
{
    std::string common;
    for (const SentinelView &view : views) {
        if (!common.empty() && !view.run_id.empty() && view.run_id != common) {
            return "";
        }
        common = view.run_id.empty() ? common : view.run_id;
    }
    return common;
}

bool is_agreed(const Views &votes, size_t of)
{
    size_t plain = 0;
    for (const SentinelView &view : votes) {
        if (view.health == SentinelView::Health::troubled) {
            return false;
        }
        plain += view.health == SentinelView::Health::plain ? 1 : 0;
    }
    return votes.size() * 2 > of && plain * 2 >= of;
}

} // namespace

std::optional<Master> choose_master(const Views &views, const std::string &group)
{
    const Views candidates = newest(views);
    const Views votes = majority(candidates);
    if (votes.empty()) {
        return std::nullopt;
    }
    Master master;
    const HostPort &place = votes.front().place;
    master.place.host = place.host;
    master.place.port = place.port;
    master.place.text = place_text(place) + " of " + group;
    master.run_id = common_run_id(votes);
    master.is_agreed = is_agreed(votes, candidates.size());
    return master;
}

std::string quotable(std::string text)
{
    text.resize(std::min(text.size(), longest_words));
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c != ' ' && !is_printable(c); }, '?');
    return text;
}

} // namespace store
