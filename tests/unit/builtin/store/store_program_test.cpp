// Which store server the tests run against.
#include "unit/support/store_program.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "unit/support/folder.h"

namespace store_test
{

namespace
{

// The exit status of a child that becomes the server, with this PATH.
int status_of_server(const std::string &path, const std::vector<std::string> &arguments)
{
    const pid_t child = fork();
    if (child == 0) {
        (void)setenv("PATH", path.c_str(), 1);
        cg::become_store_server(arguments);
        _exit(127);
    }
    int status = -1;
    (void)waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

TEST(StoreProgram, IsTheOneThatPathHas)
{
    const cg::Folder folder;
    const std::string program = folder.path("redis-server");
    std::ofstream(program) << "#!/bin/sh\necho \"$@\" >" << folder.path("arguments") << "\nexit 5\n";
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    EXPECT_EQ(status_of_server(folder.path(""), {"--port", "a b"}), 5);
    std::stringstream arguments;
    arguments << std::ifstream(folder.path("arguments")).rdbuf();
    EXPECT_EQ(arguments.str(), "--port a b\n");
}

TEST(StoreProgram, IsTheOneOfTheBuildWithoutOneInPath)
{
    EXPECT_EQ(status_of_server("/nowhere", {"--version"}), 0);
}

} // namespace store_test
