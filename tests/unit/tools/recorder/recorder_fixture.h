// A recorder with its file, the modules' folder and the service log, given changes by hand.
#ifndef RECORDER_FIXTURE_H
#define RECORDER_FIXTURE_H

#include "recorder.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "database.h"
#include "history/reader.h"
#include "records/record_text.h"
#include "records/record_types.h"
#include "unit/support/folder.h"

namespace recorder
{

using namespace std::chrono_literals;
using admission::Outcome;
using cg::Json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

inline constexpr history::Time noon = history::Time{} + 1'700'049'600s;
inline constexpr const char *away = "the recorder was not running";

// No file can grow while it lives, as on a full disk.
class FullDisk
{
public:
    FullDisk()
    {
        EXPECT_NE(signal(SIGXFSZ, SIG_IGN), SIG_ERR);
        EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &before_), 0);
        const rlimit none{0, before_.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);
    }
    ~FullDisk() { EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &before_), 0); }
    FullDisk(const FullDisk &) = delete;
    FullDisk &operator=(const FullDisk &) = delete;

private:
    rlimit before_{};
};

class RecorderTest : public testing::Test
{
protected:
    RecorderTest()
    {
        std::filesystem::create_directory(folder_.path("modules"));
        for (const char *module : {"m1", "m2"}) {
            std::ofstream(folder_.path("modules") + '/' + module) << "";
        }
    }

    void start()
    {
        recorder_.reset();
        const Settings settings{folder_.path("h"), folder_.path("modules"), folder_.path("life"), limits_,
                                300s};
        metrics_ = std::make_unique<Metrics>();
        metrics_->set_servers({{1, "unix:a"}, {33, "unix:b"}});
        recorder_ = std::make_unique<Recorder>(
            settings, *metrics_, [this](const std::string &text) { log_.push_back(text); }, now_);
    }
    // As SIGKILL leaves it: with what is in the file, and no more.
    void kill() { recorder_.reset(); }
    void listen()
    {
        recorder_->snapshot_done(1, now_);
        recorder_->tick(now_);
    }
    void pass(std::chrono::seconds time)
    {
        now_ += time;
        recorder_->tick(now_);
    }

    // Writes of the daemon that lives: what caused the next one about a slot is in cause_.
    void restart_daemon() { ++life_; }
    static store::Cause by_card(int slot)
    {
        return {store::Cause::Kind::record, 1, "p_dev.card_info:0:1:" + std::to_string(slot) + ":0"};
    }
    admission::Write daemon_write(const store::Cause &cause)
    {
        return {++revision_, {"daemon" + std::to_string(life_), ++number_, cause}};
    }
    void deliver(const char *type, const Json &fields, bool existing, const admission::Write &write = {},
                 bool deleted = false)
    {
        const cg::MessagePtr record = cg::from_json(*cg::record_type(type).descriptor, fields);
        recorder_->handle(*record, deleted, {now_, existing, write});
    }
    void plug(int slot, bool existing = false)
    {
        deliver("card_info",
                {{"index", {{"devid", 1}, {"slotid", slot}}},
                 {"static_info", {{"node_type", 3}}},
                 {"name", "lc-" + std::to_string(slot)},
                 {"card_tipc_nodeid", 1000 + slot},
                 {"is_online", true}},
                existing);
    }
    // The daemon asks; with `existing` what it asked is found, by the one that lives now at the latest.
    void ask(int slot, bool existing = false)
    {
        const Json request{{"index", {{"devid", 1}, {"slotid", slot}}}};
        auto &[life, write] = requests_[slot];
        if (!existing || life != life_) {
            life = life_;
            write = daemon_write(by_card(slot));
        }
        deliver("app_cg_card_check_info", request, existing, write);
    }
    // A module answers and the daemon reads it; with `existing` it stands unread.
    void answer(int slot, const std::string &module, int ret = 0, bool existing = false)
    {
        deliver("app_cg_card_check_ack", ack(slot, module, ret), existing,
                {++revision_, {module, ++number_, {store::Cause::Kind::none}}});
        if (!existing) {
            read_answer(slot, module, ret);
        }
    }
    // The one that was written last.
    void read_answer(int slot, const std::string &module, int ret = 0)
    {
        cause_[slot] = {store::Cause::Kind::record, revision_,
                        "p_libpub.app_cg_card_check_ack:1:" + std::to_string(slot) + ":0:" + module};
        deliver("app_cg_card_check_ack", ack(slot, module, ret), false, daemon_write(cause_[slot]), true);
    }
    static Json ack(int slot, const std::string &module, int ret)
    {
        return {{"index", {{"devid", 1}, {"slotid", slot}, {"mod_name", module}}}, {"ret", ret}};
    }
    void result(int slot, bool pass, bool existing = false)
    {
        auto &write = results_[slot];
        if (!existing || write.revision == 0) {
            write = daemon_write(cause_.try_emplace(slot, by_card(slot)).first->second);
        }
        deliver("app_cg_mom_deny_check_result",
                {{"index", {{"card_tipc_nodeid", 1000 + slot}}}, {"stat", pass ? 1 : 0}}, existing, write);
    }
    // By the answer that was read last, or where there was none by the card's information.
    void decide(int slot, bool pass)
    {
        result(slot, pass);
        deliver("app_cg_card_check_info", {{"index", {{"devid", 1}, {"slotid", slot}}}}, false,
                daemon_write(cause_[slot]), true);
        requests_.erase(slot);
    }
    void time_out(int slot)
    {
        cause_[slot] = {store::Cause::Kind::timer};
        decide(slot, true);
    }
    void deny(int slot)
    {
        answer(slot, "m2", -1);
        decide(slot, false);
    }
    void note_service(const std::string &line) const
    {
        std::ofstream(folder_.path("life"), std::ios::app) << line << '\n';
    }

    [[nodiscard]] history::Reader file() const { return history::Reader(folder_.path("h")); }
    [[nodiscard]] std::vector<Outcome> outcomes() const
    {
        std::vector<Outcome> all;
        for (const history::Decision &decision : file().decisions()) {
            all.push_back(decision.outcome);
        }
        return all;
    }
    [[nodiscard]] std::string metrics() const { return metrics_->page(); }
    // A daemon, a denied card in slot 3, and one that waits in slot 4.
    void begin_with_two_cards()
    {
        note_service("1700049600000 start 42");
        start();
        listen();
        plug(3);
        ask(3);
        deny(3);
        plug(4);
        ask(4);
        answer(4, "m1");
        pass(1s);
    }
    // The same; then the recorder is away for a minute.
    void live_before()
    {
        begin_with_two_cards();
        recorder_->flush(now_);
        killed_at_ = now_;
        kill();
        now_ += 60s;
    }

    int life_ = 1;
    uint64_t number_ = 0;
    uint64_t revision_ = 0;
    std::map<int, std::pair<int, admission::Write>> requests_; // by slot: the daemon's life, the write
    std::map<int, admission::Write> results_;
    std::map<int, store::Cause> cause_;
    cg::Folder folder_;
    history::Limits limits_{};
    std::vector<std::string> log_;
    std::unique_ptr<Metrics> metrics_;
    std::unique_ptr<Recorder> recorder_;
    history::Time now_ = noon;
    history::Time killed_at_{};
};

} // namespace recorder

#endif
