// cgctl doctor where the databases are on several servers, and where one of these is a group.
#include <csignal>
#include <fstream>
#include <sys/stat.h>

#include "doctor_fixture.h"
#include "unit/builtin/store/scoped_setting.h"
#include "unit/builtin/store/sentinel_group.h"

namespace cg
{

namespace
{

using store_test::ScopedSetting;
using store_test::SentinelGroup;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class DoctorOfServers : public DoctorTest
{
protected:
    void SetUp() override { start_installation(true); }

    // Expects one finding that is not well, of this check, and returns it.
    Told only_finding(const std::string &check) const
    {
        const Diagnosis diagnosis = examine();
        EXPECT_THAT(diagnosis.complaints(), StartsWith(check + ' '));
        const std::string complaints = diagnosis.complaints();
        EXPECT_EQ(std::count(complaints.begin(), complaints.end(), '\n'), 1) << complaints;
        EXPECT_EQ(diagnosis.status, 1);
        return diagnosis.checks.at(check);
    }
    // Ends a server; what it has is there again after its next start.
    void end(std::unique_ptr<Child> &server, int database) const
    {
        ASSERT_EQ(ask(database, {"SAVE"}).text, "OK");
        server->send(SIGKILL);
        server->wait();
        server.reset();
    }
    std::string host_endpoint() const { return "unix:" + folder_.path("store"); }
};

class DoctorOfAGroup : public DoctorTest
{
protected:
    DoctorOfAGroup() { setenv("VX_MOM_ENDPOINT", group_.endpoint().c_str(), 1); }
    // A master that is frozen for a moment is not replaced.
    static SentinelGroup::Options options()
    {
        SentinelGroup::Options options;
        options.down_after = std::chrono::seconds(60);
        return options;
    }

