// What a store server or a sentinel answers about itself. A server of another kind, or somebody in its place,
// answers anything; none of it may bring the client down or be taken for more than it is.
//
// Input: a reply on each line: `$text`, `-error`, `_` for nothing, `*` and parts joined by `|` for a list of
// texts. The library that reads the wire is not ours, so the replies are made without it.
#include <algorithm>
#include <memory>

#include "builtin/vx_mom/data_set.h"
#include "builtin/vx_mom/sentinel_view.h"

#include "fuzz.h"

namespace
{

using fuzz::require;
using vx_mom::DataSet;
using vx_mom::Reply;

// As the library would have made them: the reply's owner frees them with it.
char *text_copy(const std::string &text)
{
    auto *copy = static_cast<char *>(std::malloc(text.size() + 1));
    require(copy != nullptr, "there is memory");
    std::copy(text.begin(), text.end(), copy);
    copy[text.size()] = '\0';
    return copy;
}

redisReply *bare_reply(int type)
{
    auto *reply = static_cast<redisReply *>(std::calloc(1, sizeof(redisReply)));
    require(reply != nullptr, "there is memory");
    reply->type = type;
    return reply;
}

redisReply *text_reply(int type, const std::string &text)
{
    redisReply *reply = bare_reply(type);
    reply->str = text_copy(text);
    reply->len = text.size();
    return reply;
}

redisReply *list_reply(const std::vector<std::string> &texts)
{
    redisReply *reply = bare_reply(REDIS_REPLY_ARRAY);
    reply->element = static_cast<redisReply **>(std::calloc(texts.size(), sizeof(redisReply *)));
    require(reply->element != nullptr, "there is memory");
    reply->elements = texts.size();
    for (size_t i = 0; i < texts.size(); ++i) {
        reply->element[i] = text_reply(REDIS_REPLY_STRING, fuzz::bytes_of(texts[i]));
    }
    return reply;
}

Reply reply_of(const std::string &line)
{
    const std::string rest = line.empty() ? "" : line.substr(1);
    switch (line.empty() ? '_' : line.front()) {
    case '$':
        return Reply(text_reply(REDIS_REPLY_STRING, fuzz::bytes_of(rest)));
    case '-':
        return Reply(text_reply(REDIS_REPLY_ERROR, fuzz::bytes_of(rest)));
    case '*':
        return Reply(list_reply(fuzz::parts_of(rest, '|')));
    default:
        return Reply(bare_reply(REDIS_REPLY_NIL));
    }
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
    (void)vx_mom::is_registered(answers);
}

void check_sentinel(const std::vector<Reply> &replies)
{
    std::vector<vx_mom::SentinelView> views;
    for (size_t i = 0; i + 1 < replies.size(); i += 2) {
        std::string problem;
        const auto view = vx_mom::read_view(replies[i].get(), replies[i + 1].get(), "group", problem);
        require(view || !problem.empty(), "a refusal says why");
        require(vx_mom::quotable(problem) == problem.substr(0, 200), "what is told is one line", problem);
        if (view) {
            require(view->place.port > 0 && view->place.port <= 65535 && !view->place.host.empty(),
                    "a master has a place");
            require(view->epoch >= -1, "an epoch is told or not");
            views.push_back(*view);
        }
    }
    const auto master = vx_mom::choose_master(views, "group");
    require(master.has_value() == !views.empty(), "one of the masters that are told is chosen");
    if (master) {
        const auto names_it = [&](const vx_mom::SentinelView &view) {
            return view.place.host == master->place.host && view.place.port == master->place.port;
        };
        require(std::any_of(views.begin(), views.end(), names_it), "the chosen one was told");
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::vector<Reply> replies;
    for (const std::string &line : fuzz::parts_of(fuzz::view_of(data, size), '\n')) {
        replies.push_back(reply_of(line));
    }
    check_sentinel(replies);
    check_data_set(replies);
    return 0;
}
