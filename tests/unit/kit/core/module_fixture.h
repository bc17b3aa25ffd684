// A module in virtual time, beside a store in memory. The tests play the daemon and the device manager.
#ifndef MODULE_FIXTURE_H
#define MODULE_FIXTURE_H

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "app_cg_kit.hpp"
#include "core/module.h"
#include "fake_loop.h"
#include "fake_store.h"

namespace kit_test
{

using Strings = std::vector<std::string>;

class ModuleTest : public testing::Test
{
protected:
    using Examine = std::function<int(app_cg_kit_check &check)>;

    // A card as the device manager describes it.
    struct CardInfo {
        std::string name{};
        std::string serial{};
        int32_t type = 0;
        bool online = true;
    };

    ModuleTest();

    // Has a module serve while `story` happens; its store is connected.
    void serve(Examine examine, const std::function<void()> &story);

    // As the daemon does, about the card in a slot of device 1.
    static void request(int32_t slot, int32_t type = 1);
    static void withdraw(int32_t slot);
    // As the device manager does.
    static void plug(int32_t slot, const CardInfo &card);
    static void pull(int32_t slot);

    // The answers in the store, as "3 PASS" or "3 DENY reason"; take_answers() removes them.
    static Strings answers();
    static Strings take_answers();

    kit::Log log_to_lines();
    [[nodiscard]] std::size_t logged(const std::string &text) const;
    [[nodiscard]] std::string log() const;

private:
    mutable std::mutex mutex_;
    Strings lines_; // "4 text"
};

} // namespace kit_test

#endif
