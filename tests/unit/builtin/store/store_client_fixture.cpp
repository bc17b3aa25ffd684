// What tests of the whole store client share; see the header.
#include "store_client_fixture.h"

#include <event2/event.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iterator>

#include "loop/platform_context.h"

namespace store_test
{

namespace
{

// The connection callbacks are given no argument of ours but the context.
StoreClientTest *running_test = nullptr;

std::string unused_module()
{
    static int used = 0;
    return "store_test_" + std::to_string(used++);
}

void wake(evutil_socket_t /*fd*/, short /*what*/, void * /*arg*/) {}

} // namespace

StoreClientTest::StoreClientTest()
    : module(unused_module()), log("VX_ZLOG", "file:" + server.folder().path("log")),
      endpoint("VX_MOM_ENDPOINT", server.endpoint()), global(vx_global_init(module.c_str(), nullptr))
{
    running_test = this;
}

bool StoreClientTest::run_until(const std::function<bool()> &condition, int limit_ms)
{
    event_base *base = platform::event_base_of(global.get());
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(limit_ms);
    // Wakes the loop when nothing happens, so that the limit is noticed.
    const std::unique_ptr<event, void (*)(event *)> ticks(event_new(base, -1, EV_PERSIST, wake, nullptr),
                                                          event_free);
    const timeval tick{0, 5000};
    (void)event_add(ticks.get(), &tick);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        (void)event_base_loop(base, EVLOOP_ONCE);
    }
    return true;
}

void StoreClientTest::connect(int32_t db)
{
    const size_t before = reports.size();
    ASSERT_EQ(vx_mom_client_set_disconnect_cb(global.get(), db, note_disconnect, nullptr), 0);
    ASSERT_EQ(vx_mom_client_set_reconnect_cb(global.get(), db, note_reconnect, nullptr), 0);
    ASSERT_EQ(vx_mom_client_connect(global.get(), db, note_connect, this), 0);
    ASSERT_TRUE(run_until([&] { return reports.size() > before; }));
    ASSERT_EQ(reports.back(), "up");
}

int32_t StoreClientTest::write(int32_t slot, int32_t type)
{
    return vx_mom_set_sync(global.get(), 1, Card(0, slot, 0, type).message());
}

int32_t StoreClientTest::erase(int32_t slot)
{
    return vx_mom_del(global.get(), 1, Card(0, slot, 0).message(), nullptr, nullptr);
}

int32_t StoreClientTest::subscribe_cards()
{
    const Card pattern(0, 0, 0);
    return vx_mom_subscribe(global.get(), 1, pattern.message(), 0, note_card, this);
}

bool StoreClientTest::run_until_event(const std::string &last)
{
    return run_until([&] { return !events.empty() && events.back() == last; });
}

void StoreClientTest::subscribe_and_forget()
{
    connect(1);
    ASSERT_EQ(subscribe_cards(), 0);
    ASSERT_TRUE(run_until_event("29"));
    events.clear();
    reports.clear();
}

bool StoreClientTest::run_until_report(const std::string &last)
{
    return run_until([&] { return !reports.empty() && reports.back() == last; });
}

int64_t StoreClientTest::count(const std::string &what) const
{
    return std::count(events.begin(), events.end(), what);
}

std::string StoreClientTest::log_text() const
{
    std::ifstream file(server.folder().path("log"));
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void StoreClientTest::restart_client()
{
    global.reset();
    global.reset(vx_global_init(module.c_str(), nullptr));
    events.clear();
    reports.clear();
}

int32_t StoreClientTest::note_card(void *arg, vx_mom_pmsg_t *pmsg)
{
    auto *test = static_cast<StoreClientTest *>(arg);
    std::string text = std::to_string(pmsg->cmd);
    if (pmsg->cmd == VX_MOM_CMD_SCANNED || pmsg->cmd == VX_MOM_CMD_DELETED) {
        text += " " + describe(pmsg->record);
    } else if (pmsg->result != nullptr) {
        text += pmsg->result->error_code == 0 ? " " + describe(pmsg->result->record)
                                              : " error " + std::to_string(pmsg->result->error_code);
    }
    test->events.push_back(text);
    if (test->on_event) {
        test->on_event(text);
    }
    return 0;
}

std::string StoreClientTest::describe(const ProtobufCMessage *record)
{
    const auto *card = reinterpret_cast<const PDev__CardInfo *>(record);
    std::string text = std::to_string(card->index->devid) + "/" + std::to_string(card->index->slotid) + "/" +
                       std::to_string(card->index->sslotid) + " type " +
                       std::to_string(card->config_dev_type);
    if (card->static_info != nullptr) {
        text += std::string(" of ") + card->static_info->name;
    }
    return text;
}

int32_t StoreClientTest::note_connect(void * /*first*/, void *second)
{
    static_cast<StoreClientTest *>(second)->reports.emplace_back("up");
    return 0;
}

int32_t StoreClientTest::note_disconnect(void * /*first*/, int32_t db)
{
    running_test->reports.push_back("lost " + std::to_string(db));
    return 0;
}

int32_t StoreClientTest::note_reconnect(void * /*first*/, int32_t db, int32_t type)
{
    running_test->reports.push_back("back " + std::to_string(db) + " type " + std::to_string(type));
    if (running_test->on_return) {
        running_test->on_return(db);
    }
    return 0;
}

} // namespace store_test
