// A private store server for the tests of programs that use one.
#ifndef SUPPORT_STORE_TEST_H
#define SUPPORT_STORE_TEST_H

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "unit/support/child.h"
#include "unit/support/folder.h"

namespace cg
{

// A test with an empty store of its own, to which the platform's setting leads. Its socket is "store" in the
// test's folder.
class StoreTest : public testing::Test
{
protected:
    StoreTest();
    ~StoreTest() override;

    // Starts the server and waits until it can be connected to. Throws when it does not come up.
    void start_server();
    void stop_server();

    // Has the server carry out its own commands, one a line, past the program under test. Returns what it
    // answered.
    [[nodiscard]] std::string tell_server(const std::string &lines) const;

    Folder folder_;

private:
    std::unique_ptr<Child> server_;
};

} // namespace cg

#endif
