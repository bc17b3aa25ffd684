// A plain connection; see the header.
#include "store/inspect/inspection.h"

#include <utility>

#include "store/connection/sync_connection.h"

namespace store
{

namespace
{

Inspected inspected(const redisReply *reply)
{
    Inspected result;
    switch (reply->type) {
    case REDIS_REPLY_ERROR:
        result.kind = Inspected::Kind::error;
        result.text = text_of(reply);
        break;
    case REDIS_REPLY_INTEGER:
        result.kind = Inspected::Kind::number;
        result.text = std::to_string(reply->integer);
        break;
    case REDIS_REPLY_STRING:
    case REDIS_REPLY_STATUS:
        result.kind = Inspected::Kind::text;
        result.text = text_of(reply);
        break;
    case REDIS_REPLY_ARRAY:
        result.kind = Inspected::Kind::list;
        for (size_t i = 0; i < reply->elements; i++) {
            result.items.push_back(inspected(reply->element[i]));
        }
        break;
    default:
        break;
    }
    return result;
}

} // namespace

const Inspected &Inspected::value_of(const std::string &name) const
{
    static const Inspected none;
    for (std::size_t i = 0; i + 1 < items.size(); i += 2) {
        if (items[i].text == name) {
            return items[i + 1];
        }
    }
    return none;
}

struct Inspection::Parts {
    ClientIdentity identity;
    std::string problem;
    std::optional<SyncConnection> connection; // refers to the identity

    void open(const StorePlace &place, int32_t database, std::chrono::milliseconds limit)
    {
        identity.endpoint = place.endpoint;
        identity.credentials = place.credentials;
        identity.name = "inspection";
        connection.emplace(identity, database);
        (void)note(connection->open(Clock::now() + limit));
    }

    // Whether it went well; if not, why is kept.
    bool note(Outcome result)
    {
        if (result != Outcome::answered) {
            problem = identity.endpoint.text + ": " + connection->problem();
        }
        return result == Outcome::answered;
    }
};

Inspection::Inspection(int32_t database, std::chrono::milliseconds limit) : parts_(std::make_unique<Parts>())
{
    if (const auto place = configured_place(database, parts_->problem)) {
        parts_->open(*place, database, limit);
    }
}

Inspection::Inspection(const StorePlace &place, int32_t database, std::chrono::milliseconds limit)
    : parts_(std::make_unique<Parts>())
{
    parts_->open(place, database, limit);
}

Inspection::Inspection(Inspection &&) noexcept = default;
Inspection &Inspection::operator=(Inspection &&) noexcept = default;
Inspection::~Inspection() = default;

bool Inspection::is_open() const
{
    return parts_->connection.has_value() && parts_->connection->is_open();
}

const std::string &Inspection::problem() const
{
    return parts_->problem;
}

std::optional<Inspected> Inspection::ask(const std::vector<std::string> &command,
                                         std::chrono::milliseconds limit)
{
    if (!is_open()) {
        return std::nullopt;
    }
    std::vector<Reply> replies;
    if (!parts_->note(parts_->connection->exchange({command}, Clock::now() + limit, replies))) {
        return std::nullopt;
    }
    return inspected(replies[0].get());
}

std::optional<Inspected> Inspection::next(std::chrono::milliseconds limit)
{
    Reply reply;
    if (!is_open() || !parts_->note(parts_->connection->next(Clock::now() + limit, reply))) {
        return std::nullopt;
    }
    return inspected(reply.get());
}

} // namespace store
