// What a store server or a sentinel answers about itself. A server of another kind, or somebody in its place,
// answers anything; none of it may bring the client down or be taken for more than it is.
//
// Input: a reply on each line: `$text`, `-error`, `_` for nothing, `*` and parts joined by `|` for a list of
// texts. (Bytes of the wire are another target's: it would take long to get through to here with them.)
#include <algorithm>

#include "store/connection/sentinel_view.h"
#include "store/data_set.h"
#include "wire_reader.h"

#include "fuzz.h"

namespace
{

using fuzz::require;
using store::DataSet;
using store::Reply;

std::string bulk(const std::string &text)
{
    return "$" + std::to_string(text.size()) + "\r\n" + text + "\r\n";
}

// An error is one line on the wire.
std::string error_line(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\r' || c == '\n'; }, ' ');
    return "-" + text + "\r\n";
}

std::string list_of(const std::vector<std::string> &texts)
{
    std::string wire = "*" + std::to_string(texts.size()) + "\r\n";
    for (const std::string &text : texts) {
        wire += bulk(fuzz::bytes_of(text));
    }
    return wire;
}

std::string wire_of(const std::string &line)
{
    const std::string rest = line.empty() ? "" : line.substr(1);
    switch (line.empty() ? '_' : line.front()) {
    case '$':
        return bulk(fuzz::bytes_of(rest));
    case '-':
        return error_line(fuzz::bytes_of(rest));
    case '*':
        return list_of(fuzz::parts_of(rest, '|'));
    default:
        return "$-1\r\n";
    }
}

Reply reply_of(wire_test::OurReader &reader, const std::string &line)
{
    reader.feed(wire_of(line));
    Reply reply = reader.next();
    require(reply != nullptr, "the line is a reply", line);
    return reply;
}

// The first four replies are those to the questions of a client that knows nothing.
void check_data_set(const std::vector<Reply> &replies)
{
    DataSet data_set;
    DataSet::Answers answers;
    std::string why;
    if (!data_set.read(replies, answers, why)) {
        require(!why.empty(), "a refusal says why");
        return;
    }
    require(!answers.server.version.empty() && !answers.server.process.empty(), "a server says what it is",
            answers.server.version);
    require(data_set.is_same(answers), "nothing known contradicts nothing");
    data_set.adopt(answers);
    require(data_set.is_known() && data_set.id() == answers.id, "the data is known by its identity");
    require(data_set.is_same(answers), "what was adopted is the same");
    data_set.learn("p_dev.card_info", 3);
    require(!data_set.is_same(answers), "without the revision learned it is not the same");
    answers.revisions["p_dev.card_info"] = 3;
    require(data_set.is_same(answers), "with it, it is");
    (void)store::is_registered(answers);
}

void check_sentinel(const std::vector<Reply> &replies)
{
    std::vector<store::SentinelView> views;
    for (size_t i = 0; i + 1 < replies.size(); i += 2) {
        std::string problem;
        const auto view = store::read_view(replies[i].get(), replies[i + 1].get(), "group", problem);
        require(view || !problem.empty(), "a refusal says why");
        require(store::quotable(problem) == problem.substr(0, 200), "what is told is one line", problem);
        if (view) {
            require(view->place.port > 0 && view->place.port <= 65535 && !view->place.host.empty(),
                    "a master has a place");
            require(view->epoch >= -1, "an epoch is told or not");
            views.push_back(*view);
        }
    }
    const auto master = store::choose_master(views, "group");
    require(master.has_value() == !views.empty(), "one of the masters that are told is chosen");
    if (master) {
        const auto names_it = [&](const store::SentinelView &view) {
            return view.place.host == master->place.host && view.place.port == master->place.port;
        };
        require(std::any_of(views.begin(), views.end(), names_it), "the chosen one was told");
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    wire_test::OurReader reader;
    std::vector<Reply> replies;
    for (const std::string &line : fuzz::parts_of(fuzz::view_of(data, size), '\n')) {
        replies.push_back(reply_of(reader, line));
    }
    check_sentinel(replies);
    check_data_set(replies);
    return 0;
}
