// What is to be written into the history, kept until it is.
#include "outbox.h"

#include <iterator>
#include <utility>

namespace recorder
{

Outbox::Outbox(std::string path, history::Time now, Log log, std::function<void()> failed)
    : path_(std::move(path)), log_(std::move(log)), failed_(std::move(failed))
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

void Outbox::on_open(std::function<void(history::Writer &)> opened)
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
            opened_(*writer);
        }
        writer_ = std::move(writer);
    } catch (const history::Error &error) {
        waiting_.clear(); // it is put again at the next attempt
        handle_failure(error);
    }
    std::move(waiting.begin(), waiting.end(), std::back_inserter(waiting_));
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
        handle_failure(error);
        return false;
    }
}

// A file that is not open is left to flush(): each attempt to open one that another process holds takes time.
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
        log_("the history is written again");
    }
    return done;
}

} // namespace recorder
