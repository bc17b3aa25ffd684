// A check module alone with a store server of its own.
#include "try/harness.h"

#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>
#include <system_error>
#include <utility>

#include "base/failure.h"
#include "base/text.h"
#include "p_libpub.pb-c.h"
#include "records/databases.h"
#include "records/new_card.h"
#include "records/position_key.h"

namespace cg
{

namespace
{

constexpr int32_t database = card_database; // of all records here
constexpr std::size_t most_printed = 400;   // bytes that are quoted of what a module printed

using AnswerRecord = PLibpub__AppCgCardCheckAck;
const ProtobufCMessageDescriptor &answer_type = p_libpub__app_cg_card_check_ack__descriptor;

// The settings of an installed store do not apply to the module, nor those for single databases.
std::vector<std::pair<std::string, std::string>> private_settings(const PrivateStore &server)
{
    return {{"VX_MOM_ENDPOINT", server.endpoint()},
            {"VX_PLATFORM_CONF", (server.folder() / "no-settings").string()},
            {"VX_MOM_AUTH_FILE", ""},
            {"VX_MOM_WAIT_REPLICAS", ""}};
}

std::vector<std::string> environment_with(const std::vector<std::pair<std::string, std::string>> &settings)
{
    std::vector<std::string> variables;
    for (char **place = environ; place != nullptr && *place != nullptr; ++place) {
        const std::string variable = *place;
        if (std::none_of(settings.begin(), settings.end(), [&](const auto &setting) {
                return variable.starts_with(setting.first + '=') || variable.starts_with(setting.first + '_');
            })) {
            variables.push_back(variable);
        }
    }
    for (const auto &[name, value] : settings) {
        variables.push_back(std::string(name).append("=").append(value));
    }
    return variables;
}

store::Options options_for(const PrivateStore &server)
{
    // That the server was away is this program's own doing, and no news.
    return {.place = store::Place{server.endpoint(), ""}, .notice = [](int32_t, const std::string &) {}};
}

void require(const store::Status &status)
{
    if (!status) {
        throw Failure(failed, "the private store does not answer: " + visible(status.reason));
    }
}

NewCard new_card_of(const TestCard &card)
{
    NewCard plugged;
    plugged.position = card.position;
    plugged.type = std::to_string(card.type);
    plugged.node_type = card.node_type;
    plugged.nodeid = plugged.tipc = std::to_string(card.node_id);
    plugged.name = card.name;
    plugged.serial = card.serial;
    return plugged;
}

} // namespace

Harness::PendingSignals::PendingSignals()
{
    sigset_t ending;
    sigemptyset(&ending);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&ending, number);
    }
    file_.reset(signalfd(-1, &ending, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!file_ || sigprocmask(SIG_BLOCK, &ending, &before_) != 0) {
        throw Failure(failed, std::string("signals cannot be received: ") + std::strerror(errno));
    }
}

Harness::PendingSignals::~PendingSignals()
{
    sigprocmask(SIG_SETMASK, &before_, nullptr);
}

int Harness::PendingSignals::next() const
{
    signalfd_siginfo signal{};
    return read(file_.get(), &signal, sizeof signal) == sizeof signal ? static_cast<int>(signal.ssi_signo)
                                                                      : 0;
}

Harness::Harness(std::vector<std::string> command)
    : command_(std::move(command)), loop_("cgctl"), client_(loop_.context(), options_for(server_))
{
    require(client_.connect(database));
    auto subscribed = client_.subscribe(database, answer_type, [this](const store::Change &change) {
        if (change.command != VX_MOM_CMD_DELETED) {
            loop_.stop(); // wait_until() has something to receive
        }
    });
    require(subscribed);
    subscription_ = std::move(subscribed.value);
}

void Harness::start_module()
{
    exit_text_.clear();
    try {
        module_ = std::make_unique<ChildProcess>(command_, environment_with(private_settings(server_)));
    } catch (const std::system_error &problem) {
        throw Failure(failed, in_quotes(command_.front()) + " cannot be started: " + problem.what());
    }
}

bool Harness::is_running()
{
    if (module_) {
        if (const std::optional<int> status = module_->poll()) {
            note_exit(*status);
            module_.reset();
        }
    }
    return module_ != nullptr;
}

std::string Harness::printed_text()
{
    if (!module_) {
        return {};
    }
    static_cast<void>(module_->poll());
    const std::string text = module_->errors().empty() ? module_->output() : module_->errors();
    const std::size_t last = text.find_last_not_of(" \t\r\n");
    if (last == std::string::npos) {
        return "; it printed nothing";
    }
    // The cause is usually at the end.
    const std::size_t first = last + 1 - std::min(last + 1, most_printed);
    return "; it printed: " + visible(text.substr(first, last + 1 - first));
}

void Harness::note_exit(int wait_status)
{
    exit_status_ = wait_status;
    exit_text_ = WIFSIGNALED(wait_status) ? std::string("signal ") + strsignal(WTERMSIG(wait_status))
                                          : "exit status " + std::to_string(WEXITSTATUS(wait_status));
    if (wait_status != 0) {
        exit_text_ += printed_text();
    }
}

