// The doctor's checks of what the store client keeps in the server, and of what becomes of a write.
//
// A subscription that delivers nothing gives no error: a server behind a balancer, or a proxy that drops what
// it did not ask for, seems healthy to everybody but its subscribers. So a canary is written,
// with a type, a counter and an index of its own, of which nothing remains.
#include "doctor/client_checks.h"

#include <random>

#include "records/record_types.h"
#include "store/codec/names.h"
#include "store/functions.h"

namespace cg
{

namespace
{

constexpr const char *canary_type = "@canary";
constexpr const char *canary_field = "6";

std::string databases_text(const std::vector<std::string> &numbers)
{
    return (numbers.size() == 1 ? "database " : "databases ") + listed(numbers);
}

std::string random_word()
{
    std::random_device random;
    return std::to_string(random()) + std::to_string(random());
}

// What is wrong with the registration of one database's data; empty when nothing is.
std::string registration_problem(const Examination &examination, const store::Inspected &set,
                                 const store::Inspected &runs)
{
    if (set.text.empty()) {
        return "the data has no identity";
    }
    const std::string run =
        examination.server_info("run_id") + ':' + examination.server_info("master_replid");
    const std::string present = runs.value_of(runs.value_of("now").text).text;
    if (present.substr(0, present.find(' ')) != run) {
        return "the server's present run is not registered";
    }
    return runs.value_of("library").text == store::library_digest()
               ? ""
               : "the functions registered are of another version";
}

std::string item(const std::string &text)
{
    return std::to_string(text.size()) + ':' + text;
}

// One canary in one database.
class Canary
{
public:
    Canary(Examination &examination, int32_t database)
        : examination_(examination), database_(database), word_(random_word()),
          key_(std::string(canary_type) + ':' + word_), channel_(store::channel_prefix(database) + key_),
          listener_(database, examination.patience)
    {
    }
    // Sends it and removes it.
    Finding fly();

private:
    Finding listen();
    Finding write_and_wait();
    Finding remove();

    Examination &examination_;
    int32_t database_;
    std::string word_;
    std::string key_;
    std::string channel_;
    store::Inspection listener_;
};

Finding Canary::fly()
{
    Finding listening = listen();
    if (listening.severity != Severity::ok) {
        return listening;
    }
    Finding arrival = write_and_wait();
    Finding removal = remove();
    return arrival.severity == Severity::ok ? removal : arrival;
}

Finding Canary::listen()
{
    const auto reply = listener_.ask({"SUBSCRIBE", channel_}, examination_.patience);
    if (!reply) {
        return {Severity::fail, "a second connection cannot subscribe: " + listener_.problem(),
                "see the server's log; `maxclients` may be too small"};
    }
    return reply->is_error() ? refused(*reply, "see the server's log") : Finding{};
}

Finding Canary::write_and_wait()
{
    const store::Inspected written = examination_.ask(
        {"FCALL", store::set_function, "3", key_, store::counter_key(canary_type),
         store::index_key(canary_type), store::channel_prefix(database_), "", canary_field, word_},
        database_);
    if (written.is_error()) {
        return refused(written, "a write has to be possible: free memory (`maxmemory`) or disk space as the "
                                "server's words say");
    }
    const std::string expected =
        item(written.text) + item("4") + item("1") + item(canary_field) + item(word_);
    const auto message = listener_.next(examination_.patience);
    if (!message) {
        return {Severity::fail, "a change is published, but does not arrive at its subscriber",
                "point VX_MOM_ENDPOINT at the server itself: no balancer over several servers, and nothing "
                "in between that drops what is pushed"};
    }
    if (message->items.size() != 3 || message->items[1].text != channel_ ||
        message->items[2].text != expected) {
        return {Severity::fail, "what arrives at a subscriber is not what was written",
                "point VX_MOM_ENDPOINT at the server itself, with nothing in between"};
    }
    return {};
}

// With those that an examination which was killed left behind.
Finding Canary::remove()
{
    std::vector<std::string> command{"DEL", key_, store::counter_key(canary_type),
                                     store::index_key(canary_type)};
    for (const store::Inspected &member :
         examination_.ask({"SMEMBERS", store::index_key(canary_type)}, database_).items) {
        command.push_back(member.text);
    }
    const store::Inspected removed = examination_.ask(command, database_);
    if (removed.is_error()) {
        const std::string by_hand = "DEL " + key_ + ' ' + command[2] + ' ' + command[3];
        return {Severity::fail, "the canary cannot be removed: " + removed.text,
                '`' + examination_.redis_cli(by_hand, database_) + '`'};
    }
    return {};
}

} // namespace

Finding check_functions(Examination &examination)
{
    const std::string fix =
        "`cgctl doctor --functions | " + examination.redis_cli("-x FUNCTION LOAD REPLACE") + '`';
    const store::Inspected reply =
        examination.ask({"FUNCTION", "LIST", "LIBRARYNAME", store::library_name, "WITHCODE"});
    if (reply.is_error()) {
        return refused(reply, fix);
    }
    if (reply.items.empty()) {
        return {Severity::fail, std::string("the function library ") + store::library_name + " is missing",
                fix};
    }
    if (reply.items[0].value_of("library_code").text != store::library_code()) {
        return {Severity::fail,
                std::string("the function library ") + store::library_name + " is of another version", fix};
    }
    std::string found = store::library_name;
    found += ", of this version";
    return {Severity::ok, found};
}

Finding check_data_set(Examination &examination)
{
    std::vector<std::string> wrong;
    std::string problem;
    for (const int32_t database : databases()) {
        const store::Inspected set = examination.ask({"GET", store::data_set_key}, database);
        const store::Inspected runs = examination.ask({"HGETALL", store::runs_key}, database);
        for (const store::Inspected *reply : {&set, &runs}) {
            if (reply->is_error()) {
                const std::string keys = std::string(store::data_set_key) + ' ' + store::runs_key;
                return refused(*reply, '`' + examination.redis_cli("DEL " + keys, database) + "`, then " +
                                           examination.cgctl("list"));
            }
        }
        const std::string here = registration_problem(examination, set, runs);
        if (!here.empty()) {
            wrong.push_back(std::to_string(database));
            problem = here;
        }
    }
    if (!wrong.empty()) {
        return {Severity::fail, databases_text(wrong) + ": " + problem,
                examination.cgctl("list") + " as a user who may register it: the daemon or an administrator"};
    }
    return {Severity::ok, "the server's present run is registered in each database"};
}

Finding check_notifications(Examination &examination)
{
    for (const int32_t database : databases()) {
        Finding finding = Canary(examination, database).fly();
        if (finding.severity != Severity::ok) {
            finding.found = databases_text({std::to_string(database)}) + ": " + finding.found;
            return finding;
        }
    }
    return {Severity::ok, "a canary arrived in each database"};
}

} // namespace cg
