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
class FileLock;
class Placement;

class Writer
{
public:
    using Log = std::function<void(const std::string &)>;

    // Opens the file, makes it when there is none, and brings an older one to the present version. One that
    // is damaged or not a database is moved aside, as FILE.damaged-MILLISECONDS, with a line to `log`. Throws
    // Error, also when another process writes it.
    Writer(std::string path, Time now, const Log &log);
    ~Writer();
    Writer(const Writer &) = delete;
    Writer &operator=(const Writer &) = delete;

    // Everything below throws Error; then the file is as it was before the call. Times may run backwards
    // where a clock was set: a gap never ends before it begins.

    // Adds a check that ended, which is not open from now on.
    void add(const Decision &decision);
    // Keeps an answer that came when its check had ended with the position's last decision, if there is one.
    // Of each module, and of all strangers together, as many are kept as of a check.
    void add_late_answer(const Position &position, const Answer &answer);
    // Keeps a check that stands, in place of what was known of it.
    void set_open(const OpenCheck &check);
    // Deletes the position's open check, if there is one.
    void close_open(const Position &position);

    // Adds a gap that has ended, or one that lasts.
    void add_gap(Gap gap);
    // Adds a gap that lasts. Returns the id that end_gap() wants. One that is not ended by it ends with the
    // writer's next start, at the time of the last alive().
    int64_t begin_gap(Time from, const std::string &why);
    // Ends the gap with this id.
    void end_gap(int64_t gap, Time until);

    // Adds an event of the daemon's service. `line` is the service log's line for it: the last one is kept in
    // the same transaction, so that a reader of the log that continues behind it neither repeats nor misses
    // one.
    void add_life(const LifeEvent &event, const std::string &line);
    // The line of the last event; empty when there is none.
    [[nodiscard]] std::string life_note() const;

    // The modules that were registered when their folder was last read; nothing before the first time.
    [[nodiscard]] std::optional<Modules> modules_note() const;
    // Keeps these as the registered modules.
    void set_modules_note(const Modules &modules);
    // The modules that were registered when there last were some; empty when there never were.
    [[nodiscard]] std::vector<std::string> registered_before() const;

    // The recorder's heartbeat: everything until `now` is in the file.
    void alive(Time now);
    // The last heartbeat before this writer was made; nothing for a new file.
    [[nodiscard]] std::optional<Time> last_alive() const { return last_alive_; }

    // When the gap that ended last did; nothing when none is kept.
    [[nodiscard]] std::optional<Time> last_gap_end() const;

    // The checks that stood when they were last written, by position.
    [[nodiscard]] std::vector<OpenCheck> open_checks() const;
    // The newest decision of each position.
    [[nodiscard]] std::vector<Decision> last_decisions() const;

    // Does a small part of what is needed to keep within the limits. Returns whether there is more to do.
    bool trim(const Limits &limits, Time now);

    // What became of the file since it was opened, as in "was replaced"; nothing while what is written goes
    // into the one at the path. Does not throw.
    [[nodiscard]] std::optional<std::string> displacement();
    // Leaves a displaced file as it is: nothing more is written into it, and only the destructor may be
    // called. Its log, which would be taken for the next file's, is renamed. Returns to what; empty when it
    // is not there any more.
    [[nodiscard]] std::string leave(Time now);

private:
    void open(Time now);
    void move_aside(Time now, const std::string &why, const Log &log);

    std::string path_;
    std::unique_ptr<FileLock> lock_;
    std::unique_ptr<Database> database_;
    std::unique_ptr<Placement> placement_;
    std::optional<Time> last_alive_;
};

} // namespace history

#endif
