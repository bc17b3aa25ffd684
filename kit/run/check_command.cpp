// A command that examines a card.
#include "run/check_command.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

#include "base/text.h"
#include "base/times.h"
#include "modules/contract.h"
#include "p_dev.pb-c.h"

namespace cg
{

namespace
{

// The reason of a command that did not give one itself.
std::string circumstances(int wait_status, std::optional<double> time_limit_s)
{
    if (time_limit_s) {
        return "no verdict within " + seconds_text(std::chrono::duration<double>(*time_limit_s));
    }
    if (WIFSIGNALED(wait_status)) {
        const int signal_number = WTERMSIG(wait_status);
        const char *name = sigabbrev_np(signal_number);
        return "ended by signal " + std::to_string(signal_number) +
               (name == nullptr ? "" : std::string(" (SIG") + name + ')');
    }
    return "exit status " + std::to_string(WEXITSTATUS(wait_status));
}

bool describes_card(const std::string &variable)
{
    for (const char *name :
         {"CG_MODULE=", "CG_CARD=", "CG_DEVID=", "CG_SLOTID=", "CG_SSLOTID=", "CG_DEV_TYPE=", "CG_NODE_TYPE=",
          "CG_NODEID=", "CG_CARD_NAME=", "CG_SERIAL=", "CG_ONLINE="}) {
        if (variable.starts_with(name)) {
            return true;
        }
    }
    return false;
}

std::vector<std::string> inherited_environment()
{
    std::vector<std::string> variables;
    for (char **place = environ; place != nullptr && *place != nullptr; ++place) {
        if (!describes_card(*place)) {
            variables.emplace_back(*place);
        }
    }
    return variables;
}

// By name; a type without one by its number.
std::string node_type_text(int32_t node_type)
{
    const ProtobufCEnumValue *value =
        protobuf_c_enum_descriptor_get_value(&p_dev__dm_node_type_e__descriptor, node_type);
    return value == nullptr ? std::to_string(node_type) : value->name;
}

// The first line that is not blank; empty when there is none.
std::string first_line(const std::string &text)
{
    for (const std::string &line : split(text, '\n')) {
        const std::size_t last = line.find_last_not_of(" \t\r");
        if (last != std::string::npos) {
            return line.substr(0, last + 1);
        }
    }
    return {};
}

} // namespace

kit::Answer verdict_of(int wait_status, const std::string &output, const std::string &errors,
                       std::optional<double> time_limit_s)
{
    if (!time_limit_s && WIFEXITED(wait_status) && WEXITSTATUS(wait_status) == 0) {
        return {true, ""};
    }
    std::string printed = first_line(output);
    if (printed.empty()) {
        printed = first_line(errors);
    }
    const bool exited_itself = !time_limit_s && WIFEXITED(wait_status);
    std::string reason = exited_itself && !printed.empty() ? "" : circumstances(wait_status, time_limit_s);
    if (!printed.empty()) {
        reason += (reason.empty() ? "" : ": ") + printed;
    }
    return {false, visible(reason, longest_reason)};
}

std::vector<std::string> check_environment(const std::string &module, const kit::Facts &card)
{
    const kit::Request &request = card.request;
    std::vector<std::string> variables = inherited_environment();
    variables.push_back("CG_MODULE=" + module);
    variables.push_back("CG_CARD=" + request.position.text());
    variables.push_back("CG_DEVID=" + std::to_string(request.position.devid));
    variables.push_back("CG_SLOTID=" + std::to_string(request.position.slotid));
    variables.push_back("CG_SSLOTID=" + std::to_string(request.position.sslotid));
    variables.push_back("CG_DEV_TYPE=" + std::to_string(request.type));
    variables.push_back("CG_NODE_TYPE=" + node_type_text(request.node_type));
    variables.push_back("CG_NODEID=" + std::to_string(request.node_id));
    if (card.has_info) {
        variables.push_back("CG_CARD_NAME=" + card.name);
        variables.push_back("CG_SERIAL=" + to_hex(card.serial.data(), card.serial.size()));
        variables.push_back(std::string("CG_ONLINE=") + (card.online ? "1" : "0"));
    }
    return variables;
}

} // namespace cg
