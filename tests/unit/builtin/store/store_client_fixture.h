// What tests of the whole store client share: a private server, a platform context that uses it, and a record
// of everything that the client calls back with.
#ifndef STORE_CLIENT_FIXTURE_H
#define STORE_CLIENT_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "unit/builtin/store/records.h"
#include "unit/builtin/store/scoped_setting.h"
#include "unit/support/store_server.h"
#include "vx_mom.h"

namespace store_test
{

struct FinishContext {
    void operator()(vx_global_t *global) const { vx_global_finish(global); }
};

class StoreClientTest : public testing::Test
{
protected:
    StoreClientTest();

    // Turns the loop until the condition holds. Returns false when it does not within `limit_ms`.
    bool run_until(const std::function<bool()> &condition, int limit_ms = 20000);
    // Asks for a connection to a database and waits until it is reported.
    void connect(int32_t db);
    // Writes and deletes cards of database 1.
    int32_t write(int32_t slot, int32_t type);
    int32_t erase(int32_t slot);
    // Subscribes to all cards of database 1; notifications go to `events`.
    int32_t subscribe_cards();
    // Turns the loop until `events` ends with this one.
    bool run_until_event(const std::string &last);
    // Connects and subscribes, and forgets what came of it.
    void subscribe_and_forget();
    // Turns the loop until the last report is this one.
    bool run_until_report(const std::string &last);
    // Has the server cut the client's connections: those with a subscription, or all.
    void cut_loop_connections() { (void)server.run(0, {"CLIENT", "KILL", "TYPE", "pubsub"}); }
    void cut_all_connections() { (void)server.run(0, {"CLIENT", "KILL", "SKIPME", "yes"}); }
    // How often `what` is in `events`.
    int64_t count(const std::string &what) const;
    // What the client has logged so far.
    std::string log_text() const;
    // Drops the context and makes a new one, as a program that starts again.
    void restart_client();

    // Writes a notification of a card down: "4 0/1/2 type=3", "29", ...
    static int32_t note_card(void *arg, vx_mom_pmsg_t *pmsg);
    static std::string describe(const ProtobufCMessage *record);
    static int32_t note_connect(void *first, void *second);
    static int32_t note_disconnect(void *first, int32_t db);
    static int32_t note_reconnect(void *first, int32_t db, int32_t type);

    cg::StoreServer server;
    std::string module; // another for every test: a log stays where it was opened
    ScopedSetting log;
    ScopedSetting endpoint;
    std::unique_ptr<vx_global_t, FinishContext> global;
    std::vector<std::string> events;
    std::vector<std::string> reports; // of connections: "up", "lost 1", "back 1 type 2"
    // Called with every notification of note_card() after it was written down.
    std::function<void(const std::string &)> on_event;
    // Called with every report of a return.
    std::function<void(int32_t)> on_return;
};

} // namespace store_test

#endif
