// The commands that a process offers.
//
// A vector and not a map: there are a dozen commands, typed by people, and help shows them in the order in
// which the program's author thought of them.
#include "shell/commands.h"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>
#include <utility>
#include <variant>

#include "log/text.h"

namespace ssat
{
namespace
{

constexpr size_t fixed_run_fields = 3; // "run", module, command

template <size_t... Index>
int32_t call_with(ssat_handler_f handler, const Values &values, std::index_sequence<Index...> /*count*/)
{
    using Typed = int32_t (*)(decltype(static_cast<void>(Index), int32_t{})...);
    // The handler was registered through a cast from just this type.
    const auto typed = reinterpret_cast<Typed>(reinterpret_cast<void (*)()>(handler));
    return typed(values[Index]...);
}

// One for each number of arguments.
template <size_t... Count>
constexpr auto callers_for(std::index_sequence<Count...> /*counts*/)
{
    using Caller = int32_t (*)(ssat_handler_f, const Values &);
    return std::array<Caller, sizeof...(Count)>{[](ssat_handler_f handler, const Values &values) {
        return call_with(handler, values, std::make_index_sequence<Count>{});
    }...};
}

int32_t call(ssat_handler_f handler, const Values &values)
{
    static constexpr auto callers = callers_for(std::make_index_sequence<max_arguments + 1>{});
    return callers.at(values.size())(handler, values);
}

bool can_be_typed(std::string_view name)
{
    return !name.empty() &&
           std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c < '\x7f'; });
}

Fields refusal(std::string_view why, std::string message)
{
    return {std::string(why), std::move(message)};
}

} // namespace

bool CommandTable::add(const std::string &module, const std::string &command,
                       const std::string &args_template, ssat_handler_f handler)
{
    const auto names = parse_template(args_template);
    if (!can_be_typed(module) || !can_be_typed(command) || !names || handler == nullptr) {
        return false;
    }
    Entry entry{module, command, args_template, *names, handler};
    const auto same = std::find_if(entries_.begin(), entries_.end(), [&](const Entry &known) {
        return known.module == module && known.name == command;
    });
    if (same != entries_.end()) {
        *same = std::move(entry);
    } else {
        entries_.push_back(std::move(entry));
    }
    return true;
}

const CommandTable::Entry *CommandTable::find(const std::string &module, const std::string &command) const
{
    const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry &entry) {
        return entry.module == module && entry.name == command;
    });
    return found == entries_.end() ? nullptr : &*found;
}

Fields CommandTable::answer(const Fields &request, const Identity &original_output) const
{
    if (request.size() >= fixed_run_fields && request[0] == "run") {
        return run(request, original_output);
    }
    if (request.size() == 1 && request[0] == "help") {
        return help();
    }
    return refusal(status::bad_request, "the request is neither to run a command nor for help");
}

Fields CommandTable::run(const Fields &request, const Identity &original_output) const
{
    const Entry *entry = find(request[1], request[2]);
    if (entry == nullptr) {
        return refusal(status::unknown_command, "module '" + platform::visible(request[1]) +
                                                    "' has no command '" + platform::visible(request[2]) +
                                                    "'");
    }
    const auto checked = check_arguments(entry->arguments, std::span(request).subspan(fixed_run_fields));
    if (const auto *error = std::get_if<UsageError>(&checked)) {
        return refusal(status::wrong_usage,
                       error->message + "; usage: " + usage(entry->name, entry->arguments));
    }
    // Copied, because a handler may register commands and so move the entries.
    const ssat_handler_f handler = entry->handler;
    OutputLoan loan{original_output};
    const int32_t result = call(handler, std::get<Values>(checked));
    Printed printed = loan.take_back();
    return {std::string(status::ok), std::to_string(result), std::move(printed.text), std::move(printed.at),
            printed.whole ? "whole" : "cut"};
}

Fields CommandTable::help() const
{
    Fields reply{std::string(status::ok)};
    for (const Entry &entry : entries_) {
        reply.insert(reply.end(), {entry.module, entry.name, entry.args_template});
    }
    return reply;
}

} // namespace ssat
