// One card under examination.
#include "check_job.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <sstream>

#include "text.h"

namespace cgctl
{

namespace
{

constexpr std::size_t longest_reason = 255; // bytes; the daemon keeps 256 with the terminator

std::string seconds_text(double seconds)
{
    std::ostringstream text;
    text << seconds;
    return text.str();
}

// Why a command that did not say so itself denied the card.
std::string circumstances(int wait_status, std::optional<double> time_limit_s)
{
    if (time_limit_s) {
        return "no verdict within " + seconds_text(*time_limit_s) + " s";
    }
    if (WIFSIGNALED(wait_status)) {
        const int signal_number = WTERMSIG(wait_status);
        const char *name = sigabbrev_np(signal_number);
        return "ended by signal " + std::to_string(signal_number) +
               (name == nullptr ? "" : std::string(" (SIG") + name + ')');
    }
    return "exit status " + std::to_string(WEXITSTATUS(wait_status));
}

bool is_ours(const std::string &variable)
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
        if (!is_ours(*place)) {
            variables.emplace_back(*place);
        }
    }
    return variables;
}

std::string value_text(const Json &value)
{
    return value.is_string() ? value.get<std::string>() : dump(value);
}

} // namespace

bool is_same_card(const std::optional<Json> &one, const std::optional<Json> &other)
{
    if (!one || !other) {
        return one.has_value() == other.has_value();
    }
    return one->at("name") == other->at("name") && one->at("serial") == other->at("serial");
}

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

Verdict verdict_of(int wait_status, const std::string &output, const std::string &errors,
                   std::optional<double> time_limit_s)
{
    if (!time_limit_s && WIFEXITED(wait_status) && WEXITSTATUS(wait_status) == 0) {
        return {true, ""};
    }
    std::string said = first_line(output);
    if (said.empty()) {
        said = first_line(errors);
    }
    const bool of_its_own = !time_limit_s && WIFEXITED(wait_status);
    std::string reason = of_its_own && !said.empty() ? "" : circumstances(wait_status, time_limit_s);
    if (!said.empty()) {
        reason += (reason.empty() ? "" : ": ") + said;
    }
    return {false, visible(reason, longest_reason)};
}

std::vector<std::string> check_environment(const std::string &module, const Json &request,
                                           const std::optional<Json> &info)
{
    const Position position = position_in(request["index"]);
    std::vector<std::string> variables = inherited_environment();
    variables.push_back("CG_MODULE=" + module);
    variables.push_back("CG_CARD=" + position.text());
    variables.push_back("CG_DEVID=" + std::to_string(position.devid));
    variables.push_back("CG_SLOTID=" + std::to_string(position.slotid));
    variables.push_back("CG_SSLOTID=" + std::to_string(position.sslotid));
    variables.push_back("CG_DEV_TYPE=" + value_text(request["type"]));
    variables.push_back("CG_NODE_TYPE=" + value_text(request["node_type"]));
    variables.push_back("CG_NODEID=" + value_text(request["card_nodeid"]));
    if (info) {
        variables.push_back("CG_CARD_NAME=" + value_text((*info)["name"]));
        variables.push_back("CG_SERIAL=" + value_text((*info)["serial"]));
        variables.push_back(std::string("CG_ONLINE=") + ((*info)["is_online"] == true ? "1" : "0"));
    }
    return variables;
}

} // namespace cgctl
