// The recorder's end of the history.
//
// Each call is one transaction: it is in the file or it is not, also after a kill. With synchronous=NORMAL a
// power cut may cost the last few of them, and never the file.
#ifndef HISTORY_WRITER_H
#define HISTORY_WRITER_H

#include <functional>
#include <memory>

#include "history/history.h"

namespace history
{

class Database;

// How much is kept. The last decision of each position stays beyond the age, since cards stand for years.
struct Limits {
    std::chrono::hours age{24 * 365};
    int64_t bytes = int64_t{256} << 20U;
};

class Writer
{
public:
    using Teller = std::function<void(const std::string &)>;

    // Opens the file, makes it when it is not there, and brings an older one to the present version. One that
    // is damaged or no database is moved aside, as FILE.damaged-MILLISECONDS, and told of. Throws Error, also
    // when another process writes it.
    Writer(std::string path, Time now, const Teller &tell);
    ~Writer();
    Writer(const Writer &) = delete;
    Writer &operator=(const Writer &) = delete;

    // Everything below throws Error; then the file is as it was before the call.

    // Times may run backwards where a clock was set: a gap is never shorter than nothing.

    // A check that ended: it is no open one from now on.
    void add(const Decision &decision);
    // An answer that came when its check had ended: it is kept with the position's last decision, where there
    // is one. Of each module, and of all strangers together, so many are kept as of a check.
    void add_late_answer(const Position &position, const Answer &answer);
    // A check that stands, in place of what was known of it.
    void set_open(const OpenCheck &check);
    void close_open(const Position &position);

    void add_gap(Gap gap);
    // One that lasts; returns what end_gap() wants. Those that nobody ended end with the writer's next start,
    // at the time of the last alive().
    int64_t begin_gap(Time from, const std::string &why);
    void end_gap(int64_t gap, Time until);
    // `note` tells the event apart from others: the last one is kept with it, in one transaction, so that
    // nobody who goes on behind it adds an event twice or passes one over.
    void add_life(const LifeEvent &event, const std::string &note);
    // The last event's; empty when there is none.
    [[nodiscard]] std::string life_note() const;
    // For a file that begins behind events that another one has.
    void set_life_note(const std::string &note);

    // The modules that were registered when their folder was last read; nothing before the first time.
    [[nodiscard]] std::optional<std::vector<std::string>> modules_note() const;
    void set_modules_note(const std::vector<std::string> &modules);

    // That the recorder runs; readers tell the history's age by it.
    void alive(Time now);
    // The last time of that before this writer was made; nothing for a new file.
    [[nodiscard]] std::optional<Time> last_alive() const { return last_alive_; }

    // The end of the gap that ended last; nothing when none is kept.
    [[nodiscard]] std::optional<Time> last_gap_end() const;

    // What was written before.
    [[nodiscard]] std::vector<OpenCheck> open_checks() const;
    [[nodiscard]] std::vector<Decision> last_decisions() const;

    // Does a small part of what is needed to keep within the limits. True: there is more to do.
    bool trim(const Limits &limits, Time now);

private:
    class Lock;

    void open(Time now);
    void move_aside(Time now, const std::string &why, const Teller &tell);

    std::string path_;
    std::unique_ptr<Lock> lock_;
    std::unique_ptr<Database> database_;
    std::optional<Time> last_alive_;
};

} // namespace history

#endif
