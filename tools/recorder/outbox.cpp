// What is to be written into the history, kept until it is.
#include "outbox.h"

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

bool Outbox::open(history::Time now)
{
    if (!writer_) {
        try {
            writer_ = std::make_unique<history::Writer>(path_, now, tell_);
        } catch (const history::Error &error) {
            take_failure(error);
        }
    }
    return writer_ != nullptr;
}

bool Outbox::attempt(const Write &write, history::Time now)
{
    if (!open(now)) {
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

void Outbox::put(Write write, history::Time now)
{
    if (waiting_.empty() && attempt(write, now)) {
        return;
    }
    if (waiting_.size() == most_waiting) {
        drop_oldest(now);
    }
    waiting_.push_back(std::move(write));
}

// The hole is told of in the history itself, as soon as it can be.
void Outbox::drop_oldest(history::Time now)
{
    waiting_.pop_front();
    if (!std::exchange(dropping_, true)) {
        tell_("the history could not be written for so long that decisions are lost");
        waiting_.pop_front();
        waiting_.push_back([now](history::Writer &writer) {
            writer.add_gap({now, now, "the history could not be written, and decisions were lost"});
        });
    }
}

void Outbox::flush(history::Time now)
{
    while (!waiting_.empty() && attempt(waiting_.front(), now)) {
        waiting_.pop_front();
    }
    if (waiting_.empty() && writer_) {
        if (std::exchange(failing_, false)) {
            tell_("the history is written again");
        }
        dropping_ = false;
    }
}

} // namespace recorder
