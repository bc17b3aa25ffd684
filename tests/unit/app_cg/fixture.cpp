// A fresh daemon for each test, and the records that the tests speak in.
//
// The daemon's state is global, so each test puts back what the program started with; a process for each test
// was the alternative, and takes minutes under sanitizers where this takes seconds.
#include "fixture.h"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <memory>
#include <utility>

#include "app_cg/card_nodes.h"
#include "app_cg/check_request.h"
#include "app_cg/connections.h"
#include "app_cg_dbg/collect.h"
#include "app_cg_dbg/logging.h"

namespace
{

constexpr app_cg_db_state_t NOT_CONNECTED[] = {{1, 0}, {28, 0}, {33, 0}};

int32_t free_node(CardNode *node, void *arg)
{
    (void)arg;
    app_cg_check_cancel_slot_timers(node);
    return app_cg_node_del(node->devid, node->slotid, node->sslotid);
}

struct CloseFile {
    void operator()(std::FILE *file) const { (void)std::fclose(file); }
};

// Standard output pointed at a temporary file, for as long as this lives.
class Capture
{
public:
    Capture() : file_(std::tmpfile()), saved_(dup(STDOUT_FILENO))
    {
        if (file_ == nullptr || saved_ < 0) {
            std::perror("capture");
            std::abort();
        }
        (void)std::fflush(stdout);
        (void)dup2(fileno(file_.get()), STDOUT_FILENO);
    }
    Capture(const Capture &) = delete;
    Capture &operator=(const Capture &) = delete;
    ~Capture()
    {
        (void)std::fflush(stdout);
        (void)dup2(saved_, STDOUT_FILENO);
        (void)close(saved_);
    }

    std::string text()
    {
        (void)std::fflush(stdout);
        std::rewind(file_.get());
        std::string all;
        std::array<char, 4096> block{};
        for (std::size_t n = 0; (n = std::fread(block.data(), 1, block.size(), file_.get())) > 0;) {
            all.append(block.data(), n);
        }
        return all;
    }

private:
    std::unique_ptr<std::FILE, CloseFile> file_;
    int saved_;
};

// "log 80 ..." is 80; 0 for a line that is no log record.
int level_of(const std::string &line)
{
    return line.rfind("log ", 0) == 0 ? std::atoi(line.c_str() + 4) : 0; // NOLINT(cert-err34-c): our own text
}

bool is_heard(uint32_t verbosity, int level)
{
    switch (level) {
    case APP_CG_LEVEL_INFO:
        return verbosity > 3;
    case APP_CG_LEVEL_NOTICE:
        return verbosity > 2;
    case APP_CG_LEVEL_WARN:
        return verbosity > 1;
    case APP_CG_LEVEL_ERROR:
        return verbosity > 0;
    default:
        return true;
    }
}

} // namespace

static InitialGlobals globals_now()
{
    InitialGlobals globals{g_app_cg_global, app_cg_verbosity, {}, collect_saved_stdout, collect_fd};
    for (const app_cg_db_state_t &row : app_cg_db_state) {
        globals.db_state.push_back(row.db);
        globals.db_state.push_back(row.state);
    }
    return globals;
}

const InitialGlobals &initial_globals()
{
    static const InitialGlobals globals = globals_now();
    return globals;
}

// Taken before main() runs, so whichever test comes first.
static const InitialGlobals &taken_in_time = initial_globals();

void DaemonTest::SetUp()
{
    (void)taken_in_time;
    recording::reset();
    fake_fs::set_up();
    g_app_cg_global = {};
    app_cg_node_list_init(&g_app_cg_global.card_nodes);
    g_app_cg_global.global = recording::context();
    g_app_cg_global.zlog_handle = recording::category();
    app_cg_verbosity = 1;
    std::copy(std::begin(NOT_CONNECTED), std::end(NOT_CONNECTED), std::begin(app_cg_db_state));
    collect_saved_stdout = -1;
    collect_fd = -1;
}

void DaemonTest::TearDown()
{
    free_nodes();
    EXPECT_EQ(recording::unfreed_results(), 0U);
    EXPECT_EQ(fake_fs::open_folders(), 0U);
    EXPECT_FALSE(fake_fs::malloc_failure_pending()) << "the allocation that was to fail never happened";
    EXPECT_FALSE(fake_fs::new_failure_pending()) << "the allocation that was to fail never happened";
    g_app_cg_global = {};
    recording::reset();
    fake_fs::tear_down();
}

void free_nodes()
{
    if (g_app_cg_global.card_nodes.next != nullptr) {
        app_cg_node_foreach(free_node, nullptr);
    }
}

std::string printed(const std::function<void()> &action)
{
    Capture capture;
    action();
    return capture.text();
}

std::vector<std::string> heard_at(uint32_t verbosity, const std::vector<std::string> &lines)
{
    std::vector<std::string> heard;
    for (const std::string &line : lines) {
        if (is_heard(verbosity, level_of(line))) {
            heard.push_back(line);
        }
    }
    return heard;
}

