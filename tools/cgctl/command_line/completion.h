// What may stand at the end of a command line that is being typed, read off the parser's verbs.
//
// The shells ask at each press of the key (`cgctl complete`): a script made from the verbs would be a second
// parser in each shell's language.
#ifndef COMMAND_LINE_COMPLETION_H
#define COMMAND_LINE_COMPLETION_H

#include <string>
#include <vector>

#include "command_line/verb_tree.h"

namespace cg
{

struct Candidate {
    std::string word{};
    std::string description{}; // may be empty
};

struct Completion {
    std::vector<Candidate> words{}; // verbs, options, or the values of a fixed set
    std::string kind{};             // without words: a name of known_kinds(), "--" for another program's
                                    // command line, or anything else for nothing
    bool is_list = false;           // several of the words may stand in one, with commas
    std::string before{};           // the part of the last word that stays: "--state=", "waiting,"
    std::string about{};            // the first argument without a name: a record type, a debug command
    std::string endpoint{};         // as the line says, or empty
    std::string socket{};
};

// words  the line without the program's name, up to the cursor; the last is the one that is being typed, and
// may be
//        empty. What they begin with is for the caller to compare.
Completion completion_of(const Verb &program, const std::vector<std::string> &words);

} // namespace cg

#endif
