// The journal, the scripts, and what a test asks of them.
//
// A journal of text lines instead of structures per call: a whole sequence compares with one EXPECT_EQ, and
// a failure shows both sequences as one would write them down.
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "state.h"

namespace recording
{

namespace
{

vx_global the_context{};
vx_zlog_category the_category{};

std::unique_ptr<State> &state_slot()
{
    static std::unique_ptr<State> slot;
    return slot;
}

// The journal shortens the name of the one function that is longer than what it does.
std::string full_name(const std::string &function)
{
    return function == "vx_thread_add_timer" ? "vx_thread_add_timer_timeval" : function;
}

// "f=1" scripts every call, "f=1,2" the next two.
void apply_scripted_function(const std::string &entry)
{
    const std::size_t equals = entry.find('=');
    if (equals == std::string::npos) {
        return;
    }
    std::vector<int32_t> results;
    std::istringstream numbers(entry.substr(equals + 1));
    for (std::string number; std::getline(numbers, number, ',');) {
        results.push_back(static_cast<int32_t>(std::strtol(number.c_str(), nullptr, 10)));
    }
    if (results.size() == 1) {
        script_always(entry.substr(0, equals), results.front());
    } else {
        script(entry.substr(0, equals), results);
    }
}

void apply_script_of_environment()
{
    const char *text = std::getenv("RECORDING_PLATFORM_SCRIPT");
    std::istringstream entries(text == nullptr ? "" : text);
    for (std::string entry; std::getline(entries, entry, ';');) {
        apply_scripted_function(entry);
    }
}

std::string escaped(const std::string &line)
{
    std::string text;
    for (const char c : line) {
        switch (c) {
        case '\r':
            text += "\\r";
            break;
        case '\n':
            text += "\\n";
            break;
        case '\\':
            text += "\\\\";
            break;
        default:
            text += c;
        }
    }
    return text;
}

// Opened anew for every line: the process may end at any moment, and it may close descriptors.
void append_to_file(const std::string &line)
{
    const char *path = std::getenv("RECORDING_PLATFORM_JOURNAL");
    if (path != nullptr) {
        std::ofstream(path, std::ios::app) << escaped(line) << '\n';
    }
}

} // namespace

State &state()
{
    if (state_slot() == nullptr) {
        state_slot() = std::make_unique<State>();
        apply_script_of_environment();
    }
    return *state_slot();
}

void reset()
{
    state_slot() = std::make_unique<State>();
    apply_script_of_environment();
}

const std::vector<std::string> &journal()
{
    return state().journal;
}

std::vector<std::string> take()
{
    return std::exchange(state().journal, {});
}

void record_line(const std::string &line)
{
    state().journal.push_back(line);
    append_to_file(line);
}

void note(const std::string &line)
{
    record_line(line);
}

void script(const std::string &function, std::vector<int32_t> results)
{
    std::deque<int32_t> &queue = state().results[full_name(function)];
    queue.insert(queue.end(), results.begin(), results.end());
}

void script_always(const std::string &function, int32_t result)
{
    state().constant_results[full_name(function)] = result;
}

void script_action(const std::string &function, std::function<void()> action)
{
    state().actions[full_name(function)].push_back(std::move(action));
}

int32_t take_result(const std::string &function)
{
    State &s = state();
    std::deque<int32_t> &queue = s.results[function];
    if (!queue.empty()) {
        const int32_t result = queue.front();
        queue.pop_front();
        return result;
    }
    const auto constant = s.constant_results.find(function);
    return constant == s.constant_results.end() ? 0 : constant->second;
}

void run_scripted_action(const std::string &function)
{
    std::deque<std::function<void()>> &actions = state().actions[function];
    if (!actions.empty()) {
        const std::function<void()> action = std::move(actions.front());
        actions.pop_front();
        action();
    }
}

int32_t finish_call(const std::string &function)
{
    const int32_t result = take_result(function);
    run_scripted_action(function);
    return result;
}

vx_global_t *context()
{
    return &the_context;
}

vx_zlog_category_t *category()
{
    return &the_category;
}

std::string context_suffix(const vx_global_t *global)
{
    return global == &the_context ? "" : " context=wrong";
}

std::string set_suffix(const char *name, bool is_set)
{
    return is_set ? std::string(" ") + name + "=set" : "";
}

std::string printable(const char *text)
{
    return text == nullptr ? "null" : text;
}

} // namespace recording
