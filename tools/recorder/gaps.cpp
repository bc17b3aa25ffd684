// The times in which the recorder may have missed decisions: from when to when, and why.
#include "gaps.h"

#include <algorithm>
#include <utility>

namespace recorder
{

Gaps::Gaps(Metrics &metrics, Put put) : metrics_(metrics), put_(std::move(put)) {}

void Gaps::begin(Time from, const std::string &why)
{
    if (lasting_) {
        return;
    }
    metrics_.count_gap();
    lasting_ = Lasting{from, why, std::make_shared<std::optional<int64_t>>()};
    write();
}

// A loss is noticed late where the store hangs. What was missed until then belongs to the gap, and no time
// belongs to two of them.
void Gaps::begin_with_loss(Time now)
{
    const Time heard = heard_until_.value_or(now);
    begin(std::min(now, std::max(heard, last_end_.value_or(heard))), "the store was away");
}

void Gaps::end(Time now)
{
    if (!lasting_) {
        return;
    }
    put_([row = lasting_->row, now](history::Writer &writer) {
        if (*row) {
            writer.end_gap(**row, now);
        }
    });
    lasting_.reset();
    show(now);
}

void Gaps::add(Time from, Time until, const std::string &why)
{
    count(until);
    put_([gap = history::Gap{from, until, why}](history::Writer &writer) { writer.add_gap(gap); });
}

void Gaps::count(Time end)
{
    metrics_.count_gap();
    show(end);
}

void Gaps::show(Time end)
{
    last_end_ = std::max(end, last_end_.value_or(end));
    metrics_.show_gap_end(*last_end_);
}

std::optional<Gaps::Time> Gaps::lasting_since() const
{
    return lasting_ ? std::optional(lasting_->from) : std::nullopt;
}

// A gap that lasts is in the file, and continues with the next start.
Gaps::Time Gaps::complete_until(Time now) const
{
    return lasting_ ? now : std::min(now, heard_until_.value_or(now));
}

void Gaps::write_again()
{
    if (lasting_ && *lasting_->row) {
        write();
    }
}

void Gaps::write() const
{
    put_([gap = *lasting_](history::Writer &writer) { *gap.row = writer.begin_gap(gap.from, gap.why); });
}

} // namespace recorder
