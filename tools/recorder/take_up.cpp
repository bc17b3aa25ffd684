// What the recorder takes from its file when that is open: at its start, or later where it could not be
// opened then.
//
// Meanwhile it has listened. So the tracker is told of the past as of something older than all that it knows,
// and what is to be written of it goes before what waits.
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
    const bool ended = ended_before_listening(past.life_note);
    for (const history::OpenCheck &check : past.checks) {
        written_[check.card.position].answers = SIZE_MAX; // so that it is written anew, or erased
        const std::size_t told = first_->size();
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
// was answered before, the file knows.
void Recorder::complete_early(const history::OpenCheck &check)
{
    for (const std::shared_ptr<history::Decision> &decision : early_) {
        const bool is_of_it = decision->card.position == check.card.position && !decision->requested_at &&
                              decision->outcome != history::Outcome::exempt &&
                              decision->outcome != history::Outcome::unasked;
        if (is_of_it) {
            decision->requested_at = check.requested_at;
            decision->answers.insert(decision->answers.begin(), check.answers.begin(), check.answers.end());
            decision->told_before += check.answers.size();
        }
    }
}

// Without a note nobody knows which of the lines are older than the file.
bool Recorder::ended_before_listening(const std::string &noted) const
{
    std::vector<LifeLine> lines = early_life_;
    if (listening_since_) {
        lines.resize(life_before_listening_);
    }
    return !noted.empty() && tell_of_an_end(noted, lines_behind(noted, std::move(lines)));
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
