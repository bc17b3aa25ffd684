// The recorder: what the store tells goes through the tracker into the history and the metrics.
#include "recorder.h"

#include <algorithm>
#include <utility>

#include "admission/feed.h"

namespace recorder
{

namespace
{

constexpr std::chrono::seconds alive_interval{10};

history::OpenCheck open_check(const admission::TrackedCard &card)
{
    return {card.card, card.requested_at, card.waiting_for, card.answers, card.any_will_do};
}

} // namespace

Recorder::Recorder(Settings settings, Metrics &metrics, Teller tell, Time now)
    : settings_(std::move(settings)), metrics_(metrics), tell_(std::move(tell)),
      outbox_(settings_.history, now, tell_, [this] { metrics_.count_write_failure(); }),
      tracker_([this](const admission::Decision &decision) { record(decision); }, settings_.silence_after),
      life_(settings_.life), started_(now), now_(now)
{
    tracker_.on_fresh_daemon([this] { read_modules(); });
    tracker_.on_late_answer([this](const history::Position &position, const history::Answer &answer) {
        metrics_.count(answer);
        write([=](history::Writer &writer) { writer.add_late_answer(position, answer); });
    });
    outbox_.on_loss([this] {
        metrics_.count_gap();
        gap_ended(now_);
    });
    read_life(false);
    read_modules();
    outbox_.on_open([this](history::Writer &writer) { opened(writer); });
    if (outbox_.is_open()) {
        tick(now);
    }
}

// The daemon reads its folder when it starts and when its store returns. Where nobody tells of its starts,
// the folder as it is now is the best guess.
void Recorder::take(int32_t cmd, const ProtobufCMessage &record, bool existing, Time now)
{
    now_ = now;
    read_life(true);
    if (!life_.is_readable() && !existing) {
        read_modules();
    }
    admission::feed(tracker_, cmd, record, existing, now);
    tell_of_contradiction();
}

void Recorder::could_not_read(const std::string &type, Time now)
{
    now_ = now;
    tell_("a record of " + type + " could not be read; a decision may be missing");
    metrics_.count_gap();
    write([now](history::Writer &writer) { writer.add_gap({now, now, "a record could not be read"}); });
    gap_ended(now);
}

// A loss is noticed late where the store hangs. What was missed until then belongs to the gap, and no time
// belongs to two of them.
void Recorder::store_lost(Time now)
{
    now_ = now;
    metrics_.show_store(false);
    if (!gap_) {
        metrics_.count_outage();
    }
    const Time heard = heard_until_.value_or(now);
    begin_gap(std::min(now, std::max(heard, gap_ended_.value_or(heard))), "the store was away");
}

void Recorder::store_returns(Time now)
{
    now_ = now;
    read_modules();
}

void Recorder::snapshot_done(Time now)
{
    now_ = now;
    tracker_.snapshot_done(now);
    if (!listening_since_) {
        listening_since_ = now;
        life_before_listening_ = early_life_.size();
    }
    metrics_.show_store(true);
    end_gap(now);
    settle(now);
}

bool Recorder::tick(Time now)
{
    now_ = now;
    read_life(true);
    if (!life_.is_readable()) {
        read_modules();
    }
    if (taken_up_ && !listening_since_ && now > started_) {
        begin_gap(started_, "the store was away"); // unless one lasts: a new file tells of none
    }
    outbox_.flush(now);
    settle(now);
    // A sign of life says that all before it is in the file.
    if (!outbox_.is_open() || outbox_.waiting() > 0) {
        return false;
    }
    if (!last_alive_ || now - *last_alive_ >= alive_interval || now < *last_alive_) {
        last_alive_ = now;
        outbox_.attempt([at = alive_until(now)](history::Writer &writer) { writer.alive(at); });
    }
    bool more = false;
    outbox_.attempt([&](history::Writer &writer) { more = writer.trim(settings_.limits, now); });
    return more;
}

// A gap that is known is in the file, and goes on with the next start.
Recorder::Time Recorder::alive_until(Time now) const
{
    return gap_ ? now : std::min(now, heard_until_.value_or(now));
}

void Recorder::settle(Time now)
{
    now_ = now;
    if (!listening_since_) {
        return; // which of the remembered checks still stand is not known
    }
    std::map<history::Position, Written> standing;
    for (const admission::TrackedCard *card : tracker_.cards()) {
        if (!card->open) {
            continue; // what was decided is in the file, whether its request still stands or not
        }
        const auto last = card->answers.empty() ? std::nullopt : std::optional(card->answers.back().at);
        const history::Position &position = card->card.position;
        standing[position] = {card->requested_at, card->answers.size(), last, card->waiting_for,
                              card->any_will_do};
        const auto found = written_.find(position);
        if (found == written_.end() || found->second != standing[position]) {
            write([check = open_check(*card)](history::Writer &writer) { writer.set_open(check); });
        }
    }
    for (const auto &[position, ignored] : written_) {
        if (!standing.contains(position)) {
            write([at = position](history::Writer &writer) { writer.close_open(at); });
        }
    }
    written_ = std::move(standing);
    metrics_.show(tracker_.cards());
}

// A gap that still lasts is left open: the next start ends it.
void Recorder::end(Time now)
{
    settle(now);
    write([at = alive_until(now)](history::Writer &writer) { writer.alive(at); });
    outbox_.flush(now);
    if (outbox_.waiting() > 0) {
        tell_(std::to_string(outbox_.waiting()) + " changes could not be written and are lost");
    }
}

void Recorder::record(const admission::Decision &decision)
{
    metrics_.count(decision);
    const auto kept = std::make_shared<history::Decision>(decision);
    if (!taken_up_ && early_.size() < most_waiting) {
        early_.push_back(kept);
    }
    write([kept](history::Writer &writer) { writer.add(*kept); });
}

void Recorder::write(Outbox::Write write)
{
    if (first_ != nullptr) {
        first_->push_back(std::move(write));
    } else {
        outbox_.put(std::move(write), now_);
    }
}

void Recorder::read_life(bool count)
{
    bool started = false;
    const std::string before = life_.last_line();
    const std::vector<LifeLine> lines = life_.poll();
    if (life_.met_overlong_line() && !std::exchange(told_of_overlong_line_, true)) {
        tell_("the daemon's notes at " + settings_.life +
              " hold a line that is too long, which is passed over; nobody but the gate's service may write "
              "there");
    }
    if (tell_of_an_end(before, lines)) {
        const bool noted = std::any_of(lines.begin(), lines.end(),
                                       [](const LifeLine &line) { return !line.event.is_start; });
        noted ? tracker_.daemon_ended() : tracker_.daemon_started_again(lines.back().event.at);
    }
    tracker_.set_daemon_watched(life_.tells_of_running());
    for (const LifeLine &line : lines) {
        started = started || line.event.is_start;
        if (count) {
            metrics_.count(line.event);
        }
        if (taken_up_) {
            write(life_write(line));
        } else {
            early_life_.push_back(line);
        }
    }
    drop_oldest_early_life();
    if (started) {
        read_modules();
    }
}

// The newest ones stay, so that every start gets behind what the file has noted, however much there is.
void Recorder::drop_oldest_early_life()
{
    if (early_life_.size() > most_waiting) {
        const std::size_t count = early_life_.size() - most_waiting;
        early_life_.erase(early_life_.begin(), early_life_.begin() + static_cast<std::ptrdiff_t>(count));
        life_before_listening_ -= std::min(count, life_before_listening_);
    }
}

void Recorder::begin_gap(Time from, const std::string &why)
{
    if (gap_) {
        return;
    }
    metrics_.count_gap();
    gap_ = Silence{from, why, std::make_shared<std::optional<int64_t>>()};
    write(gap_write(*gap_));
}

Outbox::Write Recorder::life_write(const LifeLine &line)
{
    return [line](history::Writer &writer) { writer.add_life(line.event, line.text); };
}

Outbox::Write Recorder::gap_write(const Silence &gap)
{
    return [gap](history::Writer &writer) { *gap.row = writer.begin_gap(gap.from, gap.why); };
}

void Recorder::end_gap(Time now)
{
    if (!gap_) {
        return;
    }
    write([row = gap_->row, now](history::Writer &writer) {
        if (*row) {
            writer.end_gap(**row, now);
        }
    });
    gap_.reset();
    gap_ended(now);
}

void Recorder::gap_ended(Time at)
{
    gap_ended_ = std::max(at, gap_ended_.value_or(at));
    metrics_.show_gap_end(*gap_ended_);
}

} // namespace recorder
