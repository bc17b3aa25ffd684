// The one writer's claim to the history.
//
// A file of its own: closing another descriptor of the database would release SQLite's locks.
#ifndef HISTORY_FILE_LOCK_H
#define HISTORY_FILE_LOCK_H

#include <string>

namespace history
{

class FileLock
{
public:
    // Claims the history at `path` until this dies or the process ends. Throws Error when another process has
    // it, or when the lock file cannot be made.
    explicit FileLock(const std::string &path);
    ~FileLock();
    FileLock(const FileLock &) = delete;
    FileLock &operator=(const FileLock &) = delete;

    // Where the lock file of a history is.
    static std::string place(const std::string &path) { return path + ".lock"; }

private:
    int number_;
};

} // namespace history

#endif
