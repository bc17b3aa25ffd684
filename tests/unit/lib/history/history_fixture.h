// A history in a folder of its own.
#ifndef HISTORY_FIXTURE_H
#define HISTORY_FIXTURE_H

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "history/reader.h"
#include "history/writer.h"

namespace history
{

using namespace std::chrono_literals;

inline constexpr Time noon = Time{} + 1'700'000'000s;
inline constexpr Position slot3{1, 3, 0};
inline constexpr Position slot4{1, 4, 0};

inline Decision decision_at(Time decided_at, const Position &position = slot3)
{
    Decision decision;
    decision.card = {position, "fan", "0a0b", 3, 17, 259, 1259, true};
    decision.outcome = Outcome::passed;
    decision.admitted = true;
    decision.requested_at = decided_at - 2s;
    decision.decided_at = decided_at;
    decision.decider = "m2";
    decision.answers = {{"m1", 0, "", decided_at - 1s, true, 1000ms},
                        {"m2", 0, "", decided_at, true, 2000ms}};
    decision.role = 1;
    return decision;
}

class HistoryTest : public testing::Test
{
protected:
    HistoryTest()
    {
        std::string name = testing::TempDir() + "history-XXXXXX";
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("mkdtemp " + name);
        }
        folder_ = name;
    }
    ~HistoryTest() override
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }

    [[nodiscard]] std::string path() const { return folder_ / "history.sqlite"; }
    std::unique_ptr<Writer> writer(Time now = noon)
    {
        return std::make_unique<Writer>(path(), now,
                                        [this](const std::string &text) { told_.push_back(text); });
    }

    std::filesystem::path folder_;
    std::vector<std::string> told_;
};

} // namespace history

#endif
