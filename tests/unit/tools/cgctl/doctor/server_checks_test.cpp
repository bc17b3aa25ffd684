// cgctl doctor on an installation that is well, and on servers that are not.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <fstream>

#include "doctor_fixture.h"
#include "unit/support/store_program.h"

namespace cg
{

namespace
{

using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::Not;

class DoctorOfTheServer : public DoctorTest
{
protected:
    void SetUp() override { start_installation(); }
};

// There is no old server to install here: one that says that it is old has to do. It takes one connection
// after the other, and answers what a connection begins with.
void answer_as_old_server(int client)
{
    const std::string info = "# Server\r\nredis_version:6.2.6\r\n";
    std::array<char, 4096> buffer{};
    for (ssize_t count = 1; count > 0;) {
        count = read(client, buffer.data(), buffer.size());
        const std::string asked(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        std::string answers;
        for (std::size_t at = asked.find('*'); at != std::string::npos; at = asked.find('*', at + 1)) {
            answers += asked.find("INFO", at) == std::string::npos
                           ? "+OK\r\n"
                           : '$' + std::to_string(info.size()) + "\r\n" + info + "\r\n";
        }
        if (send(client, answers.data(), answers.size(), MSG_NOSIGNAL) < 0) {
            return;
        }
    }
}

int serve_as_old_server(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        listen(listener, 8) != 0) {
        return 1;
    }
    for (;;) {
        const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        answer_as_old_server(client);
        close(client);
    }
}

} // namespace

TEST_F(DoctorOfTheServer, FindsNothingWrongWithAWholeInstallation)
{
    const Diagnosis diagnosis = examine();
    EXPECT_EQ(diagnosis.complaints(), "");
    EXPECT_EQ(diagnosis.status, 0);
    for (const auto &[name, told] : diagnosis.checks) {
        EXPECT_EQ(told.state, "ok") << name << ": " << told.found;
        EXPECT_EQ(told.fix, "") << name;
    }
}

TEST_F(DoctorOfTheServer, SaysInWordsWhatItFinds)
{
    const Outcome well = run_cgctl({"doctor", "--modules", modules()});
    EXPECT_EQ(well.status, 0);
    EXPECT_THAT(well.out, HasSubstr("ok    store               it answers\n"));
    EXPECT_EQ(well.err, "");
    ask(0, {"CONFIG", "SET", "maxmemory-policy", "allkeys-lru"});
    ask(0, {"CONFIG", "SET", "save", ""});
    daemon_.reset();
    const Outcome ill = run_cgctl({"doctor", "--modules", modules()});
    EXPECT_EQ(ill.status, 1);
    EXPECT_THAT(ill.out, HasSubstr("FAIL  eviction            maxmemory-policy is allkeys-lru"));
    EXPECT_THAT(ill.out, HasSubstr("; fix: `"));
    EXPECT_THAT(ill.out, HasSubstr("WARN  persistence "));
    EXPECT_THAT(ill.out, HasSubstr("skip  cards               not examined because of: daemon\n"));
}

TEST_F(DoctorOfTheServer, WantsToBeCalledRightly)
{
    EXPECT_EQ(run_cgctl({"doctor", "--moduls", modules()}).status, 2);
    EXPECT_EQ(run_cgctl({"doctor", "store"}).status, 2);
}

TEST_F(DoctorOfTheServer, FindsSettingsThatAreNone)
{
    setenv("VX_MOM_ENDPOINT", "nowhere", 1);
    const Diagnosis diagnosis = examine();
    EXPECT_EQ(diagnosis.status, 1);
    EXPECT_EQ(diagnosis.checks.at("settings").state, "fail");
    EXPECT_THAT(diagnosis.checks.at("settings").found, HasSubstr("nowhere"));
    for (const char *name : {"store", "server", "notifications", "role", "daemon", "cards"}) {
        EXPECT_EQ(diagnosis.checks.at(name).state, "skipped") << name;
        EXPECT_THAT(diagnosis.checks.at(name).found, HasSubstr("because of: settings")) << name;
    }
    EXPECT_EQ(diagnosis.checks.at("module-folder").state, "ok") << "it rests on no setting";
    const Outcome elsewhere =
        run_cgctl({"doctor", "--endpoint", "unix:" + folder_.path("store"), "--modules", modules()});
    EXPECT_EQ(elsewhere.status, 0) << elsewhere.out;
}

TEST_F(DoctorOfTheServer, FindsAFileOfCredentialsThatOthersMayRead)
{
    const std::string file = folder_.path("secrets/app_cg-admin");
    ASSERT_EQ(chmod(file.c_str(), 0644), 0);
    const Told told = examine("settings");
    EXPECT_EQ(told.state, "fail");
    EXPECT_THAT(told.found, HasSubstr(file));
    ASSERT_EQ(chmod(file.c_str(), 0600), 0);
    EXPECT_EQ(examine("settings").state, "ok");
}

TEST_F(DoctorOfTheServer, FindsAStoreThatIsNotThere)
{
    server_.reset();
    const Told told = examine("store");
    EXPECT_EQ(told.state, "fail");
    EXPECT_THAT(told.found, HasSubstr(folder_.path("store")));
    EXPECT_THAT(told.fix, HasSubstr("systemctl start redis-server"));
}

TEST_F(DoctorOfTheServer, DoesNotWaitForAFrozenStoreForEver)
{
    server_->send(SIGSTOP);
    const Told told = examine("store");
    EXPECT_EQ(told.state, "fail");
    EXPECT_THAT(told.found, HasSubstr("in time"));
    server_->send(SIGCONT);
    EXPECT_EQ(examine("store").state, "ok");
}

TEST_F(DoctorOfTheServer, FindsAUserWhomTheServerDoesNotKnow)
{
    const std::string file = folder_.path("stranger");
    std::ofstream(file) << "user stranger\npassword guessed\n";
    ASSERT_EQ(chmod(file.c_str(), 0600), 0);
    setenv("VX_MOM_AUTH_FILE", file.c_str(), 1);
    const Told told = examine("store");
    EXPECT_EQ(told.state, "fail");
    EXPECT_THAT(told.found, HasSubstr("WRONGPASS"));
    EXPECT_THAT(told.fix, HasSubstr("VX_MOM_AUTH_FILE"));
}

TEST_F(DoctorOfTheServer, SaysWhatItMayNotLookAt)
{
    for (const char *user : {"app_cg", "app_cg-watch", "module-m1"}) {
        setenv("VX_MOM_AUTH_FILE", folder_.path(std::string("secrets/") + user).c_str(), 1);
        const Diagnosis diagnosis = examine();
        EXPECT_EQ(diagnosis.status, 1) << "what was not looked at is not known to be well";
        for (const char *name : {"eviction", "persistence", "buffers", "users", "functions", "notifications",
                                 "daemon-connections"}) {
            EXPECT_EQ(diagnosis.checks.at(name).state, "skipped") << user << ' ' << name;
            EXPECT_THAT(diagnosis.checks.at(name).found, HasSubstr("NOPERM")) << user << ' ' << name;
            EXPECT_THAT(diagnosis.checks.at(name).fix, HasSubstr("administrator")) << user << ' ' << name;
        }
        for (const auto &[name, told] : diagnosis.checks) {
            EXPECT_NE(told.state, "fail") << user << ' ' << name << ": " << told.found;
        }
    }
}

TEST_F(DoctorOfTheServer, FindsAServerThatDeletesWhenItIsFull)
{
    ask(0, {"CONFIG", "SET", "maxmemory-policy", "volatile-ttl"});
    expect_fixed("eviction", "fail", "volatile-ttl");
}

TEST_F(DoctorOfTheServer, FindsAServerThatKeepsNothing)
{
    ask(0, {"CONFIG", "SET", "save", ""});
    expect_fixed("persistence", "warn", "a restarted server is empty");
}

TEST_F(DoctorOfTheServer, FindsSmallBuffers)
{
    ask(0, {"CONFIG", "SET", "client-output-buffer-limit", "pubsub 1048576 0 0"});
    expect_fixed("buffers", "warn", "1048576 bytes");
    ask(0, {"CONFIG", "SET", "client-output-buffer-limit", "pubsub 0 65536 10"});
    EXPECT_EQ(examine("buffers").state, "warn");
    ask(0, {"CONFIG", "SET", "client-output-buffer-limit", "pubsub 0 0 0"});
    EXPECT_EQ(examine("buffers").state, "ok") << "no limit at all";
}

TEST_F(DoctorOfTheServer, FindsMissingFunctions)
{
    ask(0, {"FUNCTION", "DELETE", "vx_mom2"});
    const Diagnosis diagnosis = examine();
    for (const char *name : {"notifications", "role", "records", "cards"}) {
        EXPECT_THAT(diagnosis.checks.at(name).found, HasSubstr("because of: functions")) << name;
    }
    expect_fixed("functions", "fail", "is missing");
    EXPECT_EQ(examine().status, 0);
}

TEST_F(DoctorOfTheServer, FindsFunctionsOfAnotherVersion)
{
    ask(0, {"FUNCTION", "LOAD", "REPLACE",
            "#!lua name=vx_mom2\nredis.register_function('vx_mom2_set', function() return '1' end)"});
    expect_fixed("functions", "fail", "another version");
    EXPECT_EQ(examine().status, 0);
}

TEST_F(DoctorOfTheServer, FindsARunThatNobodyRegistered)
{
    ask(28, {"HDEL", "@runs", "now"});
    ask(33, {"DEL", "@set"});
    EXPECT_THAT(examine("data-set").found, HasSubstr("databases 28 and 33"));
    expect_fixed("data-set", "fail", "33");
}

TEST_F(DoctorOfTheServer, FindsARunThatWasRegisteredByAnotherVersion)
{
    ask(1, {"HSET", "@runs", "library", "0123456789012345678901234567890123456789"});
    expect_fixed("data-set", "fail", "another version");
}

TEST_F(DoctorOfTheServer, FindsAnIdentityThatIsNone)
{
    ask(28, {"DEL", "@set"});
    ask(28, {"RPUSH", "@set", "a"});
    expect_fixed("data-set", "fail", "WRONGTYPE", 2);
}

TEST_F(DoctorOfTheServer, LeavesNothingOfItsCanariesBehind)
{
    const std::vector<std::string> before[]{keys(0), keys(1), keys(28), keys(33)};
    EXPECT_EQ(examine("notifications").state, "ok");
    EXPECT_EQ(keys(0), before[0]);
    EXPECT_EQ(keys(1), before[1]);
    EXPECT_EQ(keys(28), before[2]);
    EXPECT_EQ(keys(33), before[3]);
}

TEST_F(DoctorOfTheServer, RemovesTheCanaryOfAnExaminationThatWasKilled)
{
    ask(28,
        {"FCALL", "vx_mom2_set", "3", "@canary:1", "@rev:@canary", "@idx:@canary", "@chg:28:", "", "6", "x"});
    ASSERT_THAT(keys(28), Contains("@canary:1"));
    EXPECT_EQ(examine("notifications").state, "ok");
    EXPECT_THAT(keys(28), Each(Not(HasSubstr("canary"))));
}

TEST_F(DoctorOfTheServer, FindsAServerThatTakesNoWrites)
{
    ask(0, {"CONFIG", "SET", "maxmemory", "1"});
    const Told told = examine("notifications");
    EXPECT_EQ(told.state, "fail");
    EXPECT_THAT(told.found, HasSubstr("OOM"));
    EXPECT_THAT(told.fix, HasSubstr("maxmemory"));
    EXPECT_THAT(keys(1), Each(Not(HasSubstr("canary"))));
    ask(0, {"CONFIG", "SET", "maxmemory", "0"});
    EXPECT_EQ(examine("notifications").state, "ok");
}

TEST_F(DoctorOfTheServer, FindsAReplica)
{
    ask(0, {"REPLICAOF", "127.0.0.1", "1"});
    const Diagnosis diagnosis = examine();
    const Told &told = diagnosis.checks.at("server-role");
    EXPECT_EQ(told.state, "fail");
    EXPECT_EQ(told.fix, "set VX_MOM_ENDPOINT to tcp:127.0.0.1:1");
    EXPECT_THAT(diagnosis.checks.at("notifications").found, HasSubstr("because of: server-role"));
    ask(0, {"REPLICAOF", "NO", "ONE"});
    EXPECT_EQ(examine("server-role").state, "ok");
}

// Servers that cannot be made from a good one.

TEST_F(DoctorTest, FindsAServerWithTooFewDatabases)
{
    start_server({"--databases", "16"});
    const Told told = examine("databases");
    EXPECT_EQ(told.state, "fail");
    EXPECT_THAT(told.found, HasSubstr("no database 28"));
    EXPECT_THAT(told.fix, HasSubstr("`databases 64`"));
    server_.reset();
    start_server({"--databases", "64"});
    EXPECT_EQ(examine("databases").state, "ok");
}

TEST_F(DoctorTest, FindsAServerThatStillReadsItsData)
{
    start_server({"--save", ""});
    ask(0, {"EVAL", "for i = 1, 20000 do redis.call('SET', i, i) end", "0"});
    ask(0, {"SAVE"});
    server_.reset();
    // Half a millisecond per key: it would take ten seconds.
    server_ = std::make_unique<Child>([&] {
        become_store_server({"--databases", "64", "--port", "0", "--unixsocket", folder_.path("store"),
                             "--dir", folder_.path("."), "--key-load-delay", "500",
                             "--loading-process-events-interval-bytes", "1024"});
        return 127;
    });
    ASSERT_TRUE(eventually([&] { return examine("store").state == "ok"; })) << server_->out();
    const Told told = examine("server");
    EXPECT_EQ(told.state, "fail");
    EXPECT_THAT(told.found, HasSubstr("still reading its data"));
    EXPECT_THAT(told.fix, HasSubstr("INFO persistence"));
    ASSERT_TRUE(server_->prints("eady to accept connections")) << server_->out();
    EXPECT_EQ(examine("server").state, "ok");
}

TEST_F(DoctorTest, FindsAServerThatIsTooOld)
{
    const Child server([&] { return serve_as_old_server(folder_.path("store")); });
    ASSERT_TRUE(eventually([&] { return examine("store").state == "ok"; }));
    const Diagnosis diagnosis = examine();
    EXPECT_EQ(diagnosis.checks.at("store").found, "it answers");
    EXPECT_EQ(diagnosis.checks.at("server").state, "fail");
    EXPECT_EQ(diagnosis.checks.at("server").found, "it is Redis 6.2.6");
    EXPECT_THAT(diagnosis.checks.at("server").fix, HasSubstr("Redis 7"));
    EXPECT_THAT(diagnosis.checks.at("databases").found, HasSubstr("because of: server"));
}

} // namespace cg
