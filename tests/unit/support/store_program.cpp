// Which store server tests run; see the header.
#include "unit/support/store_program.h"

#include <unistd.h>

namespace cg
{

void become_store_server(const std::vector<std::string> &arguments)
{
    std::vector<std::string> words{"redis-server"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char *> argv;
    argv.reserve(words.size() + 1);
    for (std::string &word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    (void)execvp(argv[0], argv.data());
    (void)execv(REDIS_SERVER_PATH, argv.data());
}

} // namespace cg
