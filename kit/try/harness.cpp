// A check module alone with a store server of its own.
#include "try/harness.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <utility>

#include "base/failure.h"
#include "base/text.h"
#include "records/new_card.h"
#include "records/position_key.h"
#include "records/record_types.h"
#include "store/codec/names.h"
#include "store/inspect/inspection.h"

namespace cg
{

namespace
{

constexpr int poll_interval_ms = 10;
constexpr std::size_t most_printed = 400; // bytes that are quoted of what a module printed

const RecordType &request_type()
{
    return record_type("p_libpub.app_cg_card_check_info");
}

const RecordType &answer_type()
{
    return record_type("p_libpub.app_cg_card_check_ack");
}

const RecordType &card_type()
{
    return record_type("p_dev.card_info");
}

// Ctrl-C must not leave a server behind: the destructors have to run.
volatile std::sig_atomic_t interrupted = 0;

void note_signal(int signal_number)
{
    interrupted = signal_number;
}

// The settings of an installed store apply neither to the module nor to this program.
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
        if (std::none_of(settings.begin(), settings.end(),
                         [&](const auto &setting) { return variable.starts_with(setting.first + '='); })) {
            variables.push_back(variable);
        }
    }
    for (const auto &[name, value] : settings) {
        variables.push_back(std::string(name).append("=").append(value));
    }
    return variables;
}

} // namespace

Harness::Harness(const Output &output, std::vector<std::string> command)
    : output_{output.out, discarded_, output.json, output.program}, command_(std::move(command))
{
    for (const auto &[name, value] : private_settings(server_)) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    store_ = std::make_unique<Store>(output_);
    store_->connect(answer_type().db);
}

Harness::Interruptible::Interruptible()
{
    interrupted = 0;
    for (const int signal_number : {SIGINT, SIGTERM, SIGHUP}) {
        static_cast<void>(std::signal(signal_number, note_signal));
    }
}

Harness::Interruptible::~Interruptible()
{
    for (const int signal_number : {SIGINT, SIGTERM, SIGHUP}) {
        static_cast<void>(std::signal(signal_number, SIG_DFL));
    }
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
    const auto deadline = Clock::now() + limit;
    std::optional<int> status;
    while (!(status = module_->poll()) && Clock::now() < deadline) {
        pause();
    }
    if (status) {
        note_exit(*status);
    } else {
        exit_text_ = "no exit within the time limit";
    }
    module_.reset();
    return status && WIFEXITED(*status) && WEXITSTATUS(*status) == 0;
}

void Harness::plug(const TestCard &card)
{
    NewCard plugged;
    plugged.position = card.position;
    plugged.type = std::to_string(card.type);
    plugged.node_type = card.node_type;
    plugged.nodeid = plugged.tipc = std::to_string(card.node_id);
    plugged.name = card.name;
    plugged.serial = card.serial;
    store_->set(card_type(), card_type().db, card_info_of(plugged));
}

void Harness::pull(const TestCard &card)
{
    store_->erase(card_type(), card_type().db, key_of(card.position));
}

void Harness::request(const TestCard &card)
{
    receive();
    first_answer_[card.position] = answers_.size();
    requested_at_[card.position] = Clock::now();
    store_->set_fields(request_type(), request_type().db,
                       {{"index", key_of(card.position)},
                        {"type", card.type},
                        {"node_type", node_type_value(card.node_type)},
                        {"card_nodeid", card.node_id}},
                       {6, 7, 8});
}

void Harness::withdraw(const TestCard &card)
{
    store_->erase(request_type(), request_type().db, key_of(card.position));
}

void Harness::restart_store()
{
    server_.stop();
    server_.start();
}

std::optional<ReceivedAnswer> Harness::wait_for_answer(const TestCard &card, Span limit)
{
    const auto deadline = Clock::now() + limit;
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
        pause();
    }
}

void Harness::receive_for(Span span)
{
    const auto deadline = Clock::now() + span;
    do {
        receive();
        pause();
    } while (is_running() && Clock::now() < deadline);
    receive();
}

void Harness::receive()
{
    for (const Json &record : store_->scan(answer_type(), answer_type().db)) {
        const Json &key = key_part(answer_type(), record);
        ReceivedAnswer answer{position_in(key), key["mod_name"], {record["ret"] == 0, record["reason"]}, 0};
        const auto requested = requested_at_.find(answer.position);
        if (requested != requested_at_.end()) {
            answer.took_s = Span(Clock::now() - requested->second).count();
        }
        store_->erase(answer_type(), answer_type().db, key);
        answers_.push_back(std::move(answer));
        is_returned_.push_back(false);
    }
}

void Harness::pause()
{
    ::poll(nullptr, 0, poll_interval_ms);
    if (interrupted != 0) {
        throw Failure(failed, std::string("interrupted: ") + strsignal(interrupted));
    }
}

int64_t Harness::excess_answers()
{
    receive();
    const auto changes = count_changes();
    // An answer received is two changes: its write, and our deletion of it.
    const auto received = static_cast<int64_t>(answers_.size());
    return (changes ? *changes - 2 * received : 0) +
           std::count(is_returned_.begin(), is_returned_.end(), false);
}

std::optional<int64_t> Harness::count_changes()
{
    constexpr std::chrono::seconds limit{10};
    vx_mom::Inspection server(answer_type().db, limit);
    const auto reply = server.ask({"GET", vx_mom::counter_key(answer_type().name())}, limit);
    return reply ? to_number(reply->text, 0, INT64_MAX) : std::nullopt;
}

} // namespace cg
