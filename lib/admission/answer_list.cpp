// What the modules answered to a card's last request.
#include "answer_list.h"

#include <algorithm>

namespace admission
{

namespace
{

constexpr std::ptrdiff_t most_answers = 16;

} // namespace

void AnswerList::add(Answer answer)
{
    const auto alike = [&answer](const Answer &other) {
        return other.registered == answer.registered && (!answer.registered || other.module == answer.module);
    };
    if (std::count_if(answers_.begin(), answers_.end(), alike) >= most_answers) {
        const auto oldest = std::find_if(answers_.begin(), answers_.end(), alike);
        if (oldest - answers_.begin() < static_cast<std::ptrdiff_t>(told_)) {
            --told_;
        }
        answers_.erase(oldest);
    }
    answers_.push_back(std::move(answer));
}

void AnswerList::replace(std::vector<Answer> answers)
{
    answers_ = std::move(answers);
    told_ = 0;
}

void AnswerList::begin_check()
{
    std::size_t told = 0;
    std::vector<Answer> kept;
    for (std::size_t i = 0; i < answers_.size(); ++i) {
        if (stands(answers_[i])) {
            told += i < told_ ? 1 : 0;
            kept.push_back(std::move(answers_[i]));
        } else {
            earlier_.push_back(std::move(answers_[i]));
        }
    }
    if (std::ssize(earlier_) > most_answers) {
        earlier_.erase(earlier_.begin(), earlier_.end() - most_answers);
    }
    answers_ = std::move(kept);
    told_ = told;
}

void AnswerList::set_read(const std::string &module, uint64_t revision)
{
    const auto is_it = [&](const Answer &answer) {
        return answer.module == module && answer.revision == revision;
    };
    const auto found = std::find_if(earlier_.rbegin(), earlier_.rend(), is_it);
    if (revision == 0 || found == earlier_.rend() || std::any_of(answers_.begin(), answers_.end(), is_it)) {
        return;
    }
    Answer answer = std::move(*found);
    earlier_.erase(std::prev(found.base()));
    add(std::move(answer));
}

bool AnswerList::stands(const std::string &module, uint64_t revision) const
{
    const auto found = standing_.find(module);
    return found != standing_.end() && found->second == revision;
}

const Answer *AnswerList::find(const std::string &module, uint64_t revision, bool pass) const
{
    const auto found = std::find_if(answers_.rbegin(), answers_.rend(), [&](const Answer &answer) {
        const bool is_known = answer.revision != 0 && revision != 0;
        return answer.module == module &&
               (is_known ? answer.revision == revision : (answer.ret == 0) == pass);
    });
    return found == answers_.rend() ? nullptr : &*found;
}

} // namespace admission