namespace lines
{

static std::string log(int32_t level, const char *source, const std::string &function,
                       const std::string &text)
{
    return "log " + std::to_string(level) + " " + source + " " + function + ": " + text;
}

std::string fatal(const std::string &function, const std::string &text, const char *source)
{
    return log(120, source, function, text);
}

std::string error(const std::string &function, const std::string &text, const char *source)
{
    return log(100, source, function, text);
}

std::string warn(const std::string &function, const std::string &text, const char *source)
{
    return log(80, source, function, text);
}

std::string info(const std::string &function, const std::string &text, const char *source)
{
    return log(40, source, function, text);
}

Lines operator+(Lines first, const Lines &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

} // namespace lines

void VerbosityTest::SetUp()
{
    DaemonTest::SetUp();
    app_cg_verbosity = GetParam();
}

std::vector<std::string> VerbosityTest::heard(const std::vector<std::string> &lines)
{
    return heard_at(GetParam(), lines);
}

std::string verbosity_name(const testing::TestParamInfo<uint32_t> &info)
{
    return info.param == verbosity(-1) ? "vMinus1" : "v" + std::to_string(info.param);
}

std::size_t open_descriptors()
{
    const std::filesystem::directory_iterator folder("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(folder), end(folder)));
}

namespace records
{

CardRecord::CardRecord(int32_t devid, int32_t slotid, int32_t sslotid)
    : info_ P_DEV__CARD_INFO__INIT, index_ P_DEV__CARD_INFO_INDEX__INIT,
      static_info_ P_DEV__CARD_STATIC_INFO__INIT, static_index_ P_DEV__CARD_STATIC_INFO_INDEX__INIT
{
    index_.devid = devid;
    index_.slotid = slotid;
    index_.sslotid = sslotid;
    static_info_.node_type = P_DEV__DM_NODE_TYPE_E__DM_TYPE_LC;
}

// The pointers of the copy are set when the record is asked for.
CardRecord::CardRecord(const CardRecord &other) = default;

CardRecord &CardRecord::online()
{
    info_.is_online = 1;
    return *this;
}

CardRecord &CardRecord::offline()
{
    info_.is_online = 0;
    return *this;
}

CardRecord &CardRecord::type(int32_t config_dev_type)
{
    info_.config_dev_type = config_dev_type;
    return *this;
}

CardRecord &CardRecord::nodeid(int32_t card_nodeid)
{
    info_.card_nodeid = card_nodeid;
    return *this;
}

CardRecord &CardRecord::tipc(int32_t card_tipc_nodeid)
{
    info_.card_tipc_nodeid = card_tipc_nodeid;
    return *this;
}

CardRecord &CardRecord::node_type(int32_t node_type)
{
    static_info_.node_type = node_type;
    return *this;
}

CardRecord &CardRecord::without_index()
{
    has_index_ = false;
    return *this;
}

CardRecord &CardRecord::without_static_part()
{
    has_static_part_ = false;
    return *this;
}

PDev__CardInfo *CardRecord::record()
{
    info_.index = has_index_ ? &index_ : nullptr;
    static_info_.index = &static_index_;
    info_.static_info = has_static_part_ ? &static_info_ : nullptr;
    return &info_;
}

CardRecord::operator const ProtobufCMessage *()
{
    return &record()->base;
}

AckRecord::AckRecord(int32_t devid, int32_t slotid, int32_t sslotid, std::string module)
    : ack_ P_LIBPUB__APP_CG_CARD_CHECK_ACK__INIT, index_ P_LIBPUB__APP_CG_CARD_CHECK_ACK_INDEX__INIT,
      module_(std::move(module))
{
    index_.devid = devid;
    index_.slotid = slotid;
    index_.t_sslotid = sslotid;
}

AckRecord::AckRecord(const AckRecord &other) = default;

AckRecord &AckRecord::pass()
{
    ack_.ret = 0;
    return *this;
}

AckRecord &AckRecord::deny(const std::string &reason)
{
    ack_.ret = 1;
    reason_ = reason;
    return *this;
}

AckRecord &AckRecord::ret(int32_t value)
{
    ack_.ret = value;
    return *this;
}

AckRecord &AckRecord::without_index()
{
    has_index_ = false;
    return *this;
}

PLibpub__AppCgCardCheckAck *AckRecord::record()
{
    ack_.index = has_index_ ? &index_ : nullptr;
    index_.mod_name = module_.data();
    ack_.reason = reason_.data();
    return &ack_;
}

AckRecord::operator const ProtobufCMessage *()
{
    return &record()->base;
}

RoleRecord::RoleRecord(PDev__DmRoleE role) : role_ P_DEV__DP_LIB_GROLE__INIT
{
    role_.my_grole = role;
}

PDev__DpLibGrole *RoleRecord::record()
{
    return &role_;
}

RoleRecord::operator const ProtobufCMessage *()
{
    return &role_.base;
}

BackupRecord::BackupRecord(int32_t devid, int32_t slotid, int32_t sslotid)
    : backup_ P_LIBPUB__APP_CG_CARD_BAK_INFO__INIT, index_ P_DEV__CARD_INFO_INDEX__INIT
{
    index_.devid = devid;
    index_.slotid = slotid;
    index_.sslotid = sslotid;
}

BackupRecord::BackupRecord(const BackupRecord &other) = default;

BackupRecord &BackupRecord::without_index()
{
    has_index_ = false;
    return *this;
}

PLibpub__AppCgCardBakInfo *BackupRecord::record()
{
    backup_.index = has_index_ ? &index_ : nullptr;
    return &backup_;
}

BackupRecord::operator const ProtobufCMessage *()
{
    return &record()->base;
}

CardRecord card(int32_t devid, int32_t slotid, int32_t sslotid)
{
    return {devid, slotid, sslotid};
}

AckRecord ack(int32_t devid, int32_t slotid, int32_t sslotid, const std::string &module)
{
    return {devid, slotid, sslotid, module};
}

RoleRecord role(PDev__DmRoleE role)
{
    return RoleRecord(role);
}

BackupRecord backup(int32_t devid, int32_t slotid, int32_t sslotid)
{
    return {devid, slotid, sslotid};
}

} // namespace records
