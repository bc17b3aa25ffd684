// Which modules the daemon asks, as far as the recorder can determine.
//
// To the daemon a folder that it cannot open is one without modules. But the recorder has other rights, and
// may see another folder: from one that it cannot read it concludes nothing, and the list that was read last
// stands.
#ifndef RECORDER_MODULE_LIST_H
#define RECORDER_MODULE_LIST_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace recorder
{

class ModuleList
{
public:
    using Names = std::vector<std::string>;
    using Log = std::function<void(const std::string &)>;

    // Of the modules that this folder registers. Nothing is read yet. `log` is given each line that an
    // operator should know.
    ModuleList(std::string folder, Log log);

    // Reads the folder again. Returns whether the list changed.
    bool read();
    // Uses a list that was remembered, unless one is known. Returns whether it did.
    bool adopt(const Names &names);
    // Reports, once for each list, that the daemon asks modules although the list is empty.
    void report_contradiction();

    // In the folder's order; nothing when it is not known.
    [[nodiscard]] const std::optional<Names> &names() const { return names_; }
    // Whether the last read() could read the folder: a missing one has no modules, and is not worth
    // remembering.
    [[nodiscard]] bool was_read() const { return was_read_; }

private:
    bool use(Names names);
    void report(const std::string &problem, bool missing);

    std::string folder_;
    Log log_;
    std::optional<Names> names_;
    std::string problem_; // of the folder, as reported
    bool was_read_ = false;
    bool reported_contradiction_ = false;
};

} // namespace recorder

#endif
