// cgctl role: the device's global role, which decides whether the daemon publishes its results.
#include <algorithm>
#include <array>

#include "access/store.h"
#include "base/failure.h"
#include "command_line/verbs.h"

namespace cg
{

namespace
{

constexpr std::array<const char *, 4> roles{"master", "slave", "candidate", "none"};
constexpr std::array<const char *, 4> role_values{"DM_ROLE_MASTER", "DM_ROLE_SLAVE", "DM_ROLE_CANDIDATE",
                                                  "DM_ROLE_NONE"};

const RecordType &role_record()
{
    return record_type("p_dev.dp_lib_grole");
}

int print_role(const Session &session)
{
    Store store(session);
    const std::optional<Json> record = store.read(role_record(), role_record().db, Json::object());
    if (!record) {
        throw Failure(failed, "no role was written yet; `cgctl role master` writes one");
    }
    const Json &value = (*record)["my_grole"];
    std::string word = value.is_string() ? value.get<std::string>() : dump(value);
    for (std::size_t i = 0; i < roles.size(); ++i) {
        if (word == role_values.at(i)) {
            word = roles.at(i);
        }
    }
    session.line(session.json ? dump(Json{{"role", word}}) : word);
    return 0;
}

int write_role(const Session &session, const std::string &role)
{
    const auto at = std::find(roles.begin(), roles.end(), role) - roles.begin();
    Store store(session);
    store.set_fields(role_record(), role_record().db,
                     Json{{"my_grole", role_values.at(static_cast<std::size_t>(at))}},
                     {static_cast<int32_t>(field_number(role_record(), "my_grole="))});
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
        ->check(CLI::IsMember(std::vector<std::string>(roles.begin(), roles.end())));
    verb->callback([role, &session] {
        session.action = [role, &session] {
            return role->empty() ? print_role(session) : write_role(session, *role);
        };
    });
}

} // namespace cg
