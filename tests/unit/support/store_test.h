// A test of a program that uses a store.
#ifndef SUPPORT_STORE_TEST_H
#define SUPPORT_STORE_TEST_H

#include <gtest/gtest.h>

#include <string>

#include "unit/support/child.h"
#include "unit/support/store_server.h"

namespace cg
{

// A second server, to which the settings lead for databases 28 and 33 as long as the object lives.
class GlobalStore : public StoreServer
{
public:
    GlobalStore();
    ~GlobalStore();
};

// A test with an empty store of its own, to which the platform's setting leads. Its socket is "store" in the
// test's folder.
class StoreTest : public testing::Test
{
protected:
    StoreTest();

    // Starts the server again and waits until it answers. Throws when it does not come up.
    void start_server() { server_.start(); }
    void stop_server() { server_.stop(); }

    // Has the server carry out its own commands, one a line, past the program under test. Returns what it
    // answered.
    [[nodiscard]] std::string tell_server(const std::string &lines) const;

    StoreServer server_;
    const Folder &folder_ = server_.folder();
};

} // namespace cg

#endif
