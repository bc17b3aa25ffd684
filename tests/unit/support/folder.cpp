// A temporary folder for tests; see the header.
#include "unit/support/folder.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace cg
{

Folder::Folder()
{
    const char *base = getenv("TMPDIR");
    path_ = std::string(base == nullptr ? "/tmp" : base) + "/app_cg-XXXXXX";
    if (mkdtemp(path_.data()) == nullptr) {
        throw std::runtime_error("mkdtemp " + path_ + ": " + std::strerror(errno));
    }
}

Folder::~Folder()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

} // namespace cg
