// A history in a folder of its own.
#include "history_fixture.h"

#include <sys/wait.h>
#include <unistd.h>

namespace history
{

namespace
{

constexpr uid_t nobody = 65534;

// Runs `body` in a child process, as a user without rights when we are root. Returns its exit status, or 128
// and the signal.
int in_child(const std::function<int()> &body)
{
    const pid_t pid = fork();
    if (pid == 0) {
        const bool stripped = geteuid() != 0 || (setgid(nobody) == 0 && setuid(nobody) == 0);
        _exit(stripped ? body() : 100);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace

Decision decision_at(Time decided_at, const Position &position)
{
    Decision decision;
    decision.card = {position, "fan", "0a0b", 3, 17, 259, 1259, true};
    decision.outcome = Outcome::passed;
    decision.admitted = true;
    decision.requested_at = decided_at - 2s;
    decision.decided_at = decided_at;
    decision.decider = "m2";
    decision.answers = {{"m1", 0, "", decided_at - 1s, true, 1000ms},
                        {"m2", 0, "", decided_at, true, 2000ms}};
    decision.role = 1;
    return decision;
}

std::string message_of(const std::function<void()> &action)
{
    try {
        action();
    } catch (const Error &error) {
        return error.what();
    }
    return "nothing was thrown";
}

HistoryTest::HistoryTest()
{
    std::string name = testing::TempDir() + "history-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("mkdtemp " + name);
    }
    folder_ = name;
}

HistoryTest::~HistoryTest()
{
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

std::vector<std::string> HistoryTest::names() const
{
    std::vector<std::string> found;
    for (const auto &entry : std::filesystem::directory_iterator(folder_)) {
        found.push_back(entry.path().filename());
    }
    return found;
}

void HistoryTest::open_to_others() const
{
    namespace fs = std::filesystem;
    fs::permissions(folder_, fs::perms::owner_all | fs::perms::others_read | fs::perms::others_exec);
    for (const auto &entry : fs::directory_iterator(folder_)) {
        fs::permissions(entry.path(),
                        fs::perms::owner_read | fs::perms::owner_write | fs::perms::others_read);
    }
}

int HistoryTest::decisions_seen_by_others() const
{
    return in_child([this] {
        try {
            return static_cast<int>(Reader(path()).decisions().size());
        } catch (const Error &error) {
            fprintf(stderr, "%s\n", error.what());
            return 101;
        }
    });
}

} // namespace history
