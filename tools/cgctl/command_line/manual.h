// The manual page, put together from the verbs and from texts that are written by hand.
//
// The verbs know their names, arguments and examples; what they mean beyond a line is prose. Each has the
// part that it can keep true.
#ifndef COMMAND_LINE_MANUAL_H
#define COMMAND_LINE_MANUAL_H

#include <string>

#include "command_line/verb_tree.h"

namespace cg
{

// Returns the page in mdoc(7).
//
// prose  the folder with `head.mdoc` (up to the name), `about.mdoc` (begins the description), a file for each
//        verb, called like the verb (card.mdoc; for one below it, where it needs one, module-run.mdoc), and
//        whole sections for the end of the page (manual_sections).
// Throws Failure when a file cannot be read, and when a verb or a file has no counterpart.
std::string manual_page(const Verb &program, const std::string &prose);

} // namespace cg

#endif
