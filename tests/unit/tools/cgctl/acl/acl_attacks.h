// What a hostile module tries, one attempt at a time.
#ifndef CGCTL_ACL_ATTACKS_H
#define CGCTL_ACL_ATTACKS_H

#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

#include "acl_fixture.h"

namespace cg
{

// The module is m1, the other one m2.
extern const std::string ack;
extern const std::string own;
extern const std::string other;
extern const std::string counter;
extern const std::string ack_index;
extern const std::string prefix;

// What an attempt shows when somebody makes it who may do everything.
enum class Control { works, works_for_nobody };

struct Attempt {
    std::string name;
    std::vector<Command> steps;
    int database = 1;
    Control control = Control::works;
};

using Attempts = std::vector<Attempt>;

void PrintTo(const Attempt &attempt, std::ostream *out);

// The call of a function of the store's library.
Command call(const std::string &function, const std::vector<std::string> &keys,
             const std::vector<std::string> &arguments);

// The call that writes a record, which may publish on channels of another name.
Command write_of(const std::string &key, const std::string &channels = prefix);

// A record of each type that is not the module's, with its database.
std::vector<std::pair<int, std::string>> foreign_records();

// "<dump>" stands for another module's answer as the server dumps it, "<sha>" and "<sha_ro>" for scripts that
// the server knows.
struct Assault {
    std::string name;
    Attempts attempts;
};

// By what they are aimed at.
std::vector<Assault> assaults();

} // namespace cg

#endif