    SentinelGroup group_{options()};
};

} // namespace

TEST_F(DoctorOfServers, FindsNothingWrongWithTwoServers)
{
    const Diagnosis diagnosis = examine();
    EXPECT_EQ(diagnosis.complaints(), "");
    EXPECT_EQ(diagnosis.status, 0);
    EXPECT_EQ(diagnosis.checks.at("store 1").state, "ok");
    EXPECT_EQ(diagnosis.checks.at("rights 28").state, "ok") << diagnosis.checks.at("rights 28").found;
    EXPECT_FALSE(diagnosis.checks.contains("group 28")) << "it is none";
    EXPECT_THAT(diagnosis.checks.at("settings").found,
                HasSubstr(host_endpoint() + " (database 1), " + stack_endpoint() + " (databases 28 and 33)"));
    const Outcome outcome = run_cgctl({"doctor", "--modules", modules()});
    EXPECT_THAT(outcome.out,
                AllOf(HasSubstr("ok    store (database 1, " + host_endpoint() + "): it answers\n"),
                      HasSubstr("ok    store (databases 28 and 33, " + stack_endpoint() + "): it answers\n"),
                      HasSubstr("ok    cards               each online card")));
}

TEST_F(DoctorOfServers, FindsTheAbsenceOfTheStacksServerAndExaminesTheRest)
{
    end(stack_server_, 28);
    const Told told = only_finding("store 28");
    EXPECT_EQ(told.state, "fail");
    EXPECT_THAT(told.found, StartsWith(stack_endpoint() + ": "));
    EXPECT_THAT(told.fix,
                AllOf(HasSubstr("systemctl start redis-server"),
                      HasSubstr("or set VX_MOM_ENDPOINT_28 and VX_MOM_ENDPOINT_33 to where it is")));
    const Diagnosis diagnosis = examine();
    EXPECT_EQ(diagnosis.checks.at("data-set 28").found, "not examined because of: store");
    for (const char *well : {"notifications 1", "daemon", "daemon-connections", "records 1", "cards"}) {
        EXPECT_EQ(diagnosis.checks.at(well).state, "ok") << well << diagnosis.checks.at(well).found;
    }
    start_stack_server();
    EXPECT_TRUE(eventually([&] { return examine().complaints().empty(); })) << examine().complaints();
}

TEST_F(DoctorOfServers, FindsTheAbsenceOfTheHostsServerAndExaminesTheOther)
{
    end(server_, 1);
    const Told told = only_finding("store 1");
    EXPECT_THAT(told.fix, HasSubstr("or set VX_MOM_ENDPOINT to where it is"));
    const Diagnosis diagnosis = examine();
    EXPECT_EQ(diagnosis.checks.at("cards").found,
              "not examined because of: store (database 1, " + host_endpoint() + ")");
    for (const char *well : {"rights 28", "notifications 28", "records 28", "daemon"}) {
        EXPECT_EQ(diagnosis.checks.at(well).state, "ok") << well << diagnosis.checks.at(well).found;
    }
}

TEST_F(DoctorOfServers, ADaemonThatCannotStartWithoutAServerIsNoSecondFault)
{
    daemon_.reset();
    EXPECT_EQ(only_finding("daemon").state, "fail");
    end(stack_server_, 28);
    (void)only_finding("store 28");
    EXPECT_EQ(examine("daemon").found,
              "no daemon: it does not start while the store at " + stack_endpoint() + " cannot be used");
}

TEST_F(DoctorOfServers, NamesTheSettingOfAWrongPassword)
{
    const std::string file = folder_.path("guest");
    std::ofstream(file) << "user app_cg-admin\npassword wrong\n";
    ASSERT_EQ(chmod(file.c_str(), 0600), 0);
    setenv("VX_MOM_AUTH_FILE_33", file.c_str(), 1);
    const Told one = only_finding("store 28");
    EXPECT_THAT(one.found, HasSubstr("WRONGPASS"));
    EXPECT_THAT(one.fix, AllOf(HasSubstr("into " + file + " (VX_MOM_AUTH_FILE_33)"),
                               HasSubstr("`cgctl acl --database 33` prints")));
    setenv("VX_MOM_AUTH_FILE_28", file.c_str(), 1);
    EXPECT_THAT(only_finding("store 28").fix,
                HasSubstr("into " + file + " (VX_MOM_AUTH_FILE_28 and VX_MOM_AUTH_FILE_33)"));
    unsetenv("VX_MOM_AUTH_FILE_28");
    unsetenv("VX_MOM_AUTH_FILE_33");
    EXPECT_THAT(only_finding("store 28").fix,
                HasSubstr("into a file that only its owner may read, and set VX_MOM_AUTH_FILE_28 and "
                          "VX_MOM_AUTH_FILE_33 to it"))
        << "the host's own is in order";
}

TEST_F(DoctorOfServers, FindsADaemonWhoseDatabasesAreElsewhere)
{
    daemon_.reset();
    unsetenv("VX_MOM_ENDPOINT_28");
    unsetenv("VX_MOM_AUTH_FILE_28");
    start_daemon();
    setenv("VX_MOM_ENDPOINT_28", stack_endpoint().c_str(), 1);
    setenv("VX_MOM_AUTH_FILE_28", folder_.path("group/app_cg-admin").c_str(), 1);
    EXPECT_TRUE(eventually([&] { return examine("daemon-connections").state == "fail"; }));
    const Told told = examine("daemon-connections");
    EXPECT_EQ(told.state, "fail");
    EXPECT_EQ(told.found, "the daemon uses database 28 of the store at " + host_endpoint() +
                              ", this command that at " + stack_endpoint());
    EXPECT_THAT(told.fix, HasSubstr("set the same VX_MOM_ENDPOINT_28 for both"));
}

TEST_F(DoctorOfServers, FindsADaemonThatDoesNotReachWhatAnswersHere)
{
    (void)ask(1, {"HSET", "@health", "away_28", "1", "away_33", "0"});
    const Told told = only_finding("daemon-connections");
    EXPECT_EQ(told.found,
              "the daemon does not reach database 28 at " + stack_endpoint() + ", which answers here");
    EXPECT_THAT(told.fix, HasSubstr("VX_MOM_AUTH_FILE_28"));
}

TEST_F(DoctorOfServers, FindsARightTooManyWhereItIs)
{
    (void)ask(28, {"ACL", "SETUSER", "app_cg", "(+hset ~p_dev.card_info:*)"});
    const Told told = only_finding("rights 28");
    EXPECT_THAT(told.found, HasSubstr("app_cg must be refused HSET p_dev.card_info:"));
    EXPECT_THAT(told.fix, AllOf(HasSubstr("`cgctl acl --database 28 --modules "),
                                HasSubstr("--secrets " + folder_.path("group") + " --create")));
}

TEST_F(DoctorOfServers, FindsARecordThatDoesNotDecodeWhereItIs)
{
    const std::string key = "p_libpub.app_cg_card_deny_check_result:0:1:3:0";
    (void)ask(28, {"HSET", key, "6", "nonsense", "rev", "1"});
    (void)ask(28, {"SADD", "@idx:p_libpub.app_cg_card_deny_check_result", key});
    (void)ask(28, {"SET", "@rev:p_libpub.app_cg_card_deny_check_result", "1"});
    const Told told = only_finding("records 28");
    EXPECT_THAT(told.found, HasSubstr(key));
    carry_out(told.fix, 1);
    EXPECT_EQ(examine("records 28").state, "ok");
}

TEST_F(DoctorOfAGroup, FindsASentinelThatIsSilent)
{
    const Told well = examine("group");
    EXPECT_EQ(well.state, "ok");
    EXPECT_EQ(well.found, "3 sentinels name one master, with 2 replicas");
    group_.kill_sentinel(1);
    const Told told = examine("group");
    EXPECT_EQ(told.state, "warn");
    EXPECT_EQ(told.found, "sentinel " + group_.sentinel_address(1) + ": Connection refused");
    EXPECT_THAT(told.fix, AllOf(HasSubstr("`systemctl start redis-sentinel`"), HasSubstr("VX_MOM_ENDPOINT")));
    EXPECT_EQ(examine("store").state, "ok") << "the others are enough";
}

TEST_F(DoctorOfAGroup, FindsAReplicaThatIsSilentOrGone)
{
    const ScopedSetting deadline("VX_MOM_DEADLINE_MS", "1000");
    group_.freeze_server(2);
    Told told = examine("group");
    EXPECT_EQ(told.state, "warn");
    EXPECT_THAT(told.found, AllOf(HasSubstr("replica tcp:" + group_.server_address(2)),
                                  Not(HasSubstr(group_.server_address(1)))));
    EXPECT_THAT(told.fix, HasSubstr("start the server at " + group_.server_address(2)));
    group_.kill_server(1);
    group_.kill_server(2);
    EXPECT_TRUE(eventually([&] {
        told = examine("group");
        return told.found == "no replica follows the master: a fail-over is impossible";
    })) << told.found;
    EXPECT_THAT(told.fix, HasSubstr("`replicaof`"));
}

TEST_F(DoctorOfAGroup, FindsAGroupThatIsDown)
{
    for (size_t i = 0; i < 3; i++) {
        group_.kill_sentinel(i);
    }
    const Diagnosis diagnosis = examine();
    EXPECT_EQ(diagnosis.checks.at("store").state, "fail");
    EXPECT_THAT(diagnosis.checks.at("store").found, HasSubstr(group_.endpoint() + ": no master"));
    EXPECT_THAT(diagnosis.checks.at("store").fix,
                HasSubstr("`systemctl start redis-server redis-sentinel` on each of their devices"));
    EXPECT_EQ(diagnosis.checks.at("group").state, "skipped");
}

} // namespace cg
