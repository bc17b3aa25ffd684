// A module over the recording platform: a clock that moves when told, and reads and writes that succeed at
// once.
#ifndef MODULE_FIXTURE_H
#define MODULE_FIXTURE_H

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "core/module.h"

namespace kit_test
{

class ModuleTest : public testing::Test
{
protected:
    using Examine = std::function<int(app_cg_kit_check &check)>;

    ModuleTest();

    // Lets a module serve while `story` goes on; its store is connected.
    void serve(Examine examine, const std::function<void()> &story);

    // As the daemon does, with the card in a slot of device 1.
    void ask(int32_t slot);
    void withdraw(int32_t slot);

    // The answers that were written, as "3 PASS" or "3 DENY reason".
    static std::vector<std::string> answers();
    [[nodiscard]] std::size_t said(const std::string &text) const;
    [[nodiscard]] std::string log() const;

private:
    // Answers each read of the store: requests that stand do, and nobody knows anything about cards.
    void answer_reads();

    std::set<int32_t> standing_;
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

} // namespace kit_test

#endif
