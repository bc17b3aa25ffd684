// What tests of the C++ client share; see the header.
#include "client_fixture.h"

#include <chrono>

namespace store_test
{

std::string key_of(int32_t slot)
{
    return "p_dev.card_info:0:0:" + std::to_string(slot) + ":0";
}

ClientFixture::ClientFixture() : endpoint("VX_MOM_ENDPOINT", server.endpoint()), loop("client_test")
{
    client.emplace(loop.context(), options());
}

store::Options ClientFixture::options()
{
    return {.notice = [this](int32_t, const std::string &text) { notices.push_back(text); }};
}

void ClientFixture::serve_until(const std::function<bool()> &condition)
{
    bool is_late = false;
    const auto late = loop.after(std::chrono::seconds(20), [&] {
        is_late = true;
        loop.stop();
    });
    platform::Timer tick;
    std::function<void()> check = [&] {
        if (condition()) {
            loop.stop();
        } else {
            tick = loop.after(std::chrono::milliseconds(2), check);
        }
    };
    check();
    loop.run();
    EXPECT_FALSE(is_late);
}

} // namespace store_test
