// The examination of one card, and how its verdict gets to the loop from any thread.
#ifndef KIT_CHECK_H
#define KIT_CHECK_H

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "core/facts.h"
#include "core/log.h"

namespace kit
{

// Verdicts on their way to the loop. Shared by the module and its examinations, which may outlive it.
class Mailbox
{
public:
    // wake  called, from any thread, when there is something to receive; log: see Log.
    Mailbox(std::function<void()> wake, Log log) : wake_(std::move(wake)), log_(std::move(log)) {}

    void post(std::shared_ptr<app_cg_kit_check> check);
    std::deque<std::shared_ptr<app_cg_kit_check>> receive();
    // Nothing is received or logged any more; what was posted is dropped. Waits for the calls of log() on
    // other threads: what the sink uses may go with the module.
    void close();
    // Logs, until it is closed. What the sink throws comes out of here.
    void log(int level, const std::string &text) const;

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable logged_;
    mutable int logging_ = 0;    // calls of the sink
    std::function<void()> wake_; // empty once closed
    const Log log_;
    std::deque<std::shared_ptr<app_cg_kit_check>> posted_;
};

// A verdict as it is written.
struct Answer {
    bool pass = false;
    std::string reason;
};

// Cuts a reason to the bytes that the daemon keeps, at a character.
std::string fitting_reason(std::string reason);

} // namespace kit

// All functions are safe on any thread.
struct app_cg_kit_check : std::enable_shared_from_this<app_cg_kit_check> {
public:
    app_cg_kit_check(kit::Facts facts, std::shared_ptr<kit::Mailbox> mailbox)
        : facts_(std::move(facts)), mailbox_(std::move(mailbox))
    {
    }

    [[nodiscard]] const kit::Facts &facts() const { return facts_; }

    // Posts a verdict to the loop. Returns 0, or why it was dropped.
    int answer(bool pass, const std::string &reason);
    // Stores the reason for a DENY that the callback is about to return.
    void note(const std::string &reason);
    // The verdict that a callback returned; with the stored reason. As answer().
    int answer_from_callback(bool pass);

    // The verdict comes later. Returns whether anybody can give it: holds a handle, or has given it.
    bool promise();

    // The C handle's own references.
    void hold();
    void release();

    [[nodiscard]] bool is_open() const;
    [[nodiscard]] bool is_answered() const;
    [[nodiscard]] kit::Answer given() const;

    // Ends it, for one of the reasons in enum app_cg_kit_error; a verdict that was given is not written.
    void end(int why);
    // Ends it unless it is answered, by whichever thread: a verdict that was accepted is not dropped. Returns
    // whether it has ended.
    bool end_unless_answered(int why);

private:
    const kit::Facts facts_;
    const std::shared_ptr<kit::Mailbox> mailbox_;
    mutable std::mutex mutex_;
    bool answered_ = false;
    int ended_ = 0;
    kit::Answer answer_;
    std::string noted_;
    int holds_ = 0;
    bool promised_ = false;
    std::shared_ptr<app_cg_kit_check> self_; // while it is held
};

#endif
