// The doctor's checks of what the store client keeps in the server, and of what becomes of a write.
//
// A subscription that delivers nothing gives no error: a server behind a balancer, or a proxy that drops what
// it did not ask for, seems healthy to everybody but its subscribers. So a canary is written,
// with a type, a counter and an index of its own, of which nothing remains.
#include "doctor/client_checks.h"

#include <random>
#include <set>

#include "store/codec/names.h"
#include "store/functions.h"

namespace cg
{

namespace
{

constexpr const char *canary_type = "@canary";
constexpr const char *canary_field = "6";

std::string random_word()
{
    std::random_device random;
    return std::to_string(random()) + std::to_string(random());
}

// What is wrong with the registration of one database's data; empty when nothing is.
std::string registration_problem(const ExaminedServer &server, const store::Inspected &set,
                                 const store::Inspected &runs)
{
    if (set.text.empty()) {
        return "the data has no identity";
    }
    const std::string run = server.info_line("run_id") + ':' + server.info_line("master_replid");
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
    Canary(ExaminedServer &server, int32_t database)
        : server_(server), database_(database), word_(random_word()),
          key_(std::string(canary_type) + ':' + word_), channel_(store::channel_prefix(database) + key_),
          listener_(database, server.whole.patience)
    {
    }
    // Sends it and removes it.
    Finding fly();

private:
    Finding listen();
    Finding write_and_wait();
    Finding remove();

    ExaminedServer &server_;
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
    const auto reply = listener_.ask({"SUBSCRIBE", channel_}, server_.whole.patience);
    if (!reply) {
        return {Severity::fail, "a second connection cannot subscribe: " + listener_.problem(),
                "see the server's log; `maxclients` may be too small"};
    }
    return reply->is_error() ? refused(*reply, "see the server's log") : Finding{};
}

Finding Canary::write_and_wait()
{
    const store::Inspected written = server_.ask(
        {"FCALL", store::set_function, "3", key_, store::counter_key(canary_type),
         store::index_key(canary_type), store::channel_prefix(database_), "", canary_field, word_},
        database_);
    if (written.is_error()) {
        return refused(written, "a write has to be possible: free memory (`maxmemory`) or disk space as the "
                                "server's words say");
    }
    const std::string expected =
        item(written.text) + item("4") + item("1") + item(canary_field) + item(word_);
    const auto message = listener_.next(server_.whole.patience);
    if (!message) {
        return {Severity::fail, "a change is published, but does not arrive at its subscriber",
                "point " + server_.endpoint_settings() +
                    " at the server itself: no balancer over several servers, and nothing "
                    "in between that drops what is pushed"};
    }
    if (message->items.size() != 3 || message->items[1].text != channel_ ||
        message->items[2].text != expected) {
        return {Severity::fail, "what arrives at a subscriber is not what was written",
                "point " + server_.endpoint_settings() + " at the server itself, with nothing in between"};
    }
    return {};
}

// With those that an examination which was killed left behind.
Finding Canary::remove()
{
    std::vector<std::string> command{"DEL", key_, store::counter_key(canary_type),
                                     store::index_key(canary_type)};
    for (const store::Inspected &member :
         server_.ask({"SMEMBERS", store::index_key(canary_type)}, database_).items) {
        command.push_back(member.text);
    }
    const store::Inspected removed = server_.ask(command, database_);
    if (removed.is_error()) {
        const std::string by_hand = "DEL " + key_ + ' ' + command[2] + ' ' + command[3];
        return {Severity::fail, "the canary cannot be removed: " + removed.text,
                '`' + server_.redis_cli(by_hand, database_) + '`'};
    }
    return {};
}

} // namespace

Finding check_functions(ExaminedServer &server)
{
    const std::string fix =
        "`cgctl doctor --functions | " + server.redis_cli("-x FUNCTION LOAD REPLACE") + '`';
    const store::Inspected reply =
        server.ask({"FUNCTION", "LIST", "LIBRARYNAME", store::library_name, "WITHCODE"});
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

Finding check_data_set(ExaminedServer &server)
{
    std::set<int32_t> wrong;
    std::string problem;
    for (const int32_t database : server.databases) {
        const store::Inspected set = server.ask({"GET", store::data_set_key}, database);
        const store::Inspected runs = server.ask({"HGETALL", store::runs_key}, database);
        for (const store::Inspected *reply : {&set, &runs}) {
            if (reply->is_error()) {
                const std::string keys = std::string(store::data_set_key) + ' ' + store::runs_key;
                return refused(*reply, '`' + server.redis_cli("DEL " + keys, database) + "`, then " +
                                           server.whole.cgctl("list"));
            }
        }
        const std::string here = registration_problem(server, set, runs);
        if (!here.empty()) {
            wrong.insert(database);
            problem = here;
        }
    }
    if (!wrong.empty()) {
        return {Severity::fail, databases_text(wrong) + ": " + problem,
                server.whole.cgctl("list") +
                    " as a user who may register it: the daemon or an administrator"};
    }
    return {Severity::ok, "the server's present run is registered in each database"};
}

Finding check_notifications(ExaminedServer &server)
{
    for (const int32_t database : server.databases) {
        Finding finding = Canary(server, database).fly();
        if (finding.severity != Severity::ok) {
            finding.found = databases_text({database}) + ": " + finding.found;
            return finding;
        }
    }
    return {Severity::ok, "a canary arrived in each database"};
}

} // namespace cg
