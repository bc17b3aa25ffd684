// A check module alone with a store of its own.
#include "try/rehearsal.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
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

constexpr int look_again_ms = 10;
constexpr std::size_t most_said = 400; // of what a module that died had to say

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

// The settings of this machine's own store are for neither of us.
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

int32_t number(const std::string &name, const std::string &text)
{
    const auto value = to_number(text, 0, INT32_MAX);
    if (!value) {
        throw Failure(wrong_usage, "--card: " + name + '=' + visible(text) + ": not a whole number from 0");
    }
    return static_cast<int32_t>(*value);
}

void set_member(TrialCard &card, const std::string &name, const std::string &value)
{
    if (name == "name") {
        card.name = value;
    } else if (name == "serial" && from_hex(value)) {
        card.serial = value;
    } else if (name == "node-type") {
        card.node_type = node_type_value(value);
    } else if (name == "type") {
        card.type = number(name, value);
    } else if (name == "devid") {
        card.position.devid = number(name, value);
    } else if (name == "slot") {
        card.position.slotid = number(name, value);
    } else if (name == "sslot") {
        card.position.sslotid = number(name, value);
    } else if (name == "nodeid") {
        card.node_id = number(name, value);
    } else {
        throw Failure(wrong_usage, "--card: " + in_quotes(name + '=' + value) +
                                       ": one of name=, type=, devid=, slot=, sslot=, node-type=, nodeid=, "
                                       "serial= with hexadecimal digits");
    }
}

} // namespace

// A value may hold blanks: a member ends where the next word with '=' begins.
TrialCard parse_trial_card(const std::string &text)
{
    TrialCard card;
    card.position = {1, 1, 0};
    card.type = 200;
    std::string name;
    std::string value;
    for (const std::string &word : split(text, ' ')) {
        const std::size_t equals = word.find('=');
        if (equals == std::string::npos) {
            if (name.empty() && !word.empty()) {
                throw Failure(wrong_usage,
                              "--card: " + in_quotes(word) + ": no '='; as in 'name=fan type=230 slot=3'");
            }
            value += word.empty() ? "" : ' ' + word;
            continue;
        }
        if (!name.empty()) {
            set_member(card, name, value);
        }
        name = word.substr(0, equals);
        value = word.substr(equals + 1);
    }
    if (name.empty()) {
        throw Failure(wrong_usage, "--card: nothing said of the card; as in 'name=fan type=230 slot=3'");
    }
    set_member(card, name, value);
    if (card.name.empty()) {
        card.name = "card " + card.position.text();
    }
    return card;
}

Rehearsal::Rehearsal(const Output &output, std::vector<std::string> command)
    : output_{output.out, unheard_, output.json, output.program}, command_(std::move(command))
{
    for (const auto &[name, value] : private_settings(server_)) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    store_ = std::make_unique<Store>(output_);
    store_->connect(answer_type().db);
}

Rehearsal::Interruptible::Interruptible()
{
    interrupted = 0;
    for (const int signal_number : {SIGINT, SIGTERM, SIGHUP}) {
        static_cast<void>(std::signal(signal_number, note_signal));
    }
}

Rehearsal::Interruptible::~Interruptible()
{
    for (const int signal_number : {SIGINT, SIGTERM, SIGHUP}) {
        static_cast<void>(std::signal(signal_number, SIG_DFL));
    }
}

void Rehearsal::start_module()
{
    ending_.clear();
    try {
        module_ = std::make_unique<ChildProcess>(command_, environment_with(private_settings(server_)));
    } catch (const std::system_error &problem) {
        throw Failure(failed, in_quotes(command_.front()) + " cannot be started: " + problem.what());
    }
}

bool Rehearsal::runs()
{
    if (module_) {
        if (const std::optional<int> status = module_->poll()) {
            note_ending(*status);
            module_.reset();
        }
    }
    return module_ != nullptr;
}

std::string Rehearsal::said()
{
    if (!module_) {
        return {};
    }
    static_cast<void>(module_->poll());
    const std::string text = module_->errors().empty() ? module_->output() : module_->errors();
    const std::size_t last = text.find_last_not_of(" \t\r\n");
    if (last == std::string::npos) {
        return "; it said nothing";
    }
    // The end of it tells most.
    const std::size_t first = last + 1 - std::min(last + 1, most_said);
    return "; it said: " + visible(text.substr(first, last + 1 - first));
}

