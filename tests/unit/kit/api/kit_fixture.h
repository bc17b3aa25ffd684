// A module made with the kit, on a thread of its own, on a private store. The tests play the daemon.
#ifndef KIT_FIXTURE_H
#define KIT_FIXTURE_H

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "app_cg_kit.hpp"
#include "unit/tools/cgctl/run_cgctl.h"

namespace kit_test
{

using cg::cgctl;
using cg::eventually;
using cg::Json;

// What a module has logged.
class Logged
{
public:
    void add(int level, const std::string &text);
    [[nodiscard]] bool has(const std::string &text) const;
    [[nodiscard]] std::size_t count(const std::string &text) const;
    [[nodiscard]] std::string all() const;

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_; // "4 text"
};

class KitTest : public cg::StoreTest
{
protected:
    KitTest();
    ~KitTest() override;

    // Starts the module; returns when it waits for cards.
    void serve(std::function<app_cg_kit::Verdict(const app_cg_kit::Card &, const app_cg_kit::Check &)> check);
    // Ends it as any thread may, and expects a clean end.
    void end();
    // Waits until its log has this.
    bool logs(const std::string &text);

    // As the daemon does.
    void ask(const std::string &slot, const std::string &type = "1");
    void withdraw(const std::string &slot);
    // Takes an answer out of the store; {} after a failure.
    Json take_answer(const std::string &slot, const std::string &module = "volt");
    // Asks about a card in a slot of its own and takes that answer: whatever was to be answered before, was.
    void settle();
    std::size_t answers();
    // Cuts every connection; the data stays.
    void cut_connections();

    app_cg_kit::Module::Options options_;
    Logged logged_;
    std::unique_ptr<app_cg_kit::Module> module_;
    std::thread thread_;
    int result_ = -1;
};

} // namespace kit_test

#endif
