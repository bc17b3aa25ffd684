// cgctl role: the device's global role, which decides whether the daemon publishes its results.
#include <map>

#include "access/store.h"
#include "admission/card_text.h"
#include "base/failure.h"
#include "command_line/verbs.h"
#include "p_dev.pb-c.h"
#include "records/record_types.h"

namespace cg
{

namespace
{

const int32_t database = home_of(p_dev__dp_lib_grole__descriptor);

const std::map<std::string, PDev__DmRoleE> roles{{"master", P_DEV__DM_ROLE_E__DM_ROLE_MASTER},
                                                 {"slave", P_DEV__DM_ROLE_E__DM_ROLE_SLAVE},
                                                 {"candidate", P_DEV__DM_ROLE_E__DM_ROLE_CANDIDATE},
                                                 {"none", P_DEV__DM_ROLE_E__DM_ROLE_NONE}};

int print_role(const Session &session)
{
    const PDev__DpLibGrole key = P_DEV__DP_LIB_GROLE__INIT;
    const auto stored = Store(session).read(database, key.base);
    if (!stored) {
        throw Failure(failed, "no role was written yet; `cgctl role master` writes one");
    }
    const auto &record = reinterpret_cast<const PDev__DpLibGrole &>(*stored->message);
    const std::string word = role_word(static_cast<int32_t>(record.my_grole));
    session.line(session.json ? dump(Json{{"role", word}}) : word);
    return done;
}

int write_role(const Session &session, const std::string &role)
{
    PDev__DpLibGrole record = P_DEV__DP_LIB_GROLE__INIT;
    record.my_grole = roles.at(role);
    Store(session).set_field(database, record.base, "my_grole");
    return done;
}

} // namespace

void add_role(CLI::App &app, Session &session)
{
    CLI::App *verb = add_verb(app, session, "role", "Write this device's global role, or print it",
                              "  cgctl role\n"
                              "  cgctl role master");
    auto role = std::make_shared<std::string>();
    verb->add_option("ROLE", *role, "The role to write; without it the role is printed")
        ->check(CLI::IsMember({"master", "slave", "candidate", "none"}));
    verb->callback([role, &session] {
        session.action = [role, &session] {
            return role->empty() ? print_role(session) : write_role(session, *role);
        };
    });
}

} // namespace cg
