// What is to be written into the history, kept until it is.
//
// A full disk or a file that somebody holds passes; what was decided meanwhile is not to be lost by it, nor
// is the recorder to stand still. So each write is tried at once, waits in memory when it fails, and is tried
// again, in order, until memory too has its limit.
#ifndef RECORDER_OUTBOX_H
#define RECORDER_OUTBOX_H

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "history/writer.h"

namespace recorder
{

inline constexpr std::size_t most_waiting = 10000;

class Outbox
{
public:
    using Write = std::function<void(history::Writer &)>;
    using Teller = std::function<void(const std::string &)>;

    // Opens the history. Throws history::Error when it cannot, unless that will pass.
    // `failed` is called for each attempt that failed.
    Outbox(std::string path, history::Time now, Teller tell, std::function<void()> failed);

    // Has `opened` called with the open file: at once when it is, and whenever it is opened, before anything
    // that waits is written. It may throw history::Error: then the file is taken for one that cannot be
    // opened. What it wants written it hands to put_first().
    void on_open(std::function<void(history::Writer &)> opened);

    // Has `lost` called when decisions are given up, once until all that waits is written.
    void on_loss(std::function<void()> lost) { lost_ = std::move(lost); }

    // Writes, or keeps it for flush().
    void put(Write write, history::Time now);
    // These go before all that waits, in their order.
    void put_first(std::vector<Write> writes);
    // Tries what waits again, and to open the file when it is not. Returns whether everything is written.
    bool flush(history::Time now);
    [[nodiscard]] bool is_open() const { return writer_ != nullptr; }
    [[nodiscard]] std::size_t waiting() const { return waiting_.size(); }

    // Like put(), for what is not worth keeping. Returns whether it was done.
    bool attempt(const Write &write);

private:
    // What had to go is not in memory any more: when that was, from the first to the last.
    struct Hole {
        history::Time first{};
        history::Time last{};
    };

    void open(history::Time now);
    void take_failure(const history::Error &error);
    void drop_oldest(history::Time now);
    bool write_hole();

    std::string path_;
    Teller tell_;
    std::function<void()> failed_;
    std::function<void(history::Writer &)> opened_;
    std::function<void()> lost_;
    std::unique_ptr<history::Writer> writer_;
    std::deque<Write> waiting_;
    bool failing_ = false;
    std::optional<Hole> hole_;
};

} // namespace recorder

#endif
