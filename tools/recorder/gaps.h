// The times in which the recorder may have missed decisions: from when to when, and why.
#ifndef RECORDER_GAPS_H
#define RECORDER_GAPS_H

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "metrics.h"
#include "outbox.h"

namespace recorder
{

class Gaps
{
public:
    using Time = history::Time;
    using Put = std::function<void(Outbox::Write)>;

    // `metrics` outlives this; `put` is given what is to be written.
    Gaps(Metrics &metrics, Put put);

    // Every change until then was received.
    void heard(Time until) { heard_until_ = until; }

    // Begins a gap, unless one lasts.
    void begin(Time from, const std::string &why);
    // Begins one because the connection was found lost: from when the store was last heard, and not before
    // the last gap ended.
    void begin_with_loss(Time now);
    // Ends the gap, if one lasts.
    void end(Time now);
    // Adds one that is over.
    void add(Time from, Time until, const std::string &why);
    // Counts one that is over and that the history has, or gets, without this.
    void count(Time end);
    // Shows the end of one that was counted before.
    void show(Time end);

    // When the gap that lasts began; nothing when none does.
    [[nodiscard]] std::optional<Time> lasting_since() const;
    // Until when the history is complete, the gaps in it aside.
    [[nodiscard]] Time complete_until(Time now) const;
    // Writes the gap that lasts again, for a new file; not when it waits to be written anyway.
    void write_again();

private:
    struct Lasting {
        Time from{};
        std::string why{};
        std::shared_ptr<std::optional<int64_t>> row{}; // once it is in the file
    };

    void write() const;

    Metrics &metrics_;
    Put put_;
    std::optional<Lasting> lasting_;
    std::optional<Time> last_end_;
    std::optional<Time> heard_until_;
};

} // namespace recorder

#endif
