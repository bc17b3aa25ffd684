// The recorder: what the store tells goes through the tracker into the history and the metrics.
//
// It has no store, loop or clock of its own: main hands them in, so that tests can.
#ifndef RECORDER_RECORDER_H
#define RECORDER_RECORDER_H

#include <protobuf-c/protobuf-c.h>

#include <map>
#include <optional>

#include "admission/card_tracker.h"
#include "life_file.h"
#include "metrics.h"
#include "outbox.h"

namespace recorder
{

struct Settings {
    std::string history{};
    std::string modules{};
    std::string life{};
    history::Limits limits{};
    std::chrono::milliseconds silence_after = admission::check_timeout;
};

class Recorder
{
public:
    using Time = history::Time;
    using Teller = std::function<void(const std::string &)>;

    // Opens the history and takes from it what was open. Throws history::Error when it cannot be opened,
    // unless that will pass: then what it holds is taken up when it can.
    Recorder(Settings settings, Metrics &metrics, Teller tell, Time now);

    // A change, as admission::feed() takes it.
    void take(int32_t cmd, const ProtobufCMessage &record, bool existing, Time now);
    // A record changed, and the store could not say how.
    void could_not_read(const std::string &type, Time now);
    // Every change until then was told: so much is known of the store, and a gap begins there.
    void heard(Time until) { heard_until_ = until; }
    // A database's connection is lost, or it is back and everything in it is about to be told anew.
    void store_lost(Time now);
    void store_returns(Time now);
    // All existing records were told.
    void snapshot_done(Time now);

    // For every few seconds. Returns whether there is more to do soon.
    bool tick(Time now);
    // For shortly after changes: writes what became of the open checks.
    void settle(Time now);
    // The end: what is not written by now is lost.
    void end(Time now);

    [[nodiscard]] const admission::CardTracker &tracker() const { return tracker_; }
    [[nodiscard]] const std::string &path() const { return settings_.history; }

private:
    // What is in the file of an open check.
    struct Written {
        std::optional<Time> requested_at{};
        std::size_t answers = 0;
        std::optional<Time> last_answer{};
        std::vector<std::string> waiting_for{};
        bool any_will_do = false;
        friend bool operator==(const Written &, const Written &) = default;
    };
    // A time in which nothing is heard.
    struct Silence {
        Time from{};
        std::string why{};
        std::shared_ptr<std::optional<int64_t>> row{}; // once it is in the file
    };

    // What the file knew of the time before, when it is opened for the first time.
    struct Past {
        std::vector<history::Decision> decisions{};
        std::vector<history::OpenCheck> checks{};
        std::string life_note{};
        std::optional<Time> alive_at{};
        std::optional<Time> gap_end{};
        std::optional<std::vector<std::string>> modules{};
    };

    void opened(history::Writer &writer);
    void open_anew();
    void take_up(const Past &past);
    void take_up_life(const std::string &noted);
    void take_up_gap(Time alive_at);
    void take_up_modules(const std::vector<std::string> &modules);
    void complete_early(const history::OpenCheck &check);
    [[nodiscard]] std::optional<Time> end_before_listening(const std::string &noted) const;
    void write(Outbox::Write write);
    void record(const admission::Decision &decision);
    void read_modules();
    void know_modules(std::vector<std::string> modules);
    void tell_of_folder(const std::string &problem, bool missing);
    void tell_of_contradiction();
    void read_life(bool count);
    void drop_oldest_early_life();
    void begin_gap(Time from, const std::string &why);
    static Outbox::Write life_write(const LifeLine &line);
    static Outbox::Write gap_write(const Silence &gap);
    void end_gap(Time now);
    void gap_ended(Time at);
    [[nodiscard]] Time alive_until(Time now) const;

    Settings settings_;
    Metrics &metrics_;
    Teller tell_;
    Outbox outbox_;
    admission::CardTracker tracker_;
    LifeFile life_;
    std::optional<std::vector<std::string>> modules_;       // nothing: not known
    std::optional<std::vector<std::string>> noted_modules_; // as the file has them
    std::string folder_problem_;
    bool told_of_contradiction_ = false;
    bool told_of_overlong_line_ = false;
    std::map<history::Position, Written> written_;
    std::optional<Silence> gap_;
    std::optional<Time> gap_ended_; // the last one
    std::optional<Time> heard_until_;
    std::optional<Time> listening_since_;
    bool taken_up_ = false;                                 // what the file holds of the time before
    std::vector<std::shared_ptr<history::Decision>> early_; // decisions that were heard of before that
    std::vector<LifeLine> early_life_;                      // what was read before that
    std::size_t life_before_listening_ = 0;                 // so many of them
    std::vector<Outbox::Write> *first_ = nullptr;           // where writes go that come before all that waits
    std::optional<Time> last_alive_;
    Time started_{};
    Time now_{};
};

} // namespace recorder

#endif