bool Harness::stop_module(Span limit)
{
    if (!is_running()) {
        return false;
    }
    module_->signal_group(SIGTERM);
    const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(limit);
    while (is_running() && Clock::now() < deadline) {
        wait_until(deadline);
    }
    if (module_) {
        exit_text_ = "no exit within the time limit";
        module_.reset();
        return false;
    }
    return exit_status_ == 0;
}

void Harness::plug(const TestCard &card)
{
    require(client_.set(database, *card_info_of(new_card_of(card))));
}

void Harness::pull(const TestCard &card)
{
    require(client_.erase(database, CardInfoAt(card.position).record.base));
}

void Harness::request(const TestCard &card)
{
    receive();
    first_answer_[card.position] = answers_.size();
    requested_at_[card.position] = Clock::now();
    CheckRequestAt request(card.position);
    const MessagePtr message = card_info_of(new_card_of(card));
    const auto &info = reinterpret_cast<const PDev__CardInfo &>(*message);
    request.record.type = info.config_dev_type;
    request.record.node_type = static_cast<PDev__DmNodeTypeE>(info.static_info->node_type);
    request.record.card_nodeid = info.card_nodeid;
    constexpr std::array<int32_t, 3> fields{6, 7, 8};
    require(client_.set_fields(database, request.record.base, fields));
}

void Harness::withdraw(const TestCard &card)
{
    require(client_.erase(database, CheckRequestAt(card.position).record.base));
}

void Harness::restart_store()
{
    server_.stop();
    server_.start();
}

std::optional<ReceivedAnswer> Harness::wait_for_answer(const TestCard &card, Span limit)
{
    const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(limit);
    for (;;) {
        const bool is_alive = is_running(); // first: what it wrote before its end counts
        receive();
        for (std::size_t i = first_answer_[card.position]; i < answers_.size(); i++) {
            if (!is_returned_[i] && answers_[i].position == card.position) {
                is_returned_[i] = true;
                return answers_[i];
            }
        }
        if (!is_alive || Clock::now() >= deadline) {
            return std::nullopt;
        }
        wait_until(deadline);
    }
}

void Harness::receive_for(Span span)
{
    const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(span);
    while (is_running() && Clock::now() < deadline) {
        receive();
        wait_until(deadline);
    }
    receive();
}

// Reads what is there, whatever the subscription has delivered: so what is received before a request is no
// answer to it.
void Harness::receive()
{
    std::vector<store::MessagePtr> records;
    require(client_.scan(database, answer_type,
                         [&](store::Record &&record) { records.push_back(std::move(record.message)); }));
    for (const store::MessagePtr &message : records) {
        const auto &record = reinterpret_cast<const AnswerRecord &>(*message);
        ReceivedAnswer answer{{record.index->devid, record.index->slotid, record.index->t_sslotid},
                              record.index->mod_name,
                              {record.ret == 0, record.reason},
                              0};
        const auto requested = requested_at_.find(answer.position);
        if (requested != requested_at_.end()) {
            answer.took_s = Span(Clock::now() - requested->second).count();
        }
        require(client_.erase(database, *message));
        own_changes_++;
        answers_.push_back(std::move(answer));
        is_returned_.push_back(false);
    }
}

// Until the deadline, the next answer, or something of the module.
void Harness::wait_until(Clock::time_point deadline)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    const auto stop = [this] { loop_.stop(); };
    const platform::Timer timer = loop_.after(std::max(left, std::chrono::milliseconds(0)), stop);
    const platform::Watch signals =
        loop_.watch(signals_.descriptor(), platform::Watch::Until::readable, stop);
    platform::Watch module;
    if (module_) {
        module = loop_.watch(module_->descriptor(), platform::Watch::Until::readable, stop);
    }
    loop_.run(platform::Loop::Signals::leave);
    if (const int number = signals_.next(); number != 0) {
        throw Failure(failed, std::string("interrupted: ") + strsignal(number));
    }
}

int64_t Harness::excess_answers()
{
    receive();
    const auto changes = count_changes(); // which makes some of its own
    return changes - own_changes_ - std::count(is_returned_.begin(), is_returned_.end(), true);
}

// The revision of a record is the number of its type's changes so far, so one is written to be read.
int64_t Harness::count_changes()
{
    PLibpub__AppCgCardCheckAckIndex index = P_LIBPUB__APP_CG_CARD_CHECK_ACK_INDEX__INIT;
    index.devid = std::numeric_limits<int32_t>::min(); // no card is there
    AnswerRecord marker = P_LIBPUB__APP_CG_CARD_CHECK_ACK__INIT;
    marker.index = &index;
    require(client_.set(database, marker.base));
    const auto found = client_.read(database, marker.base);
    require(found);
    require(client_.erase(database, marker.base));
    own_changes_ += 2;
    return found.value ? static_cast<int64_t>(found.value->revision) + 1 : 0;
}

} // namespace cg
