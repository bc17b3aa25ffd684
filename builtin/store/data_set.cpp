// The identity of a database's data; see the header.
#include "store/data_set.h"

#include <algorithm>
#include <random>
#include <sstream>

#include "schema_registry.h"
#include "store/codec/names.h"
#include "store/codec/number.h"
#include "store/functions.h"

namespace store
{

namespace
{

constexpr size_t questions_besides_counters = 4;
constexpr size_t identity_length = 32;
constexpr size_t longest_identity = 128;
constexpr std::string_view identity_digits = "0123456789abcdef";

bool read_revision(const redisReply *reply, uint64_t &revision)
{
    revision = 0;
    if (reply == nullptr || reply->type == REDIS_REPLY_NIL) {
        return reply != nullptr;
    }
    return !is_error(reply) && parse_number(text_of(reply), revision);
}

// "<identity> <type>=<revision> ...". What does not read is passed over: a run that began with nothing is one
// whose data cannot be believed. Returns whether all of it reads.
bool parse_run(const std::string &text, Run &run)
{
    bool is_sound = true;
    std::istringstream words(text);
    words >> run.identity;
    for (std::string word; words >> word;) {
        const size_t equals = word.find('=');
        uint64_t revision = 0;
        if (equals != std::string::npos &&
            parse_number(std::string_view(word).substr(equals + 1), revision)) {
            run.began_with[word.substr(0, equals)] = revision;
        } else {
            is_sound = false;
        }
    }
    return is_sound;
}

// Parses one field of the list of runs. Returns whether it is one.
bool parse_run_field(const std::string &name, const std::string &value, DataSet::Answers &answers)
{
    uint64_t number = 0;
    if (name == "library") {
        answers.library = value;
        return true;
    }
    if (name == "now") {
        return parse_number(value, answers.present_run);
    }
    return parse_number(name, number) && parse_run(value, answers.runs[number]);
}

void read_runs(const redisReply *reply, DataSet::Answers &answers)
{
    if (reply->type != REDIS_REPLY_ARRAY) {
        // Who may not read it does without: then no run is known.
        answers.oddity = is_error(reply, "NOPERM") ? "" : std::string(runs_key) + ": " + text_of(reply);
        return;
    }
    for (size_t i = 0; i + 1 < reply->elements; i += 2) {
        const std::string name = text_of(reply->element[i]);
        const std::string value = text_of(reply->element[i + 1]);
        if (!parse_run_field(name, value, answers)) {
            answers.oddity = runs_key;
            answers.oddity.append(": the field ").append(name).append(" holds ").append(value);
        }
    }
}

// Another client may make it in another way, but it is always a short word.
bool is_identity(const std::string &text)
{
    return !text.empty() && text.size() <= longest_identity &&
           std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < '\x7f'; });
}

bool holds(const Revisions &stored, const Revisions &known)
{
    return std::all_of(known.begin(), known.end(), [&](const auto &entry) {
        const auto found = stored.find(entry.first);
        return entry.second == 0 || (found != stored.end() && found->second >= entry.second);
    });
}

// Whether a run began with all that is known. Of a type that is not in its entry, its registrar knew
// nothing.
bool began_with(const Run &run, const Revisions &known)
{
    return std::all_of(known.begin(), known.end(), [&](const auto &entry) {
        const auto found = run.began_with.find(entry.first);
        return found == run.began_with.end() || found->second >= entry.second;
    });
}

// Whether a message stands only inside of others.
bool is_part(const ProtobufCMessageDescriptor *type)
{
    for (size_t i = 0; i < schema_registry_count(); i++) {
        const ProtobufCMessageDescriptor *whole = schema_registry_at(i);
        for (unsigned at = 0; at < whole->n_fields; at++) {
            if (whole->fields[at].descriptor == type) {
                return true;
            }
        }
    }
    return false;
}

std::string random_text()
{
    std::random_device random;
    std::string text;
    for (size_t i = 0; i < identity_length; i++) {
        text += identity_digits[random() % identity_digits.size()];
    }
    return text;
}

} // namespace

std::vector<Command> DataSet::questions() const
{
    std::vector<Command> commands = info_questions;
    commands.push_back({"GET", data_set_key});
    commands.push_back({"HGETALL", runs_key});
    for (const auto &known : learned_) {
        commands.push_back({"GET", counter_key(known.first)});
    }
    return commands;
}

