// The bare loop; see the header.
#include "bare_daemon.h"

#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "measure.h"

namespace bench
{

namespace
{

std::string unescaped(const std::string &word)
{
    std::string text;
    for (size_t i = 0; i < word.size(); i++) {
        if (word[i] == '%') {
            text += static_cast<char>(std::strtol(word.substr(i + 1, 2).c_str(), nullptr, 16));
            i += 2;
        } else {
            text += word[i];
        }
    }
    return text;
}

std::vector<Script::Line> &lines_of(Script::Card &card, const std::string &when)
{
    if (when == "plugged") {
        return card.plugged;
    }
    return when == "passed" ? card.passed : card.unplugged;
}

class BareDaemon
{
public:
    BareDaemon(const std::string &socket, const Script &script, int modules)
        : script_(script), modules_(modules), events_(socket, host)
    {
        for (const int database : {1, 28, 33}) {
            connections_[database] = std::make_unique<Raw>(socket, database);
        }
        (void)events_.run({"SUBSCRIBE", "@chg:1:p_dev.dp_lib_grole"});
        (void)events_.run({"PSUBSCRIBE", "@chg:1:p_dev.card_info:*"});
        (void)events_.run({"PSUBSCRIBE", "@chg:1:p_libpub.app_cg_card_check_ack:*"});
    }

    void handle_next()
    {
        Heard heard;
        if (!read_message(*events_.next(), heard)) {
            return;
        }
        const auto card = script_.slots.find(heard.at.slot);
        if (card == script_.slots.end()) {
            return;
        }
        if (heard.type == "p_dev.card_info") {
            answers_[heard.at.slot] = 0;
            send(heard.command == '3' ? card->second.unplugged : card->second.plugged);
        } else if (heard.command != '3' && ++answers_[heard.at.slot] == modules_) {
            send(card->second.passed);
        }
    }

private:
    void send(const std::vector<Script::Line> &lines)
    {
        for (const Script::Line &line : lines) {
            (void)connections_.at(line.database)->run(line.command);
        }
    }

    const Script &script_;
    int modules_;
    Raw events_;
    std::map<int, std::unique_ptr<Raw>> connections_;
    std::map<int, int> answers_;
};

} // namespace

Script read_script(const std::string &path)
{
    Script script;
    std::ifstream file(path);
    std::string line;
    while (std::getline(file, line)) {
        std::istringstream words(line);
        int slot = 0;
        int database = 0;
        std::string when;
        words >> slot >> when >> database;
        Words command;
        for (std::string word; std::getline(words >> std::ws, word, ' ');) {
            command.push_back(word == "%" ? std::string() : unescaped(word));
        }
        lines_of(script.slots[slot], when).push_back({database, Prepared(command)});
    }
    if (script.slots.empty()) {
        throw std::runtime_error("no script in " + path);
    }
    return script;
}

void run_bare_daemon(const std::string &socket, const Script &script, int modules)
{
    BareDaemon daemon(socket, script, modules);
    for (;;) {
        daemon.handle_next();
    }
}

} // namespace bench
