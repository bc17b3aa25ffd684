// What every test of the daemon starts from, and the records that it speaks in.
#ifndef FIXTURE_H
#define FIXTURE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "app_cg/app_cg.h"
#include "fake_fs.h"
#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"
#include "recording_platform/recording_platform.h"

// A daemon as it stands when the loop is about to run: empty tables, the recording platform as its context,
// logging up so that log records reach the journal, verbosity 1, no database connected, no role. The fixed
// paths lead into an empty private folder. Nothing of one test reaches the next.
class DaemonTest : public testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;
};

// The daemon's globals as the program started with them, before any test touched them.
struct InitialGlobals {
    app_cg_global_t global;
    uint32_t verbosity;
    std::vector<int32_t> db_state; // database and state of each row
    int32_t collect_saved_stdout;
    int32_t collect_fd;
};
const InitialGlobals &initial_globals();

// Cancels all timers of all nodes and frees the nodes, as far as the table holds any.
void free_nodes();

// What `action` wrote to descriptor 1, whether through stdio or past it.
std::string printed(const std::function<void()> &action);

// The stored form of a verbosity: a negative one becomes a large one.
constexpr uint32_t verbosity(int32_t level)
{
    return static_cast<uint32_t>(level);
}

// The verbosities at which anything differs.
constexpr uint32_t ALL_VERBOSITIES[] = {0, 1, 2, 3, 4, verbosity(-1)};

// Lines that a daemon of this verbosity leaves in the journal: log lines below their level's threshold are
// dropped, everything else stays.
std::vector<std::string> heard_at(uint32_t verbosity, const std::vector<std::string> &lines);

// Log records as the journal shows them. The source is the daemon core's unless said otherwise.
namespace lines
{

using Lines = std::vector<std::string>;

constexpr char CORE[] = "app_cg.cpp";
constexpr char DBG[] = "app_cg_dbg.cpp";

std::string fatal(const std::string &function, const std::string &text, const char *source = CORE);
std::string error(const std::string &function, const std::string &text, const char *source = CORE);
std::string warn(const std::string &function, const std::string &text, const char *source = CORE);
std::string info(const std::string &function, const std::string &text, const char *source = CORE);

Lines operator+(Lines first, const Lines &second);

} // namespace lines

// A daemon test at each verbosity that makes a difference.
class VerbosityTest : public DaemonTest, public testing::WithParamInterface<uint32_t>
{
protected:
    void SetUp() override;

    // What this verbosity leaves of the lines of a daemon that says everything.
    static std::vector<std::string> heard(const std::vector<std::string> &lines);
};

// "v0" to "v4", "vMinus1": for INSTANTIATE_TEST_SUITE_P.
std::string verbosity_name(const testing::TestParamInfo<uint32_t> &info);

// Descriptors that this process holds.
std::size_t open_descriptors();

// Records, built in the domain's verbs. They are their own storage: a builder must outlive what it lends.
namespace records
{

class CardRecord
{
public:
    CardRecord(int32_t devid, int32_t slotid, int32_t sslotid);
    CardRecord(const CardRecord &other);
    CardRecord &operator=(const CardRecord &) = delete;
    ~CardRecord() = default;

    CardRecord &online();
    CardRecord &offline();
    CardRecord &type(int32_t config_dev_type);
    CardRecord &nodeid(int32_t card_nodeid);
    CardRecord &tipc(int32_t card_tipc_nodeid);
    CardRecord &node_type(int32_t node_type); // of the static part; by default a line card
    CardRecord &without_index();
    CardRecord &without_static_part();

    PDev__CardInfo *record();
    operator const ProtobufCMessage *(); // NOLINT(google-explicit-constructor): reads as the record it is

private:
    PDev__CardInfo info_;
    PDev__CardInfoIndex index_;
    PDev__CardStaticInfo static_info_;
    PDev__CardStaticInfoIndex static_index_;
    bool has_index_ = true;
    bool has_static_part_ = true;
};

class AckRecord
{
public:
    AckRecord(int32_t devid, int32_t slotid, int32_t sslotid, std::string module);
    AckRecord(const AckRecord &other);
    AckRecord &operator=(const AckRecord &) = delete;
    ~AckRecord() = default;

    AckRecord &pass();
    AckRecord &deny(const std::string &reason);
    AckRecord &ret(int32_t value);
    AckRecord &without_index();

    PLibpub__AppCgCardCheckAck *record();
    operator const ProtobufCMessage *(); // NOLINT(google-explicit-constructor): reads as the record it is

private:
    PLibpub__AppCgCardCheckAck ack_;
    PLibpub__AppCgCardCheckAckIndex index_;
    std::string module_;
    std::string reason_;
    bool has_index_ = true;
};

class RoleRecord
{
public:
    explicit RoleRecord(PDev__DmRoleE role);
    PDev__DpLibGrole *record();
    operator const ProtobufCMessage *(); // NOLINT(google-explicit-constructor): reads as the record it is

private:
    PDev__DpLibGrole role_;
};

class BackupRecord
{
public:
    BackupRecord(int32_t devid, int32_t slotid, int32_t sslotid);
    BackupRecord(const BackupRecord &other);
    BackupRecord &operator=(const BackupRecord &) = delete;
    ~BackupRecord() = default;

    BackupRecord &without_index();
    PLibpub__AppCgCardBakInfo *record();
    operator const ProtobufCMessage *(); // NOLINT(google-explicit-constructor): reads as the record it is

private:
    PLibpub__AppCgCardBakInfo backup_;
    PDev__CardInfoIndex index_;
    bool has_index_ = true;
};

CardRecord card(int32_t devid, int32_t slotid, int32_t sslotid);
AckRecord ack(int32_t devid, int32_t slotid, int32_t sslotid, const std::string &module);
RoleRecord role(PDev__DmRoleE role);
BackupRecord backup(int32_t devid, int32_t slotid, int32_t sslotid);

} // namespace records

#endif