bool DataSet::read(const std::vector<Reply> &replies, Answers &answers, std::string &why) const
{
    answers = {};
    if (replies.size() != questions_besides_counters + learned_.size()) {
        why = "the store server answers something else than it was asked";
        return false;
    }
    if (!read_server_info(replies[0].get(), replies[1].get(), answers.server, why)) {
        return false;
    }
    if (is_error(replies[2].get())) {
        why = std::string(data_set_key) + ": the store server answers: " + text_of(replies[2].get());
        return false;
    }
    answers.id = text_of(replies[2].get());
    read_runs(replies[3].get(), answers);
    if (replies[2]->type != REDIS_REPLY_NIL && !is_identity(answers.id)) {
        answers.oddity = std::string(data_set_key) + " holds " + answers.id;
    }
    size_t at = questions_besides_counters;
    for (const auto &known : learned_) {
        const redisReply *reply = replies[at++].get();
        if (!read_revision(reply, answers.revisions[known.first])) {
            why = counter_key(known.first) + " holds no revision: " + text_of(reply);
            return false;
        }
    }
    return true;
}

bool DataSet::is_same(const Answers &answers, bool with_heard) const
{
    Revisions known = learned_;
    if (with_heard) {
        for (const auto &[type, revision] : heard_) {
            known[type] = std::max(known[type], revision);
        }
    }
    return (id_.empty() || answers.id == id_) && holds(answers.revisions, known) &&
           is_same_run(answers, known);
}

bool DataSet::is_same_run(const Answers &answers, const Revisions &known) const
{
    const std::string &run = answers.server.run();
    if (run == run_) {
        return true;
    }
    const auto present = answers.runs.find(answers.present_run);
    const bool is_noted = present != answers.runs.end() && present->second.identity == run;
    if (run_number_ == 0 || !is_noted) {
        return true; // nobody who may register it has met one of the runs: the revisions have to do
    }
    // Our own run may have ended before its entry was saved; then another one has its number.
    const auto ours = answers.runs.find(run_number_);
    const bool is_noted_still = ours != answers.runs.end() && ours->second.identity == run_;
    const uint64_t first = std::min(is_noted_still ? run_number_ + 1 : run_number_, answers.present_run);
    for (uint64_t number = first; number <= answers.present_run; number++) {
        const auto later = answers.runs.find(number);
        if (later == answers.runs.end() || !began_with(later->second, known)) {
            return false;
        }
    }
    return true;
}

// A master that died and was restarted answers at once, with nothing left, while the others agree on its
// successor: a server without the group's data is believed only if it is the process that the sentinels see.
bool DataSet::is_believable(const Master &master, const Answers &answers, std::string &why) const
{
    const bool is_known_data = known_ && is_same(answers);
    const bool may_be_ours = !answers.id.empty() && (!known_ || id_ == answers.id);
    if (answers.server.is_replica) {
        why = master.place.text + ": is no master";
        return false;
    }
    if (is_known_data || (master.is_agreed && may_be_ours)) {
        return true;
    }
    if (!master.is_agreed) {
        why = master.place.text + ": the sentinels do not agree on it yet";
        return false;
    }
    if (known_ && master.run_id != answers.server.process) {
        why = master.place.text + ": has other data, and the sentinels have not seen its start yet";
        return false;
    }
    return true;
}

void DataSet::adopt(const Answers &answers)
{
    known_ = true;
    id_ = answers.id;
    run_ = answers.server.run();
    const auto present = answers.runs.find(answers.present_run);
    run_number_ = present != answers.runs.end() && present->second.identity == run_ ? answers.present_run : 0;
    learned_ = answers.revisions;
    heard_.clear();
}

uint64_t DataSet::learned(const std::string &type) const
{
    const auto found = learned_.find(type);
    return found == learned_.end() ? 0 : found->second;
}

void DataSet::learn(const std::string &type, uint64_t revision)
{
    uint64_t &highest = learned_[type];
    highest = std::max(highest, revision);
    heard_.erase(type);
}

void DataSet::hear(const std::string &type, uint64_t revision)
{
    uint64_t &highest = heard_[type];
    highest = std::max(highest, revision);
}

bool is_registered(const DataSet::Answers &answers)
{
    const auto present = answers.runs.find(answers.present_run);
    return !answers.id.empty() && present != answers.runs.end() &&
           present->second.identity == answers.server.run() && answers.library == library_digest();
}

Command registration(const ServerInfo &server)
{
    std::vector<std::string> types;
    for (size_t i = 0; i < schema_registry_count(); i++) {
        if (!is_part(schema_registry_at(i))) {
            types.emplace_back(schema_registry_at(i)->name);
        }
    }
    Command command{"FCALL", register_function, std::to_string(2 + types.size()), data_set_key, runs_key};
    for (const std::string &type : types) {
        command.push_back(counter_key(type));
    }
    command.insert(command.end(), {server.run(), random_text(), library_digest()});
    command.insert(command.end(), types.begin(), types.end());
    return command;
}

} // namespace store
