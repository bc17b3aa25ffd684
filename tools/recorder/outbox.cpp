// What is to be written into the history, kept until it is.
#include "outbox.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace recorder
{

Outbox::Outbox(std::string path, history::Time now, Log log, std::function<void()> failed)
    : path_(std::move(path)), log_(std::move(log)), failed_(std::move(failed)), seen_in_place_(now)
{
    try {
        writer_ = std::make_unique<history::Writer>(path_, now, log_);
    } catch (const history::Error &error) {
        if (!error.will_pass()) {
            throw;
        }
        handle_failure(error);
    }
}

void Outbox::handle_failure(const history::Error &error)
{
    failed_();
    if (!std::exchange(failing_, true)) {
        log_(std::string(error.what()) + "; retrying; kept in memory");
    }
    if (error.is_damaged()) {
        writer_.reset(); // opening it again moves it aside
    }
}

// The time is the one of the last look, not the one of the last write: what was written between the two is in
// the former file.
bool Outbox::is_in_place(history::Time now)
{
    const std::optional<std::string> what = writer_->displacement();
    if (what) {
        leave("the history " + *what, now);
        return false;
    }
    seen_in_place_ = now;
    return true;
}

void Outbox::leave(const std::string &why, history::Time now)
{
    try {
        const std::string log = writer_->leave(now);
        writer_.reset();
        displaced_ = history::Gap{std::min(seen_in_place_, now), now, why};
        log_(why + " and is opened again: " + path_ +
             (log.empty() ? "" : "; the last changes of the former one are in " + log));
    } catch (const history::Error &error) {
        handle_failure(error);
    }
}

void Outbox::on_open(Opened opened)
{
    opened_ = std::move(opened);
    if (writer_) {
        call_opened(std::exchange(writer_, nullptr));
    }
}

void Outbox::open(history::Time now)
{
    try {
        call_opened(std::make_unique<history::Writer>(path_, now, log_));
    } catch (const history::Error &error) {
        handle_failure(error);
    }
}

// What is put meanwhile goes before all that waits.
void Outbox::call_opened(std::unique_ptr<history::Writer> writer)
{
    std::deque<Write> waiting = std::exchange(waiting_, {});
    try {
        if (opened_) {
            opened_(*writer, displaced_);
        }
        writer_ = std::move(writer);
        displaced_.reset();
    } catch (const history::Error &error) {
        waiting_.clear(); // it is put again at the next attempt
        handle_failure(error);
    }
    std::move(waiting.begin(), waiting.end(), std::back_inserter(waiting_));
}

bool Outbox::attempt(const Write &write, history::Time now)
{
    if (!writer_ || !is_in_place(now)) {
        return false;
    }
    try {
        write(*writer_);
        return true;
    } catch (const history::Error &error) {
        handle_failure(error);
        return false;
    }
}

// A file that is not open is left to flush(): each attempt to open one that another process holds takes time.
void Outbox::put(Write write, history::Time now)
{
    if (waiting_.empty() && attempt(write, now)) {
        return;
    }
    if (waiting_.size() >= most_waiting) {
        drop_oldest(now);
    }
    waiting_.push_back(std::move(write));
}

// The history itself reports the hole, as soon as it can be written.
void Outbox::drop_oldest(history::Time now)
{
    waiting_.pop_front();
    if (!hole_) {
        log_("the history could not be written for so long that decisions are lost");
        hole_ = Hole{now, now};
        if (lost_) {
            lost_();
        }
    }
    hole_->last = now;
}

// It stood before all that still waits.
bool Outbox::write_hole(history::Time now)
{
    const auto write = [this](history::Writer &writer) {
        writer.add_gap(
            {hole_->first, hole_->last, "the history could not be written, and decisions were lost"});
    };
    if (hole_ && !attempt(write, now)) {
        return false;
    }
    hole_.reset();
    return true;
}

bool Outbox::flush(history::Time now)
{
    bool ready = writer_ && is_in_place(now);
    if (!writer_) {
        open(now);
        ready = writer_ != nullptr;
    }
    while (write_hole(now) && !waiting_.empty() && attempt(waiting_.front(), now)) {
        waiting_.pop_front();
    }
    const bool done = ready && writer_ && waiting_.empty();
    if (done && std::exchange(failing_, false)) {
        log_("the history is written again");
    }
    return done;
}

} // namespace recorder
