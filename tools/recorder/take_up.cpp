// What the recorder takes from its file when that is open: at its start, or later where it could not be
// opened then.
//
// Meanwhile it has listened. So the tracker is told of the past as of something older than all that it knows,
// and what is to be written of it goes before what waits.
#include <algorithm>
#include <utility>

#include "recorder.h"

namespace recorder
{

// Everything is read before anything is changed: what cannot be read now is read at the next try.
void Recorder::opened(history::Writer &writer)
{
    std::vector<Outbox::Write> first;
    if (taken_up_) {
        first_ = &first;
        open_anew();
    } else {
        const Past past{writer.last_decisions(), writer.open_checks(),  writer.life_note(),
                        writer.last_alive(),     writer.last_gap_end(), writer.modules_note()};
        taken_up_ = true;
        first_ = &first;
        take_up(past);
    }
    first_ = nullptr;
    outbox_.put_first(std::move(first));
}

// A damaged file was moved aside, and the one in its place knows nothing: neither of what stands, nor which
// of the daemon's notes the other one has.
void Recorder::open_anew()
{
    if (!life_.last_line().empty()) {
        write([note = life_.last_line()](history::Writer &writer) { writer.set_life_note(note); });
    }
    if (noted_modules_) {
        write([modules = *noted_modules_](history::Writer &writer) { writer.set_modules_note(modules); });
    }
    if (gap_ && *gap_->row) {
        write(gap_write(*gap_));
    }
    written_.clear();
}

void Recorder::take_up(const Past &past)
{
    if (!modules_ && past.modules) {
        take_up_modules(*past.modules);
    }
    if (past.gap_end) {
        gap_ended(*past.gap_end);
    }
    for (const history::Decision &decision : past.decisions) {
        tracker_.remember_decision(decision);
    }
    const std::optional<Time> end = end_before_listening(past.life_note);
    for (const history::OpenCheck &check : past.checks) {
        written_[check.card.position].answers = SIZE_MAX; // so that it is written anew, or erased
        const std::size_t told = first_->size();
        // An end that was noted may be older than the check: its daemon's successor had asked by then.
        const bool ended = end && (!check.requested_at || *end >= *check.requested_at);
        tracker_.take_up(check, ended, now_);
        if (first_->size() == told) {
            complete_early(check); // else it has ended unseen, and what was decided was another one
        }
    }
    early_.clear();
    take_up_life(past.life_note);
    if (past.alive_at) {
        take_up_gap(*past.alive_at);
    }
}

// The check was found standing and was decided while the file could not be opened: when it began, and what
// was answered before, the file knows. Later checks of the position are others.
void Recorder::complete_early(const history::OpenCheck &check)
{
    const auto first = std::find_if(early_.begin(), early_.end(), [&](const auto &decision) {
        return decision->card.position == check.card.position &&
               decision->outcome != history::Outcome::exempt &&
               decision->outcome != history::Outcome::unasked;
    });
    if (first == early_.end() || (*first)->requested_at) {
        return;
    }
    history::Decision &decision = **first;
    decision.requested_at = check.requested_at;
    const std::vector<history::Answer> heard = std::exchange(decision.answers, check.answers);
    std::size_t told = check.answers.size();
    for (std::size_t i = 0; i < heard.size(); ++i) {
        if (!admission::was_heard(decision.answers, heard[i])) { // else it stood, and was told anew
            decision.answers.push_back(heard[i]);
            told += i < decision.told_before ? 1 : 0;
        }
    }
    decision.told_before = told;
    std::erase_if(decision.silent, [&](const std::string &module) {
        return std::find(check.waiting_for.begin(), check.waiting_for.end(), module) ==
               check.waiting_for.end();
    });
}

// Without a note nobody knows which of the lines are older than the file.
std::optional<Recorder::Time> Recorder::end_before_listening(const std::string &noted) const
{
    std::vector<LifeLine> lines = early_life_;
    if (listening_since_) {
        lines.resize(life_before_listening_);
    }
    return noted.empty() ? std::nullopt : last_end(noted, lines_behind(noted, std::move(lines)));
}

void Recorder::take_up_life(const std::string &noted)
{
    for (const LifeLine &line : lines_behind(noted, std::exchange(early_life_, {}))) {
        write(life_write(line));
    }
}

// From the file's last sign of life until there was somebody who listened, whenever the file was opened.
void Recorder::take_up_gap(Time alive_at)
{
    constexpr const char *why = "the recorder was not running";
    const std::optional<Time> until = gap_ && !listening_since_ ? gap_->from : listening_since_;
    if (!until) {
        begin_gap(alive_at, why);
        return;
    }
    metrics_.count_gap();
    gap_ended(*until);
    write([alive_at, until](history::Writer &writer) { writer.add_gap({alive_at, until, why}); });
}

} // namespace recorder
