// A check module alone with a store server of its own, and this program in the daemon's place.
//
// Each answer is removed from the store as the daemon removes it. The server counts the changes of answers,
// so that one that was overwritten before it could be read is known too.
#ifndef TRY_HARNESS_H
#define TRY_HARNESS_H

#include <chrono>
#include <csignal>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/check.h"
#include "loop/descriptor.h"
#include "loop/loop.h"
#include "process/child_process.h"
#include "process/private_store.h"
#include "store/client.h"
#include "try/test_card.h"

namespace cg
{

// What the module wrote.
struct ReceivedAnswer {
    Position position{};
    std::string module{};
    kit::Answer verdict{};
    double took_s = 0; // since the last request for the card
};

class Harness
{
public:
    using Clock = std::chrono::steady_clock;
    using Span = std::chrono::duration<double>;

    // Starts the server, not yet the module. As long as the object lives, SIGINT, SIGTERM and SIGHUP have the
    // functions that wait throw Failure, so that the server never outlives this program. Throws Failure.
    explicit Harness(std::vector<std::string> command);
    Harness(const Harness &) = delete;
    Harness &operator=(const Harness &) = delete;
    ~Harness() = default;

    // Starts the module. Throws Failure when the command cannot be executed.
    void start_module();
    // Sends SIGTERM and waits; kills it after the limit. Returns whether it ended in time with status 0.
    // Sets exit_text().
    bool stop_module(Span limit);
    [[nodiscard]] bool is_running();
    // How the module ended: "exit status 3; it printed: ...". Empty while it runs.
    [[nodiscard]] const std::string &exit_text() const { return exit_text_; }
    // The end of what the running module printed, of its first few kilobytes: "; it printed: ...".
    std::string printed_text();

    // The device manager's part, and the daemon's. Throw Failure when the server does not answer.
    void plug(const TestCard &card);
    void pull(const TestCard &card);
    void request(const TestCard &card);
    void withdraw(const TestCard &card);
    void restart_store();

    // Waits for an answer to the last request for the card that was not returned before, under whatever name.
    // Returns nothing after the limit, or when the module has ended.
    std::optional<ReceivedAnswer> wait_for_answer(const TestCard &card, Span limit);
    // Receives answers for that time; for less when the module ends.
    void receive_for(Span span);
    // All answers received, in the order of their arrival.
    [[nodiscard]] const std::vector<ReceivedAnswer> &answers() const { return answers_; }
    // The number of answers that wait_for_answer() did not return, those included that were overwritten
    // before they could be read.
    int64_t excess_answers();

private:
    // Has the signals that would end the program wait in a descriptor.
    class PendingSignals
    {
    public:
        PendingSignals();
        ~PendingSignals();
        PendingSignals(const PendingSignals &) = delete;
        PendingSignals &operator=(const PendingSignals &) = delete;

        [[nodiscard]] int descriptor() const { return file_.get(); }
        // The next one; 0 when there is none.
        [[nodiscard]] int next() const;

    private:
        sigset_t before_{};
        platform::Descriptor file_;
    };

    void receive();
    void wait_until(Clock::time_point deadline);
    void note_exit(int wait_status);
    int64_t count_changes();

    const PendingSignals signals_;
    PrivateStore server_;
    const std::vector<std::string> command_;
    platform::Loop loop_;
    store::Client client_;
    store::Subscription subscription_;
    std::unique_ptr<ChildProcess> module_;
    int exit_status_ = 0;
    std::string exit_text_;
    std::map<Position, Clock::time_point> requested_at_;
    std::map<Position, std::size_t> first_answer_; // index of the first one that may be to the last request
    std::vector<ReceivedAnswer> answers_;
    std::vector<bool> is_returned_;
    int64_t own_changes_ = 0; // of answers: those that removed one, and those that counted
};

} // namespace cg

#endif
