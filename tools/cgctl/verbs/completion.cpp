// cgctl completion: the script that lets a shell complete our command lines.
#include <memory>
#include <ostream>

#include "base/failure.h"
#include "command_line/verbs.h"
#include "completion_scripts.h"

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
    verb->callback([shell, &session] {
        session.action = [shell, &session] {
            session.out << (*shell == "bash" ? bash_script : zsh_script);
            return done;
        };
    });
}

} // namespace cg
