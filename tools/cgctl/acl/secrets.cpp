// Files of credentials, one for each user.
//
// A file is written whole under a name of its own and then linked to its right one, which fails when that
// exists: so a password that is in use is never replaced, and nobody finds half a file.
#include "acl/secrets.h"

#include <fcntl.h>
#include <sha2.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>

#include "base/failure.h"
#include "base/text.h"
#include "store/connection/endpoint.h"

namespace cg
{

namespace
{

constexpr std::size_t secret_size = 32;
constexpr mode_t owner_only = 0600;

[[noreturn]] void fail(const std::string &path, const std::string &what)
{
    throw Failure(failed, visible(path) + ": " + what);
}

std::string random_secret()
{
    std::array<uint8_t, secret_size> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        throw Failure(failed, std::string("no random numbers: ") + std::strerror(errno));
    }
    return to_hex(bytes.data(), bytes.size());
}

// A new file that disappears with this object; link_to() gives it a name that stays.
class NewFile
{
public:
    explicit NewFile(std::string path) : path_(std::move(path))
    {
        fd_ = mkostemp(path_.data(), O_CLOEXEC);
        if (fd_ < 0) {
            fail(path_, std::string("cannot be made: ") + std::strerror(errno));
        }
    }
    NewFile(const NewFile &) = delete;
    NewFile &operator=(const NewFile &) = delete;
    ~NewFile()
    {
        (void)close(fd_);
        (void)unlink(path_.c_str());
    }

    void write_all(const std::string &text) const
    {
        const bool is_written = write(fd_, text.data(), text.size()) == static_cast<ssize_t>(text.size());
        if (!is_written || fchmod(fd_, owner_only) != 0 || fsync(fd_) != 0) {
            fail(path_, std::string("cannot be written: ") + std::strerror(errno));
        }
    }

    // False when there is something of that name.
    [[nodiscard]] bool link_to(const std::string &path) const
    {
        if (link(path_.c_str(), path.c_str()) == 0) {
            return true;
        }
        if (errno != EEXIST) {
            fail(path, std::string("cannot be made: ") + std::strerror(errno));
        }
        return false;
    }

private:
    std::string path_;
    int fd_ = -1;
};

} // namespace

std::string secret_path(const std::string &folder, const std::string &user)
{
    return folder + '/' + user;
}

std::string secret_digest(const std::string &folder, const std::string &user)
{
    const std::string path = secret_path(folder, user);
    struct stat status {
    };
    if (lstat(path.c_str(), &status) != 0 && errno == ENOENT) {
        fail(path, "there is no such file; --create makes the missing ones");
    }
    std::string why;
    const std::optional<store::Credentials> credentials = store::read_credentials(path, why);
    if (!credentials) {
        throw Failure(failed, visible(why));
    }
    if (credentials->user != user || credentials->password.empty()) {
        fail(path, "these are not the credentials of " + visible(user) + "; the lines must be 'user " +
                       visible(user) + "' and 'password SECRET'");
    }
    return sha256_hex(credentials->password);
}

bool create_secret(const std::string &folder, const std::string &user)
{
    const std::string path = secret_path(folder, user);
    struct stat status {
    };
    if (lstat(path.c_str(), &status) == 0) {
        return false;
    }
    if (stat(folder.c_str(), &status) != 0) {
        fail(folder, std::string(std::strerror(errno)) + "; `install -d -m 0711 " + shell_word(folder) +
                         "` makes the folder");
    }
    const NewFile file(folder + "/.new-XXXXXX");
    file.write_all("user " + user + "\npassword " + random_secret() + "\n");
    return file.link_to(path);
}

std::string sha256_hex(std::string_view bytes)
{
    SHA2_CTX context;
    std::array<uint8_t, SHA256_DIGEST_LENGTH> digest{};
    SHA256Init(&context);
    SHA256Update(&context, reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    SHA256Final(digest.data(), &context);
    return to_hex(digest.data(), digest.size());
}

} // namespace cg
