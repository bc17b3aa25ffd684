// The lock on a module's name, with real files.
#include "core/name_lock.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>

namespace kit_test
{

namespace
{

namespace fs = std::filesystem;
using Outcome = kit::NameLock::Outcome;

class NameLock : public testing::Test
{
protected:
    NameLock()
    {
        std::string path = (fs::temp_directory_path() / "lock-XXXXXX").string();
        folder_ = mkdtemp(path.data());
    }
    ~NameLock() override { fs::remove_all(folder_); }

    Outcome acquire(kit::NameLock &lock, const std::string &name = "volt",
                    const std::string &store = "unix:/a")
    {
        why_.clear();
        return lock.acquire(folder_.string(), name, store, why_);
    }
    // The one lock file.
    [[nodiscard]] fs::path file() const
    {
        const fs::directory_iterator first(folder_);
        EXPECT_EQ(std::distance(fs::directory_iterator(folder_), {}), 1);
        return first == fs::directory_iterator() ? fs::path() : first->path();
    }
    // Where the lock file of "volt" will be.
    fs::path future_file()
    {
        kit::NameLock lock;
        EXPECT_EQ(acquire(lock), Outcome::held);
        return file();
    }

    fs::path folder_;
    std::string why_;
};

} // namespace

TEST_F(NameLock, ANameIsHeldOnceForEachStore)
{
    std::optional<kit::NameLock> first(std::in_place);
    kit::NameLock second;
    EXPECT_EQ(acquire(*first), Outcome::held);
    EXPECT_EQ(why_, "");
    EXPECT_EQ(acquire(second), Outcome::taken);
    EXPECT_EQ(why_, "another module named volt runs (process " + std::to_string(getpid()) + ") and holds " +
                        file().string() + "; stop it, or use another name");
    EXPECT_EQ(acquire(second, "amp"), Outcome::held);
    kit::NameLock third;
    EXPECT_EQ(acquire(third, "volt", "unix:/b"), Outcome::held);
    first.reset();
    kit::NameLock fourth;
    EXPECT_EQ(acquire(fourth), Outcome::held);
}

TEST_F(NameLock, TheFileIsNamedAfterNameAndStore)
{
    kit::NameLock lock;
    EXPECT_EQ(acquire(lock), Outcome::held);
    EXPECT_EQ(file().filename(), "app_cg_kit.volt.ae710420c6e48e27.lock") << "modules of two versions meet";
}

TEST_F(NameLock, WithoutAFolderThereIsNoLock)
{
    kit::NameLock lock;
    EXPECT_EQ(lock.acquire("", "volt", "unix:/a", why_), Outcome::held);
    EXPECT_TRUE(fs::is_empty(folder_));
}

TEST_F(NameLock, AFolderThatIsMissingIsNotKnown)
{
    kit::NameLock lock;
    EXPECT_EQ(lock.acquire("/nowhere", "volt", "unix:/a", why_), Outcome::unknown);
    EXPECT_EQ(why_.find("cannot open the lock file /nowhere/app_cg_kit.volt."), 0U) << why_;
    EXPECT_NE(why_.find(": No such file or directory; whether another module has the name is not known"),
              std::string::npos)
        << why_;
}

// A module that may open the file could hold its lock, and keep another from starting.
TEST_F(NameLock, TheFileIsItsOwnersAloneAndGoesWithTheLock)
{
    fs::path path;
    {
        kit::NameLock lock;
        EXPECT_EQ(acquire(lock), Outcome::held);
        path = file();
        EXPECT_EQ(fs::status(path).permissions(), fs::perms(0600));
        std::ifstream content(path);
        pid_t pid = 0;
        content >> pid;
        EXPECT_EQ(pid, getpid());
    }
    EXPECT_FALSE(fs::exists(path));
    std::ofstream(path) << "a longer text than any process id";
    fs::permissions(path, fs::perms(0644));
    kit::NameLock lock;
    EXPECT_EQ(acquire(lock), Outcome::held);
    EXPECT_EQ(fs::status(path).permissions(), fs::perms(0600));
    EXPECT_EQ(fs::file_size(path), std::to_string(getpid()).size() + 1);
}

TEST_F(NameLock, WhoHoldsItIsNotSaidWhenTheFileDoesNotSay)
{
    kit::NameLock first;
    EXPECT_EQ(acquire(first), Outcome::held);
    for (const char *content : {"", "x", "x17"}) {
        std::ofstream(file()) << content;
        kit::NameLock second;
        EXPECT_EQ(acquire(second), Outcome::taken);
        EXPECT_EQ(why_.find("another module named volt runs and holds"), 0U) << why_;
    }
    std::ofstream(file()) << "17x";
    kit::NameLock second;
    EXPECT_EQ(acquire(second), Outcome::taken);
    EXPECT_EQ(why_.find("another module named volt runs (process 17) and holds"), 0U) << why_;
}

TEST_F(NameLock, APipeInItsPlaceBlocksNobody)
{
    const fs::path path = future_file();
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    {
        kit::NameLock lock;
        EXPECT_EQ(acquire(lock), Outcome::unknown);
        EXPECT_NE(why_.find(": not a regular file; remove it; whether"), std::string::npos) << why_;
    }
    EXPECT_TRUE(fs::exists(path)) << "it is not ours";
}

TEST_F(NameLock, ALinkInItsPlaceIsNotFollowed)
{
    const fs::path path = future_file();
    fs::create_symlink("/etc/passwd", path);
    kit::NameLock lock;
    EXPECT_EQ(acquire(lock), Outcome::unknown);
    EXPECT_EQ(why_.find("cannot open the lock file"), 0U) << why_;
}

TEST_F(NameLock, AFileThatIsAnothersByNowStays)
{
    fs::path path;
    {
        kit::NameLock lock;
        EXPECT_EQ(acquire(lock), Outcome::held);
        path = file();
        fs::remove(path);
        std::ofstream(path) << "";
    }
    EXPECT_TRUE(fs::exists(path));
}

TEST_F(NameLock, AnEndOfAChildProcessReleasesNothing)
{
    std::optional<kit::NameLock> lock(std::in_place);
    EXPECT_EQ(acquire(*lock), Outcome::held);
    const fs::path path = file();
    const pid_t child = fork();
    if (child == 0) {
        lock.reset();
        _exit(0);
    }
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_TRUE(fs::exists(path));
    kit::NameLock second;
    EXPECT_EQ(acquire(second), Outcome::taken);
}

TEST_F(NameLock, AFileOfAnotherUserIsNotKnown)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give a file to another user";
    }
    const fs::path path = future_file();
    std::ofstream(path) << "";
    ASSERT_EQ(chown(path.c_str(), 4711, 4711), 0);
    {
        kit::NameLock lock;
        EXPECT_EQ(acquire(lock), Outcome::unknown);
        EXPECT_EQ(why_, "cannot rely on the lock file " + path.string() +
                            ": it belongs to user 4711, and this is user 0; if no module of its owner runs, "
                            "remove it; whether another module has the name is not known");
    }
    EXPECT_TRUE(fs::exists(path)) << "it is another's";
}

} // namespace kit_test
