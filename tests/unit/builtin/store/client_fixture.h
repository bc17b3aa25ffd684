// What tests of the C++ client share: a private server, a loop, and a client on it.
#ifndef CLIENT_FIXTURE_H
#define CLIENT_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "loop/loop.h"
#include "store/client.h"
#include "unit/builtin/store/records.h"
#include "unit/builtin/store/scoped_setting.h"
#include "unit/support/store_server.h"

namespace store_test
{

inline constexpr int32_t db = 1;
inline const ProtobufCMessageDescriptor &card_type = p_dev__card_info__descriptor;

// The key of card 0/slot/0.
std::string key_of(int32_t slot);

class ClientFixture : public testing::Test
{
public:
    ClientFixture();

    // With notices to `notices`.
    store::Options options();
    // Serves until the condition holds; fails the test when it does not in time.
    void serve_until(const std::function<bool()> &condition);

    cg::StoreServer server;
    ScopedSetting endpoint;
    platform::Loop loop;
    std::vector<std::string> notices;
    std::optional<store::Client> client;
};

} // namespace store_test

#endif
