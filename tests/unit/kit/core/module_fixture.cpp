// A module over the recording platform.
#include "module_fixture.h"

#include <algorithm>

#include "p_libpub.pb-c.h"
#include "recording_platform.h"
#include "still_loop.h"

namespace kit_test
{

namespace
{

constexpr int32_t database = 1;
constexpr const char *request_type = "p_libpub.app_cg_card_check_info";

// A request as a record, which has its index beside it.
struct RequestRecord {
    explicit RequestRecord(int32_t slot)
    {
        index.devid = 1;
        index.slotid = slot;
        record.index = &index;
        record.card_nodeid = 7;
    }
    RequestRecord(const RequestRecord &) = delete;
    RequestRecord &operator=(const RequestRecord &) = delete;

    PDev__CardInfoIndex index = P_DEV__CARD_INFO_INDEX__INIT;
    PLibpub__AppCgCardCheckInfo record = P_LIBPUB__APP_CG_CARD_CHECK_INFO__INIT;
};

// The number or the text behind "name=" in a line of the journal; empty when it is not there.
std::string value_in(const std::string &line, const std::string &name)
{
    const std::size_t place = line.find(name + '=');
    if (place == std::string::npos) {
        return {};
    }
    const std::size_t begin = place + name.size() + 1;
    return line.substr(begin, line.find_first_of(" })", begin) - begin);
}

} // namespace

ModuleTest::ModuleTest()
{
    recording::reset();
    answer_reads();
}

void ModuleTest::answer_reads()
{
    recording::script_action("vx_mom_hgetall_sync", [this] {
        answer_reads();
        const std::string &read = recording::journal().back();
        const bool is_request = read.find(request_type) != std::string::npos;
        const int32_t slot = is_request ? std::stoi(value_in(read, "slotid")) : 0;
        const RequestRecord request(slot);
        recording::script_hgetall(0, standing_.contains(slot) ? &request.record.base : nullptr);
    });
}

void ModuleTest::serve(Examine examine, const std::function<void()> &story)
{
    kit::Module::Hooks hooks;
    hooks.check = [examine = std::move(examine)](const app_cg_kit_card_t & /*card*/,
                                                 app_cg_kit_check &check) { return examine(check); };
    const kit::Log to_lines(
        [this](int level, const std::string &text) {
            const std::lock_guard<std::mutex> guard(mutex_);
            lines_.push_back(std::to_string(level) + ' ' + text);
        },
        APP_CG_KIT_DEBUG);
    kit::Module module("volt", std::move(hooks), to_lines);
    still_loop::on_run([&] {
        ASSERT_TRUE(recording::connect(database));
        story();
    });
    EXPECT_EQ(module.run(false), 0);
}

void ModuleTest::ask(int32_t slot)
{
    standing_.insert(slot);
    const RequestRecord request(slot);
    ASSERT_TRUE(recording::deliver_written(&request.record.base));
}

void ModuleTest::withdraw(int32_t slot)
{
    standing_.erase(slot);
    const RequestRecord request(slot);
    ASSERT_TRUE(recording::deliver_deleted(&request.record.base));
}

std::vector<std::string> ModuleTest::answers()
{
    std::vector<std::string> found;
    for (const std::string &line : recording::journal()) {
        if (line.starts_with("vx_mom_set_sync")) {
            const std::string reason = value_in(line, "reason");
            found.push_back(value_in(line, "slotid") +
                            (value_in(line, "ret") == "1" ? " DENY " + reason : " PASS" + reason));
        }
    }
    return found;
}

std::size_t ModuleTest::said(const std::string &text) const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return static_cast<std::size_t>(std::count_if(lines_.begin(), lines_.end(), [&](const std::string &line) {
        return line.find(text) != std::string::npos;
    }));
}

std::string ModuleTest::log() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    std::string all;
    for (const std::string &line : lines_) {
        all += line + '\n';
    }
    return all;
}

} // namespace kit_test
