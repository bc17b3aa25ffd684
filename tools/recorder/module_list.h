// Which modules the daemon asks, as far as the recorder can determine.
//
// The daemon reads the modules' folder when it starts, and when its store returns. What the folder has when
// the recorder reads it is the daemon's list for certain when the daemon has just begun to write, or when an
// earlier life of it had the same list: then nothing has changed in between. That list stays the one of this
// life, whatever becomes of the folder, and the history remembers whose it is.
//
// To the daemon a folder that it cannot open is one without modules. But the recorder has other rights, and
// may see another folder: from one that it cannot read it concludes nothing, and the list that was read last
// stands.
#ifndef RECORDER_MODULE_LIST_H
#define RECORDER_MODULE_LIST_H

#include <functional>
#include <optional>
#include <string>

#include "history/history.h"

namespace recorder
{

class ModuleList
{
public:
    using Log = std::function<void(const std::string &)>;

    // Of the modules that this folder registers. Nothing is read yet. `log` is given each line that an
    // operator should know.
    ModuleList(std::string folder, Log log);

    // Reads the folder again, since the daemon may have done so.
    void read();
    // Reads the folder for this instance of the daemon, unless the list is its own already. `started`: it has
    // just begun to write.
    void read_for(const std::string &daemon, bool started);
    // Uses a list that was remembered where none is known, or where it is for certain that of the daemon that
    // was heard of (empty: of none yet). Where both lists are the same it is certain, whichever daemon that
    // is.
    void adopt(const history::Modules &remembered, const std::string &daemon);
    // Reports, once for each list, that the daemon asks modules although the list is empty.
    void report_contradiction();

    // With the instance whose list that is for certain; nothing when it is not known.
    [[nodiscard]] const std::optional<history::Modules> &list() const { return list_; }
    // Whether the last read() could read the folder: a missing one has no modules, and is not worth
    // remembering.
    [[nodiscard]] bool was_read() const { return was_read_; }

private:
    void report(const std::string &problem, bool missing);

    std::string folder_;
    Log log_;
    std::optional<history::Modules> list_;
    std::string problem_; // of the folder, as reported
    bool was_read_ = false;
    bool reported_contradiction_ = false;
};

} // namespace recorder

#endif
