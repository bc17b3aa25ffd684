// A lock on a module's name.
//
// A lock on a file and not an entry in the store: a module's user there may write its answers and nothing
// else, and what a killed process leaves behind could not be distinguished from what a running one holds. Two
// modules of one name on different hosts of a stack are not noticed; they serve different daemons anyway.
#include "core/name_lock.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "process/lock_holder.h"

namespace kit
{

namespace
{

constexpr const char *if_unused = "; if no module of its owner runs, remove it";
constexpr const char *not_known = "; whether another module has the name is not known";

// Short and the same in every process; it only has to distinguish stores.
std::string digest(const std::string &text)
{
    uint64_t hash = 0xcbf29ce484222325ULL;
    for (const char byte : text) {
        hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3ULL;
    }
    std::array<char, 17> digits{};
    (void)std::snprintf(digits.data(), digits.size(), "%016llx", static_cast<unsigned long long>(hash));
    return digits.data();
}

// Anybody may write in the folder: an existing file is opened and not replaced, and opening never blocks, as
// it would with a pipe in its place. Only the owner may open the file, or anybody could hold its lock.
platform::Descriptor open_lock(const std::string &path)
{
    platform::Descriptor file{open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK)};
    if (!file && errno == ENOENT) {
        file.reset(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    }
    return file;
}

// Empty when the lock can be relied upon: the file is ours, and nobody else may open it.
std::string owner_problem(int file)
{
    struct stat status {
    };
    if (fstat(file, &status) != 0) {
        return strerror(errno);
    }
    if (!S_ISREG(status.st_mode)) {
        return "not a regular file; remove it";
    }
    if (status.st_uid != geteuid()) {
        return "it belongs to user " + std::to_string(status.st_uid) + ", and this is user " +
               std::to_string(geteuid()) + if_unused;
    }
    constexpr mode_t others = 077;
    if ((status.st_mode & others) != 0 && fchmod(file, S_IRUSR | S_IWUSR) != 0) {
        return strerror(errno);
    }
    return {};
}

// Whether the path leads to another file by now, or to none.
bool is_replaced(int file, const std::string &path)
{
    struct stat ours {
    };
    struct stat theirs {
    };
    return fstat(file, &ours) == 0 && (lstat(path.c_str(), &theirs) != 0 || ours.st_dev != theirs.st_dev ||
                                       ours.st_ino != theirs.st_ino);
}

std::string holder_in(int file)
{
    const std::string pid = platform::lock_holder(file);
    return pid.empty() ? "" : " (process " + pid + ')';
}

// The lock's own descriptor may be for reading only.
void note_holder(const std::string &path)
{
    const platform::Descriptor file{open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW)};
    (void)(file && platform::note_lock_holder(file.get()));
}

} // namespace

NameLock::~NameLock()
{
    // Still locked, so that a module that opened it meanwhile sees that it is gone. Not in a child process,
    // and not the file that another module made after ours was removed.
    if (file_ && owner_ == getpid() && !is_replaced(file_.get(), path_)) {
        (void)unlink(path_.c_str());
    }
}

NameLock::Outcome NameLock::lock_file(std::string &why)
{
    file_ = open_lock(path_);
    if (!file_) {
        why = "cannot open the lock file " + path_ + ": " + strerror(errno) +
              (errno == EACCES ? if_unused : "") + not_known;
        return Outcome::unknown;
    }
    if (const std::string problem = owner_problem(file_.get()); !problem.empty()) {
        why = "cannot rely on the lock file " + path_ + ": " + problem + not_known;
        return Outcome::unknown;
    }
    if (flock(file_.get(), LOCK_EX | LOCK_NB) != 0) {
        const bool is_taken = errno == EWOULDBLOCK;
        why = is_taken ? "another module named " + name_ + " runs" + holder_in(file_.get()) + " and holds " +
                             path_ + "; stop it, or use another name"
                       : "cannot lock " + path_ + ": " + strerror(errno);
        return is_taken ? Outcome::taken : Outcome::unknown;
    }
    return Outcome::held;
}

NameLock::Outcome NameLock::acquire(const std::string &folder, const std::string &name,
                                    const std::string &endpoint, std::string &why)
{
    if (folder.empty()) {
        return Outcome::held;
    }
    name_ = name;
    path_ = folder + "/app_cg_kit." + name + '.' + digest(endpoint) + ".lock";
    Outcome outcome = lock_file(why);
    // Its last holder, or somebody by hand, removed it after we opened and before we locked it.
    while (outcome == Outcome::held && is_replaced(file_.get(), path_)) {
        outcome = lock_file(why);
    }
    if (outcome != Outcome::held) {
        file_.reset();
        return outcome;
    }
    owner_ = getpid();
    note_holder(path_);
    return Outcome::held;
}

} // namespace kit
