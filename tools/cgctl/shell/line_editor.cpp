// Lines that a person types.
#include "shell/line_editor.h"

#include <histedit.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <utility>

namespace cg
{

namespace
{

constexpr int kept_lines = 500;

struct EndEditor {
    void operator()(EditLine *editor) const noexcept { el_end(editor); }
};
struct EndHistory {
    void operator()(History *history) const noexcept { history_end(history); }
};

} // namespace

struct LineEditor::Parts {
    std::string prompt;
    std::string file;
    Completer completer;
    std::unique_ptr<History, EndHistory> history{history_init()};
    std::unique_ptr<EditLine, EndEditor> editor{el_init("cgctl", stdin, stdout, stderr)};

    static Parts &of(EditLine *editor)
    {
        void *parts = nullptr;
        el_get(editor, EL_CLIENTDATA, &parts);
        return *static_cast<Parts *>(parts);
    }

    static char *show_prompt(EditLine *editor) { return of(editor).prompt.data(); }

    static unsigned char complete(EditLine *editor, int /*key*/)
    {
        try {
            return of(editor).complete_here();
        } catch (...) { // nothing may leave the library's callback
            return CC_ERROR;
        }
    }

    unsigned char complete_here()
    {
        const LineInfo *line = el_line(editor.get());
        const std::string_view before(line->buffer, static_cast<std::size_t>(line->cursor - line->buffer));
        const std::vector<std::string> words = completer(before);
        if (words.empty()) {
            return CC_REFRESH_BEEP;
        }
        const std::size_t blank = before.find_last_of(" \t");
        const std::size_t typed = before.size() - (blank == std::string_view::npos ? 0 : blank + 1);
        std::string more = common_beginning(words).substr(typed);
        if (words.size() == 1 && !words.front().ends_with('=')) {
            more += ' ';
        }
        if (!more.empty()) {
            return el_insertstr(editor.get(), more.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
        }
        std::string choice = "\n";
        for (const std::string &word : words) {
            choice += word + "  ";
        }
        (void)fputs((choice + '\n').c_str(), stdout);
        return CC_REDISPLAY;
    }
};

LineEditor::LineEditor(std::string prompt, std::string history_file, Completer completer)
    : parts_(new Parts{std::move(prompt), std::move(history_file), std::move(completer)})
{
    EditLine *editor = parts_->editor.get();
    History *history = parts_->history.get();
    HistEvent event{};
    ::history(history, &event, H_SETSIZE, kept_lines);
    ::history(history, &event, H_SETUNIQUE, 1);
    if (!parts_->file.empty()) {
        ::history(history, &event, H_LOAD, parts_->file.c_str());
    }
    el_set(editor, EL_CLIENTDATA, parts_.get());
    el_set(editor, EL_PROMPT, Parts::show_prompt);
    el_set(editor, EL_EDITOR, "emacs");
    el_set(editor, EL_SIGNAL, 1); // a signal that ends us leaves the terminal as it was
    el_set(editor, EL_HIST, ::history, history);
    el_set(editor, EL_ADDFN, "complete", "Complete the word before the cursor", Parts::complete);
    el_set(editor, EL_BIND, "^I", "complete", nullptr);
    el_source(editor, nullptr); // the user's own settings, where there are any
}

LineEditor::~LineEditor() = default;

std::optional<std::string> LineEditor::read()
{
    int count = 0;
    const char *typed = el_gets(parts_->editor.get(), &count);
    if (typed == nullptr || count <= 0) {
        return std::nullopt;
    }
    std::string line(typed, static_cast<std::size_t>(count));
    line.erase(line.find_last_not_of("\r\n") + 1);
    if (line.find_first_not_of(" \t") != std::string::npos) {
        HistEvent event{};
        history(parts_->history.get(), &event, H_ENTER, line.c_str());
        if (!parts_->file.empty()) {
            history(parts_->history.get(), &event, H_SAVE, parts_->file.c_str());
        }
    }
    return line;
}

std::string common_beginning(const std::vector<std::string> &words)
{
    std::string common = words.empty() ? "" : words.front();
    for (const std::string &word : words) {
        const auto differs = std::mismatch(common.begin(), common.end(), word.begin(), word.end());
        common.erase(differs.first, common.end());
    }
    return common;
}

std::string history_file(const std::string &name)
{
    const char *state = getenv("XDG_STATE_HOME");
    const char *home = getenv("HOME");
    std::filesystem::path folder;
    if (state != nullptr && *state == '/') {
        folder = state;
    } else if (home != nullptr && *home == '/') {
        folder = std::filesystem::path(home) / ".local" / "state";
    } else {
        return {};
    }
    folder /= "cgctl";
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error || chmod(folder.c_str(), S_IRWXU) != 0) {
        return {};
    }
    return folder / name;
}

} // namespace cg
