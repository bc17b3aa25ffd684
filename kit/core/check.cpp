// The examination of one card.
#include "core/check.h"

#include <utility>

#include "modules/contract.h"

namespace kit
{

static_assert(cg::longest_reason == APP_CG_KIT_LONGEST_REASON &&
              cg::longest_module_name == APP_CG_KIT_LONGEST_NAME);

void Mailbox::post(std::shared_ptr<app_cg_kit_check> check)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    if (wake_) {
        posted_.push_back(std::move(check));
        wake_();
    }
}

std::deque<std::shared_ptr<app_cg_kit_check>> Mailbox::receive()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return std::exchange(posted_, {});
}

void Mailbox::close()
{
    std::deque<std::shared_ptr<app_cg_kit_check>> left; // dies without the lock
    std::unique_lock<std::mutex> lock(mutex_);
    wake_ = nullptr;
    left.swap(posted_);
    logged_.wait(lock, [this] { return logging_ == 0; });
}

void Mailbox::log(int level, const std::string &text) const
{
    struct Call {
        const Mailbox &box;
        ~Call()
        {
            const std::lock_guard<std::mutex> guard(box.mutex_);
            box.logging_--;
            box.logged_.notify_all();
        }
    };
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (!wake_) {
            return;
        }
        logging_++;
    }
    const Call call{*this};
    log_(level, text); // without the lock: the sink may call the kit
}

std::string fitting_reason(std::string reason)
{
    if (reason.size() <= cg::longest_reason) {
        return reason;
    }
    const auto goes_on = [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; };
    std::size_t end = cg::longest_reason;
    while (end > 0 && goes_on(reason[end])) {
        end--;
    }
    reason.resize(end);
    return reason;
}

} // namespace kit

int app_cg_kit_check::answer(bool pass, const std::string &reason)
{
    const std::string card = facts_.request.position.text();
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (ended_ != 0 || answered_) {
            return ended_ != 0 ? ended_ : APP_CG_KIT_E_ANSWERED;
        }
        answered_ = true;
        answer_ = {pass, pass ? "" : kit::fitting_reason(reason)};
    }
    if (!pass && reason.empty()) {
        mailbox_->log(APP_CG_KIT_WARNING, card + " is denied without a reason; the operator reads \"not "
                                                 "compatible\" and cannot know what is wrong");
    } else if (!pass && reason.size() > cg::longest_reason) {
        mailbox_->log(APP_CG_KIT_WARNING, card + ": the reason has " + std::to_string(reason.size()) +
                                              " bytes and was cut to " + std::to_string(cg::longest_reason));
    }
    mailbox_->post(shared_from_this());
    return 0;
}

void app_cg_kit_check::note(const std::string &reason)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    noted_ = reason;
}

int app_cg_kit_check::answer_from_callback(bool pass)
{
    std::string reason;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        reason = noted_;
    }
    return answer(pass, reason);
}

bool app_cg_kit_check::promise()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    promised_ = true;
    return holds_ > 0 || answered_;
}

void app_cg_kit_check::hold()
{
    auto self = shared_from_this();
    const std::lock_guard<std::mutex> guard(mutex_);
    holds_++;
    self_ = std::move(self);
}

void app_cg_kit_check::release()
{
    std::shared_ptr<app_cg_kit_check> last; // dies after the lock
    bool is_lost = false;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (holds_ == 0 || --holds_ > 0) {
            return;
        }
        last = std::move(self_);
        is_lost = promised_ && !answered_ && ended_ == 0;
    }
    if (is_lost) {
        mailbox_->log(APP_CG_KIT_WARNING,
                      facts_.request.position.text() +
                          ": the last handle was released without a verdict; the daemon admits "
                          "the card after " +
                          std::to_string(cg::check_timeout.count()) + " s");
    }
}

bool app_cg_kit_check::is_open() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return ended_ == 0 && !answered_;
}

bool app_cg_kit_check::is_answered() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return answered_;
}

kit::Answer app_cg_kit_check::given() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return answer_;
}

bool app_cg_kit_check::end_unless_answered(int why)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    if (!answered_) {
        ended_ = why;
    }
    return !answered_;
}

void app_cg_kit_check::end(int why)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    ended_ = why;
}
