// The results that the daemon will come to.
#include "verdicts.h"

#include <utility>

namespace admission
{

namespace
{

// Of a card's module; more of them wait only while nobody decides, since the daemon is away.
constexpr std::size_t most_coming = 16;

} // namespace

void Verdicts::expect(const Answer &answer, bool none_left)
{
    const bool pass = answer.ret == 0;
    const std::optional<bool> before = coming_.empty() ? decided_ : std::optional(coming_.back().pass);
    if (before == std::optional(pass) || (pass && !none_left)) {
        return;
    }
    if (coming_.size() >= most_coming) {
        coming_.pop_front();
    }
    coming_.push_back({pass, answer.module, pass ? "" : answer.reason});
}

std::optional<Verdict> Verdicts::take(bool pass, bool time_up)
{
    decided_ = pass;
    if (pass && time_up && !coming_.empty() && !coming_.front().pass) {
        return std::nullopt; // the denial is still to come
    }
    std::optional<Verdict> verdict;
    while (!verdict && !coming_.empty()) {
        if (coming_.front().pass == pass) {
            verdict = std::move(coming_.front());
        }
        coming_.pop_front();
    }
    return verdict;
}

void Verdicts::forget()
{
    coming_.clear();
    decided_.reset();
}

} // namespace admission