void Rehearsal::note_ending(int wait_status)
{
    ending_ = WIFSIGNALED(wait_status) ? std::string("signal ") + strsignal(WTERMSIG(wait_status))
                                       : "exit status " + std::to_string(WEXITSTATUS(wait_status));
    if (wait_status != 0) {
        ending_ += said();
    }
}

bool Rehearsal::stop_module(Span limit)
{
    if (!runs()) {
        return false;
    }
    module_->signal_group(SIGTERM);
    const auto deadline = Clock::now() + limit;
    std::optional<int> status;
    while (!(status = module_->poll()) && Clock::now() < deadline) {
        pause();
    }
    if (status) {
        note_ending(*status);
    } else {
        ending_ = "no end within the time limit";
    }
    module_.reset();
    return status && WIFEXITED(*status) && WEXITSTATUS(*status) == 0;
}

void Rehearsal::plug(const TrialCard &card)
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

void Rehearsal::pull(const TrialCard &card)
{
    store_->erase(card_type(), card_type().db, key_of(card.position));
}

void Rehearsal::ask(const TrialCard &card)
{
    take();
    wanted_from_[card.position] = answers_.size(); // what came before is no answer to this
    asked_[card.position] = Clock::now();
    store_->set_fields(request_type(), request_type().db,
                       {{"index", key_of(card.position)},
                        {"type", card.type},
                        {"node_type", node_type_value(card.node_type)},
                        {"card_nodeid", card.node_id}},
                       {6, 7, 8});
}

void Rehearsal::withdraw(const TrialCard &card)
{
    store_->erase(request_type(), request_type().db, key_of(card.position));
}

void Rehearsal::restart_store()
{
    server_.stop();
    server_.start();
}

std::optional<GivenAnswer> Rehearsal::answer(const TrialCard &card, Span limit)
{
    const auto deadline = Clock::now() + limit;
    for (;;) {
        const bool is_alive = runs(); // before the look: what it wrote before its end counts
        take();
        for (std::size_t i = wanted_from_[card.position]; i < answers_.size(); i++) {
            if (!given_out_[i] && answers_[i].position == card.position) {
                given_out_[i] = true;
                return answers_[i];
            }
        }
        if (!is_alive || Clock::now() >= deadline) {
            return std::nullopt;
        }
        pause();
    }
}

void Rehearsal::listen(Span span)
{
    const auto deadline = Clock::now() + span;
    do {
        take();
        pause();
    } while (runs() && Clock::now() < deadline);
    take();
}

void Rehearsal::take()
{
    for (const Json &record : store_->scan(answer_type(), answer_type().db)) {
        const Json &key = key_part(answer_type(), record);
        GivenAnswer answer{position_in(key), key["mod_name"], record["ret"], record["reason"], 0};
        const auto asked = asked_.find(answer.position);
        if (asked != asked_.end()) {
            answer.took_s = Span(Clock::now() - asked->second).count();
        }
        store_->erase(answer_type(), answer_type().db, key);
        answers_.push_back(std::move(answer));
        given_out_.push_back(false);
    }
}

void Rehearsal::pause()
{
    ::poll(nullptr, 0, look_again_ms);
    if (interrupted != 0) {
        throw Failure(failed, std::string("interrupted: ") + strsignal(interrupted));
    }
}

int64_t Rehearsal::surplus()
{
    take();
    const auto count = counted();
    // An answer that was taken is two changes: its write, and our deletion of it.
    const auto taken = static_cast<int64_t>(answers_.size());
    return (count ? *count - 2 * taken : 0) + std::count(given_out_.begin(), given_out_.end(), false);
}

std::optional<int64_t> Rehearsal::counted()
{
    constexpr std::chrono::seconds limit{10};
    vx_mom::Inspection server(answer_type().db, limit);
    const auto reply = server.ask({"GET", vx_mom::counter_key(answer_type().name())}, limit);
    return reply ? to_number(reply->text, 0, INT64_MAX) : std::nullopt;
}

} // namespace cg
