// What is to be written into the history, kept until it is.
//
// A full disk or a file that another process holds passes; what was decided meanwhile must not be lost by it,
// and the recorder must not stand still. So each write is tried at once, waits in memory when it fails, and
// is tried again, in order, until memory too has its limit.
//
// Before each write, and with each flush, the path is looked at: what is written into a file that was
// deleted, moved or cut is lost without an error. Then the file is opened again, as at the start.
#ifndef RECORDER_OUTBOX_H
#define RECORDER_OUTBOX_H

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "history/writer.h"

namespace recorder
{

inline constexpr std::size_t most_waiting = 10000; // writes

class Outbox
{
public:
    using Write = std::function<void(history::Writer &)>;
    using Log = std::function<void(const std::string &)>;
    // `displaced`: the file at the path is another one than before. The time is from when the former one was
    // last seen there until that was noticed, with what became of it.
    using Opened = std::function<void(history::Writer &, const std::optional<history::Gap> &displaced)>;

    // Opens the history at `path`. Throws history::Error when it cannot, unless that will pass. `log` is
    // given each line that an operator should know; `failed` is called for each attempt that failed.
    Outbox(std::string path, history::Time now, Log log, std::function<void()> failed);

    // Has `opened` called with the open file: at once when it is open, and whenever it is opened again. What
    // that puts is written before all that waits. It may throw history::Error: then the file counts as one
    // that cannot be opened, and what was put is dropped.
    void on_open(Opened opened);
    // Has `lost` called when decisions are given up, once until all that waits is written.
    void on_loss(std::function<void()> lost) { lost_ = std::move(lost); }

    // Writes, or keeps it for flush().
    void put(Write write, history::Time now);
    // Tries again to open the file when it is not open, and to write what waits. Returns whether everything
    // is written.
    bool flush(history::Time now);
    // Like put(), for what is not worth keeping. Returns whether it was written.
    bool attempt(const Write &write, history::Time now);

    // Whether the file is open.
    [[nodiscard]] bool is_open() const { return writer_ != nullptr; }
    // How many writes wait.
    [[nodiscard]] std::size_t waiting() const { return waiting_.size(); }

private:
    // Time range of the writes that were dropped.
    struct Hole {
        history::Time first{};
        history::Time last{};
    };

    void open(history::Time now);
    void call_opened(std::unique_ptr<history::Writer> writer);
    bool is_in_place(history::Time now);
    void leave(const std::string &why, history::Time now);
    void handle_failure(const history::Error &error);
    void drop_oldest(history::Time now);
    bool write_hole(history::Time now);

    std::string path_;
    Log log_;
    std::function<void()> failed_;
    Opened opened_;
    std::function<void()> lost_;
    std::unique_ptr<history::Writer> writer_;
    history::Time seen_in_place_{};
    std::optional<history::Gap> displaced_; // until the next file is open
    std::deque<Write> waiting_;
    bool failing_ = false;
    std::optional<Hole> hole_;
};

} // namespace recorder

#endif
