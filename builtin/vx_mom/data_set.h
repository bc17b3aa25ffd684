// Whether the store that answers is the one that the client knew.
//
// A database's data has an identity, a random text that whoever comes first puts there, and revisions that
// only grow. A server that restarted empty has another identity; one that restarted from an older copy has
// smaller revisions. Both mean that what a user believes may be false. Comparing only the server's own
// process identity was rejected: every restart with all data kept would then throw away what is still true.
#ifndef VX_MOM_DATA_SET_H
#define VX_MOM_DATA_SET_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "link.h"

namespace vx_mom
{

class DataSet
{
public:
    // The commands that ask a server for its data's identity and the revisions that matter here.
    std::vector<Command> questions() const;
    struct Answers {
        std::string id;
        std::map<std::string, uint64_t> revisions;
    };
    // Reads the replies to questions(). Returns false when they are no such answers.
    bool read(const std::vector<Reply> &replies, Answers &answers) const;

    bool is_known() const { return known_; }
    const std::string &id() const { return id_; }
    // Whether these are the answers of the data that is known.
    bool is_same(const Answers &answers) const;
    // From now on the data is known by these answers.
    void adopt(const Answers &answers);
    // A revision of a record type was seen.
    void learn(const std::string &type, uint64_t revision);

private:
    bool known_ = false;
    std::string id_;
    std::map<std::string, uint64_t> revisions_; // the highest seen, per record type
};

// The command that gives data an identity, a random one, unless it has one.
Command name_data_set();

} // namespace vx_mom

#endif
