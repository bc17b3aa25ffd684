// What tests of the causes of writes share: a client that writes, and another one that hears who did.
#ifndef CAUSE_FIXTURE_H
#define CAUSE_FIXTURE_H

#include <map>

#include "unit/builtin/store/client_fixture.h"

namespace store_test
{

class CauseTest : public ClientFixture
{
public:
    void write(int32_t slot, int32_t type = 1)
    {
        const store::Status status = client->set(db, *Card(0, slot, 0, type).message());
        EXPECT_EQ(status.code, 0) << status.reason;
    }

    // What is kept with a record.
    store::Cause kept(int32_t slot)
    {
        const auto found = client->read(db, *Card(0, slot, 0).message());
        return found.value ? found.value->origin().cause : store::Cause{};
    }

    // Another client that hears all changes, and the origin of each.
    void listen()
    {
        listener.emplace(loop.context());
        auto asked = listener->subscribe(db, card_type, [this](const store::Change &change) {
            in_place = in_place || change.command == VX_MOM_CMD_SUBSCRIBED;
            heard[std::to_string(change.command) + ' ' + std::string(change.key)] = change.origin();
        });
        subscription = std::move(asked.value);
        serve_until([&] { return in_place; });
    }

    bool has_heard(int32_t command, int32_t slot) const
    {
        return heard.count(std::to_string(command) + ' ' + key_of(slot)) != 0;
    }

    store::Origin origin_heard(int32_t command, int32_t slot)
    {
        const std::string what = std::to_string(command) + ' ' + key_of(slot);
        serve_until([&] { return heard.count(what) != 0; });
        return heard[what];
    }

    std::optional<store::Client> listener;
    store::Subscription subscription;
    bool in_place = false;
    std::map<std::string, store::Origin> heard;
};

} // namespace store_test

#endif
