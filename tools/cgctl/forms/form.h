// A form in which the command prints what it found: text for people, JSON for programs.
//
// A verb fetches plain data and hands it to the form that was asked for; so no verb knows what either looks
// like. A new form is one more table, a new datum one more line in each. Functions in a table rather than an
// interface with classes: no form has a state.
#ifndef FORMS_FORM_H
#define FORMS_FORM_H

#include <set>
#include <string>
#include <vector>

#include "base/terminal.h"
#include "cards/event.h"
#include "cards/module_figures.h"
#include "cards/overview.h"
#include "cards/recorded.h"
#include "command_line/named_record.h"
#include "doctor/finding.h"

namespace cg
{

// Where the forms print.
struct Page {
    const Session &session;
    Terminal terminal{};
};

// A change of a record, for `cgctl watch` with record types.
struct RecordChange {
    admission::Time at{};
    const char *command = ""; // "set", "fields" or "deleted"
    FoundRecord found{};      // as it now is, or as it last was
    Json before{};            // null where that is not known
};

// The cards of `cgctl list`.
struct CardList {
    const Overview &overview;
    std::vector<const CardRow *> rows{}; // those that were asked for
    const std::set<std::string> &left_out;
};

// All about one card, for `cgctl show`.
struct CardSheet {
    const Overview &overview;
    const CardRow &row;
    std::vector<FoundRecord> records{};
};

struct Form {
    void (*cards)(const Page &page, const CardList &list);
    void (*card)(const Page &page, const CardSheet &sheet);
    void (*event)(const Page &page, const Event &event);
    // Events are received from now on.
    void (*listening)(const Page &page);
    void (*history)(const Page &page, const Recorded &recorded);
    void (*modules)(const Page &page, const ModuleTable &table);
    // A finding as it is made, and all of them at the end: each form prints at one of the two.
    void (*finding)(const Page &page, const Finding &finding);
    void (*findings)(const Page &page, const std::vector<Finding> &findings);
    void (*record)(const Page &page, const FoundRecord &record);
    void (*records)(const Page &page, const std::vector<FoundRecord> &records,
                    const std::set<std::string> &left_out);
    void (*record_change)(const Page &page, const RecordChange &change);
    // Changes of this type are received from now on.
    void (*subscribed)(const Page &page, const RecordType &type);
};

} // namespace cg

#endif
