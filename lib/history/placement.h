// Whether the file that is written is still the one at its path.
//
// SQLite writes on into a file that was deleted, moved or cut, and reports nothing. Its own question for that
// (SQLITE_FCNTL_HAS_MOVED) knows neither devices nor sizes.
#ifndef HISTORY_PLACEMENT_H
#define HISTORY_PLACEMENT_H

#include <sys/stat.h>

#include "database.h"

namespace history
{

class Placement
{
public:
    // Of a history that has just been opened for writing, which outlives this.
    explicit Placement(const Database &database);

    // What became of the file, as in "was replaced"; nothing while it is in its place, or where that cannot
    // be determined now.
    [[nodiscard]] std::optional<std::string> displacement();
    // To be called when the writer may have made the file smaller. Throws Error.
    void note_size();
    // Of a displaced file: has the database close without a write to it, and renames the companions that it
    // left at the path, as its log would be taken for the next file's. Returns where the log is now; empty
    // when it is not at the path either. Throws Error.
    [[nodiscard]] std::string leave(Time now) const;

private:
    // Of a file; all 0 where there is none.
    struct Identity {
        dev_t device = 0;
        ino_t inode = 0;

        friend bool operator==(const Identity &, const Identity &) = default;
    };

    [[nodiscard]] std::optional<std::string> file_displacement() const;
    static Identity identity_of(const std::string &path);
    [[nodiscard]] std::optional<int64_t> size() const;
    [[nodiscard]] int64_t bytes() const;
    [[nodiscard]] bool is_cut(int64_t size) const;
    void note_growth();

    const Database &database_;
    std::string log_; // beside the file itself, where a link leads to that
    Identity file_identity_;
    Identity log_identity_;
    int64_t least_ = 0; // bytes that the file has at least
};

} // namespace history

#endif
