// Whether the store that answers still holds what the client knows.
//
// A database's data has an identity, a random text that the first client puts there, and revisions that
// only grow. A server that restarted empty has another identity; one that restarted from an older copy, or a
// replica that took over and had not received everything, has smaller revisions. That alone would be blind
// once others have written so much that the revisions are as great again. So the data also holds a list of
// the server runs that served it, each with the revisions that it began with: knowledge is true if no run
// since began below it. Comparing only the server's own process identity was rejected: every restart with all
// data kept would then throw away what is still true.
#ifndef STORE_DATA_SET_H
#define STORE_DATA_SET_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "store/connection/sentinel_view.h"
#include "store/connection/server_info.h"
#include "store/connection/stream.h"

namespace store
{

// The highest revision per record type.
using Revisions = std::map<std::string, uint64_t>;

// A server run: how it is known, and what it began with.
struct Run {
    std::string identity;
    Revisions began_with;
};

class DataSet
{
public:
    struct Answers {
        ServerInfo server;
        std::string id;
        uint64_t present_run = 0;
        std::map<uint64_t, Run> runs; // by number
        std::string library;          // the digest of the functions loaded last
        std::string oddity;           // what is there and should not be; empty when there is no such thing
        Revisions revisions;
    };

    // The commands that ask a server for what matters here.
    std::vector<Command> questions() const;
    // Reads the replies to questions(). Returns false, and says why, when they are no such answers.
    bool read(const std::vector<Reply> &replies, Answers &answers, std::string &why) const;

    bool is_known() const { return known_; }
    const std::string &id() const { return id_; }
    // Whether everything that was learned is in the data of these answers; `with_heard`: what was only heard
    // of, too.
    bool is_same(const Answers &answers, bool with_heard = true) const;
    // Whether the server of these answers may be the master of its group, of which the sentinels say
    // `master`. Returns false, and says why, when it is not to be believed yet.
    bool is_believable(const Master &master, const Answers &answers, std::string &why) const;
    // From now on the data is known by these answers.
    void adopt(const Answers &answers);
    // The highest that was learned; 0 when none was.
    uint64_t learned(const std::string &type) const;
    // A revision of a record type came from the server. It is the truth about what was heard, too.
    void learn(const std::string &type, uint64_t revision);
    // A revision of a record type came with a change, which any user may publish of his own records.
    void hear(const std::string &type, uint64_t revision);

private:
    bool is_same_run(const Answers &answers, const Revisions &known) const;

    bool known_ = false;
    std::string id_;
    std::string run_;
    uint64_t run_number_ = 0; // 0: it was not registered
    Revisions learned_;
    Revisions heard_;
};

// Whether the run that answers is registered in the data, with the functions of this client.
bool is_registered(const DataSet::Answers &answers);

// The command that registers it, and gives the data an identity unless it has one.
Command registration(const ServerInfo &server);

} // namespace store

#endif
