// cgctl manual: the manual page, for the build. Hidden, since users have the page itself.
#include <ostream>

#include "base/failure.h"
#include "command_line/manual.h"
#include "command_line/verbs.h"

namespace cg
{

void add_manual(CLI::App &app, Session &session)
{
    CLI::App *verb = add_verb(app, session, "manual", "Print the manual page, in mdoc(7)",
                              "  cgctl manual --prose docs/man/cgctl > cgctl.1");
    verb->group("");
    auto prose = std::make_shared<std::string>();
    verb->add_option("--prose", *prose, "The folder with the parts that are written by hand")
        ->required()
        ->type_name("FOLDER");
    verb->callback([prose, &app, &session] {
        session.action = [prose, &app, &session] {
            session.out << manual_page(describe(app), *prose);
            return done;
        };
    });
}

} // namespace cg
