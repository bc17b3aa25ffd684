// cgctl completion: the script that lets a shell complete our command lines.
#include "command_line/completion.h"

#include <ostream>

#include "base/failure.h"
#include "command_line/verbs.h"

namespace cg
{

void add_completion(CLI::App &app, Session &session)
{
    CLI::App *verb =
        add_verb(app, session, "completion", "Print a script that completes command lines in a shell",
                 "  cgctl completion bash > /usr/share/bash-completion/completions/cgctl\n"
                 "  cgctl completion zsh > /usr/share/zsh/vendor-completions/_cgctl");
    auto shell = std::make_shared<std::string>();
    verb->add_option("SHELL", *shell, "The shell that the script is for")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh"}));
    verb->callback([shell, &app, &session] {
        session.action = [shell, &app, &session] {
            const Verb program = describe(app);
            session.out << (*shell == "bash" ? bash_completion(program) : zsh_completion(program));
            return done;
        };
    });
}

} // namespace cg
