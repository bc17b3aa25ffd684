// A private group of store servers with sentinels; see the header.
#include "sentinel_group.h"

#include <fcntl.h>
#include <hiredis/hiredis.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace store_test
{

namespace
{

struct FreeContext {
    void operator()(redisContext *context) const { redisFree(context); }
};
struct FreeReply {
    void operator()(redisReply *reply) const { freeReplyObject(reply); }
};

constexpr const char *loopback = "127.0.0.1";
constexpr timeval patience{2, 0}; // with a server that may be frozen

std::string make_folder()
{
    const char *base = std::getenv("TMPDIR");
    std::string pattern = std::string(base == nullptr ? "/tmp" : base) + "/group-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("no folder can be made: " + pattern);
    }
    return pattern;
}

bool is_free(int port)
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int on = 1;
    (void)setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const bool bound = bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    (void)close(fd);
    return bound;
}

// Below the ports that the system gives to whoever connects somewhere, lest one be taken by the time that a
// server that was killed comes back to it. Tests that run at the same time begin at different ones.
int next_free_port()
{
    constexpr int first = 12000;
    constexpr int count = 20000;
    static int tried = getpid() * 61;
    for (int i = 0; i < count; i++) {
        const int port = first + tried++ % count;
        if (is_free(port)) {
            return port;
        }
    }
    throw std::runtime_error("no port is free");
}

std::string text_of(const redisReply &reply)
{
    switch (reply.type) {
    case REDIS_REPLY_NIL:
        return "(nil)";
    case REDIS_REPLY_INTEGER:
        return std::to_string(reply.integer);
    case REDIS_REPLY_ERROR:
        return "(error) " + std::string(reply.str, reply.len);
    case REDIS_REPLY_ARRAY: {
        std::string text;
        for (size_t i = 0; i < reply.elements; i++) {
            text += text_of(*reply.element[i]) + "\n";
        }
        return text;
    }
    default:
        return {reply.str, reply.len};
    }
}

std::string ask(redisContext &context, const std::vector<std::string> &command)
{
    std::vector<const char *> texts;
    std::vector<size_t> lengths;
    for (const std::string &argument : command) {
        texts.push_back(argument.data());
        lengths.push_back(argument.size());
    }
    const std::unique_ptr<redisReply, FreeReply> reply(static_cast<redisReply *>(
        redisCommandArgv(&context, static_cast<int>(command.size()), texts.data(), lengths.data())));
    return reply == nullptr ? "(no reply)" : text_of(*reply);
}

// The value after a name in a list of names and values, one in each line.
std::string value_in(const std::string &lines, const std::string &value_name)
{
    const size_t at = ("\n" + lines).find("\n" + value_name + "\n");
    if (at == std::string::npos) {
        return "";
    }
    const size_t begin = at + value_name.size() + 1;
    return lines.substr(begin, lines.find('\n', begin) - begin);
}

} // namespace

bool eventually(const std::function<bool()> &condition, std::chrono::milliseconds limit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        (void)poll(nullptr, 0, 10);
    }
    return true;
}

// A server or sentinel: its configuration, its port, its process.
class SentinelGroup::Process
{
public:
    // `settings` are lines of configuration. Takes another port as long as its own turns out to be taken.
    Process(const std::string &folder, const std::string &kind, const std::string &settings,
            const std::string &password)
        : kind_(kind), settings_(settings), password_(password)
    {
        for (int attempt = 0; attempt < 20; attempt++) {
            port_ = next_free_port();
            folder_ = folder + "/" + kind + "-" + std::to_string(port_);
            std::filesystem::create_directory(folder_);
            if (start()) {
                return;
            }
        }
        throw std::runtime_error("a " + kind + " does not come up in " + folder_);
    }
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;
    ~Process() { kill(); }

    int port() const { return port_; }
    std::string address() const { return std::string(loopback) + ":" + std::to_string(port_); }
    // Returns false when it ends, or another one answers in its place.
    bool start();
    void kill();
    void freeze();
    void thaw() { (void)::kill(pid_, SIGCONT); }
    std::string run(const std::vector<std::string> &command);

private:
    [[noreturn]] void become() const;
    bool has_ended();

    std::string kind_;
    std::string settings_;
    std::string password_;
    std::string folder_;
    int port_ = 0;
    pid_t pid_ = -1;
};

bool SentinelGroup::Process::start()
{
    std::ofstream(folder_ + "/conf") << "port " << port_ << "\nbind " << loopback << "\ndir " << folder_
                                     << "\nlogfile " << folder_ << "/log\n"
                                     << settings_;
    pid_ = fork();
    if (pid_ == 0) {
        become();
    }
    const std::string own = "process_id:" + std::to_string(pid_) + "\r\n";
    return eventually([&] {
               return has_ended() || run({"INFO", "server"}).find(own) != std::string::npos;
           }) &&
           pid_ > 0;
}

void SentinelGroup::Process::become() const
{
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL); // should the test itself be killed
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    (void)dup2(null, STDIN_FILENO);
    (void)dup2(null, STDOUT_FILENO);
    (void)dup2(null, STDERR_FILENO);
    const std::string conf = folder_ + "/conf";
    (void)execl(REDIS_SERVER_PATH, "redis-server", conf.c_str(), kind_ == "sentinel" ? "--sentinel" : nullptr,
                static_cast<char *>(nullptr));
    _exit(127);
}

bool SentinelGroup::Process::has_ended()
{
    if (pid_ > 0 && waitpid(pid_, nullptr, WNOHANG) == pid_) {
        pid_ = -1;
    }
    return pid_ <= 0;
}

