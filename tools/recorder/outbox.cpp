// What is to be written into the history, kept until it is.
#include "outbox.h"

#include <iterator>
#include <utility>

namespace recorder
{

Outbox::Outbox(std::string path, history::Time now, Teller tell, std::function<void()> failed)
    : path_(std::move(path)), tell_(std::move(tell)), failed_(std::move(failed))
{
    try {
        writer_ = std::make_unique<history::Writer>(path_, now, tell_);
    } catch (const history::Error &error) {
        if (!error.will_pass()) {
            throw;
        }
        take_failure(error);
    }
}

void Outbox::take_failure(const history::Error &error)
{
    failed_();
    if (!std::exchange(failing_, true)) {
        tell_(std::string(error.what()) + "; it is tried again, and kept in memory meanwhile");
    }
    if (error.is_damaged()) {
        writer_.reset(); // opening it anew moves it aside
    }
}

void Outbox::on_open(std::function<void(history::Writer &)> opened)
{
    opened_ = std::move(opened);
    if (writer_) {
        try {
            opened_(*writer_);
        } catch (const history::Error &error) {
            take_failure(error);
            writer_.reset();
        }
    }
}

void Outbox::open(history::Time now)
{
    try {
        auto writer = std::make_unique<history::Writer>(path_, now, tell_);
        if (opened_) {
            opened_(*writer);
        }
        writer_ = std::move(writer);
    } catch (const history::Error &error) {
        take_failure(error);
    }
}

bool Outbox::attempt(const Write &write)
{
    if (!writer_) {
        return false;
    }
    try {
        write(*writer_);
        return true;
    } catch (const history::Error &error) {
        take_failure(error);
        return false;
    }
}

// A file that is not open is left to flush(): each try to open one that somebody holds takes its time.
void Outbox::put(Write write, history::Time now)
{
    if (waiting_.empty() && attempt(write)) {
        return;
    }
    if (waiting_.size() >= most_waiting) {
        drop_oldest(now);
    }
    waiting_.push_back(std::move(write));
}

void Outbox::put_first(std::vector<Write> writes)
{
    waiting_.insert(waiting_.begin(), std::make_move_iterator(writes.begin()),
                    std::make_move_iterator(writes.end()));
}

// The hole is told of in the history itself, as soon as it can be.
void Outbox::drop_oldest(history::Time now)
{
    waiting_.pop_front();
    if (!hole_) {
        tell_("the history could not be written for so long that decisions are lost");
        hole_ = Hole{now, now};
        if (lost_) {
            lost_();
        }
    }
    hole_->last = now;
}

// It stood before all that still waits.
bool Outbox::write_hole()
{
    const auto write = [this](history::Writer &writer) {
        writer.add_gap(
            {hole_->first, hole_->last, "the history could not be written, and decisions were lost"});
    };
    if (hole_ && !attempt(write)) {
        return false;
    }
    hole_.reset();
    return true;
}

bool Outbox::flush(history::Time now)
{
    if (!writer_) {
        open(now);
    }
    while (write_hole() && !waiting_.empty() && attempt(waiting_.front())) {
        waiting_.pop_front();
    }
    const bool done = waiting_.empty() && writer_;
    if (done && std::exchange(failing_, false)) {
        tell_("the history is written again");
    }
    return done;
}

} // namespace recorder
