// A history in a folder of its own.
#ifndef HISTORY_FIXTURE_H
#define HISTORY_FIXTURE_H

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "database.h"
#include "history/reader.h"
#include "history/writer.h"

namespace history
{

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

inline constexpr Time noon = Time{} + 1'700'000'000s;
inline constexpr Position slot3{1, 3, 0};
inline constexpr Position slot4{1, 4, 0};

// A pass by m2, two seconds after its request.
Decision decision_at(Time decided_at, const Position &position = slot3);

// What the Error says that `action` throws.
std::string message_of(const std::function<void()> &action);

class HistoryTest : public testing::Test
{
protected:
    HistoryTest();
    ~HistoryTest() override;

    [[nodiscard]] std::string path() const { return folder_ / "history.sqlite"; }
    std::unique_ptr<Writer> writer(Time now = noon)
    {
        return std::make_unique<Writer>(path(), now,
                                        [this](const std::string &text) { log_.push_back(text); });
    }
    void run_sql(const std::string &sql) const { Database(path(), Database::Access::write).run(sql.c_str()); }
    // The files in the folder.
    [[nodiscard]] std::vector<std::string> names() const;
    // For others to read, without the right to write anything.
    void open_to_others() const;
    // How many decisions a user without rights reads; 101 when it cannot.
    [[nodiscard]] int decisions_seen_by_others() const;

    std::filesystem::path folder_;
    std::vector<std::string> log_;
};

} // namespace history

#endif
