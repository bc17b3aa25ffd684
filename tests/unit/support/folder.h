// A temporary folder for tests.
#ifndef SUPPORT_FOLDER_H
#define SUPPORT_FOLDER_H

#include <string>

namespace cg
{

// A temporary folder, removed with all that is in it.
class Folder
{
public:
    // Below $TMPDIR. Throws when it cannot be made.
    Folder();
    ~Folder();
    Folder(const Folder &) = delete;
    Folder &operator=(const Folder &) = delete;
    // Where `name` in it is.
    [[nodiscard]] std::string path(const std::string &name) const { return path_ + '/' + name; }

private:
    std::string path_;
};

} // namespace cg

#endif