void SentinelGroup::Process::kill()
{
    if (pid_ > 0) {
        (void)::kill(pid_, SIGKILL);
        (void)waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
}

void SentinelGroup::Process::freeze()
{
    (void)::kill(pid_, SIGSTOP);
    int status = 0;
    (void)waitpid(pid_, &status, WUNTRACED);
}

std::string SentinelGroup::Process::run(const std::vector<std::string> &command)
{
    const std::unique_ptr<redisContext, FreeContext> context(
        redisConnectWithTimeout(loopback, port_, patience));
    if (context == nullptr || context->err != 0) {
        return "(no reply)";
    }
    (void)redisSetTimeout(context.get(), patience);
    if (!password_.empty()) {
        (void)ask(*context, {"AUTH", password_});
    }
    return ask(*context, command);
}

SentinelGroup::SentinelGroup() : SentinelGroup(Options()) {}

SentinelGroup::SentinelGroup(const Options &options)
    : folder_(make_folder()), sentinel_password_(options.sentinel_password)
{
    for (size_t i = 0; i < options.replicas + 1; i++) {
        add_server();
    }
    for (size_t i = 0; i < options.sentinels; i++) {
        add_sentinel(options);
    }
    wait_until_acquainted(options);
}

SentinelGroup::~SentinelGroup()
{
    servers_.clear();
    sentinels_.clear();
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

void SentinelGroup::add_server()
{
    std::string settings = "databases 64\nsave \"\"\nappendonly no\nrepl-diskless-sync-delay 0\n";
    if (!servers_.empty()) {
        settings += std::string("replicaof ") + loopback + " " + std::to_string(server_port(0)) + "\n";
    }
    servers_.push_back(std::make_unique<Process>(folder_, "server", settings, ""));
}

void SentinelGroup::add_sentinel(const Options &options)
{
    const std::string group = std::string(" ") + name + " ";
    const std::string quorum = std::to_string(options.sentinels / 2 + 1);
    std::string settings = "sentinel monitor" + group + loopback + " " + std::to_string(server_port(0)) +
                           " " + quorum + "\nsentinel down-after-milliseconds" + group +
                           std::to_string(options.down_after.count()) + "\nsentinel failover-timeout" +
                           group + std::to_string(options.failover_timeout.count()) +
                           "\nsentinel parallel-syncs" + group + "2\n";
    if (!options.sentinel_password.empty()) {
        settings += "requirepass " + options.sentinel_password + "\nsentinel sentinel-pass " +
                    options.sentinel_password + "\n";
    }
    for (const std::string &user : options.sentinel_users) {
        settings += "user " + user + "\n";
    }
    sentinels_.push_back(std::make_unique<Process>(folder_, "sentinel", settings, options.sentinel_password));
}

void SentinelGroup::wait_until_acquainted(const Options &options)
{
    const std::string replicas = std::to_string(options.replicas);
    const std::string others = std::to_string(options.sentinels - 1);
    for (size_t i = 0; i < options.sentinels; i++) {
        const bool known = eventually([&] {
            const std::string master = run_sentinel(i, {"SENTINEL", "MASTER", name});
            const bool sees_master = value_in(master, "flags") == "master" && value_in(master, "runid") != "";
            // That sentinels hear of each other takes seconds; without a replica there is nothing to agree
            // on.
            return sees_master &&
                   (options.replicas == 0 || (value_in(master, "num-slaves") == replicas &&
                                              value_in(master, "num-other-sentinels") == others));
        });
        if (!known) {
            throw std::runtime_error("the group does not get acquainted in " + folder_);
        }
    }
}

std::string SentinelGroup::endpoint() const
{
    std::string text = std::string("sentinel:") + name;
    for (size_t i = 0; i < sentinels_.size(); i++) {
        text += (i == 0 ? "@" : ",") + sentinel_address(i);
    }
    return text;
}

std::string SentinelGroup::server_address(size_t server) const
{
    return servers_.at(server)->address();
}

std::string SentinelGroup::sentinel_address(size_t sentinel) const
{
    return sentinels_.at(sentinel)->address();
}

int SentinelGroup::server_port(size_t server) const
{
    return servers_.at(server)->port();
}

std::optional<size_t> SentinelGroup::master()
{
    std::optional<size_t> found;
    for (size_t i = 0; i < servers_.size(); i++) {
        if (run(i, {"ROLE"}).rfind("master\n", 0) == 0) {
            if (found) {
                return std::nullopt;
            }
            found = i;
        }
    }
    return found;
}

void SentinelGroup::kill_server(size_t server)
{
    servers_.at(server)->kill();
}

void SentinelGroup::start_server(size_t server)
{
    if (!servers_.at(server)->start()) {
        throw std::runtime_error("a server does not come back at " + server_address(server));
    }
}

void SentinelGroup::freeze_server(size_t server)
{
    servers_.at(server)->freeze();
}

void SentinelGroup::thaw_server(size_t server)
{
    servers_.at(server)->thaw();
}

void SentinelGroup::kill_sentinel(size_t sentinel)
{
    sentinels_.at(sentinel)->kill();
}

void SentinelGroup::freeze_sentinel(size_t sentinel)
{
    sentinels_.at(sentinel)->freeze();
}

void SentinelGroup::thaw_sentinel(size_t sentinel)
{
    sentinels_.at(sentinel)->thaw();
}

std::string SentinelGroup::run(size_t server, const std::vector<std::string> &command)
{
    return servers_.at(server)->run(command);
}

std::string SentinelGroup::run_sentinel(size_t sentinel, const std::vector<std::string> &command)
{
    return sentinels_.at(sentinel)->run(command);
}

} // namespace store_test
