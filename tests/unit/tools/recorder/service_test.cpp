// The recorder as a process, on a store server of its own.
#include "service.h"

#include <gmock/gmock.h>

#include <array>
#include <csignal>
#include <iostream>

#include "base/failure.h"
#include "history/reader.h"
#include "loop/loop.h"
#include "records/record_text.h"
#include "records/record_types.h"
#include "store/client.h"
#include "unit/support/child.h"
#include "unit/support/store_test.h"

namespace recorder
{

namespace
{

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

class ServiceTest : public cg::StoreTest
{
protected:
    [[nodiscard]] Options options() const
    {
        Options options;
        options.settings.history = folder_.path("h");
        options.settings.modules = folder_.path("modules");
        options.settings.service_log = folder_.path("life");
        return options;
    }
    [[nodiscard]] std::unique_ptr<cg::Child> start(const Options &options) const
    {
        return std::make_unique<cg::Child>([&] {
            cg::Output output{std::cout, std::cerr};
            output.program = "recorder";
            try {
                serve(output, options);
                return 0;
            } catch (const cg::Failure &failure) {
                output.error(failure.what());
                return int{failure.status()};
            }
        });
    }
    [[nodiscard]] std::unique_ptr<cg::Child> start() const { return start(options()); }
    // Has the store hold these fields of a record of database 1.
    void write(const char *type, const cg::Json &fields)
    {
        const cg::MessagePtr record = cg::from_json(*cg::record_type(type).descriptor, fields);
        const store::Status status = client_.set(1, *record);
        ASSERT_TRUE(status) << status.reason;
    }
    void plug(const char *name)
    {
        write("card_info", {{"index", position}, {"is_online", true}, {"name", name}});
    }
    void ask() { write("app_cg_card_check_info", {{"index", position}}); }
    [[nodiscard]] history::Reader file() const { return history::Reader(folder_.path("h")); }

    const cg::Json position{{"devid", 1}, {"slotid", 3}};
    platform::Loop loop_{"service_test"};
    store::Client client_{loop_.context()};
};

} // namespace

TEST_F(ServiceTest, RecordsWhatStandsAndWhatChanges)
{
    plug("first");
    const auto recorder = start();
    ASSERT_TRUE(recorder->says("subscribed; following 1 positions\n")) << recorder->err();
    EXPECT_THAT(recorder->err(), HasSubstr("recorder: recording into " + folder_.path("h") + "\n"));
    EXPECT_THAT(recorder->err(), Not(HasSubstr("metrics"))) << "they are off";
    ask();
    ASSERT_TRUE(cg::eventually([&] { return file().open_checks().size() == 1; })) << recorder->err();
    EXPECT_EQ(file().open_checks()[0].card.name, "first");
    EXPECT_TRUE(file().open_checks()[0].requested_at) << "it is news";
    const cg::MessagePtr request =
        cg::from_json(*cg::record_type("app_cg_card_check_info").descriptor, {{"index", position}});
    ASSERT_TRUE(client_.erase(1, *request));
    ASSERT_TRUE(cg::eventually([&] { return file().open_checks().empty(); }));
    EXPECT_THAT(file().gaps({}, {}), IsEmpty());
    ask();
    ASSERT_TRUE(cg::eventually([&] { return file().open_checks().size() == 1; }));
    const auto before = file().alive_at();
    recorder->send(SIGTERM);
    EXPECT_EQ(recorder->wait(), 0);
    EXPECT_THAT(recorder->err(), HasSubstr("recorder: stopped\n"));
    EXPECT_GT(file().alive_at(), before) << "its end is its last heartbeat";
}

TEST_F(ServiceTest, WaitsForItsStoreAndSurvivesItsLoss)
{
    stop_server();
    const auto recorder = start();
    ASSERT_TRUE(recorder->says("the store does not answer yet, databases 1 and 33; reconnecting"));
    EXPECT_THAT(recorder->err(), HasSubstr(folder_.path("store"))) << "where it is, and why not";
    EXPECT_THAT(recorder->err(), HasSubstr("No such file or directory"));
    start_server();
    ASSERT_TRUE(recorder->says("subscribed; following 0 positions\n")) << recorder->err();
    stop_server();
    ASSERT_TRUE(recorder->says("lost the store, database 1: ")) << recorder->err();
    ASSERT_TRUE(recorder->says("lost the store, database 33: ")) << recorder->err();
    ASSERT_TRUE(recorder->says("the store has not answered since ")) << recorder->err();
    start_server();
    ASSERT_TRUE(recorder->says("the store is back, database 1, with other data than before\n"));
    plug("late");
    ask();
    ASSERT_TRUE(cg::eventually([&] { return !file().open_checks().empty(); })) << recorder->err();
    ASSERT_TRUE(cg::eventually([&] { return file().gaps({}, {}).back().until.has_value(); }));
    const std::vector<history::Gap> gaps = file().gaps({}, {});
    ASSERT_THAT(gaps, SizeIs(2)) << "one for both databases each time";
    EXPECT_LE(*gaps[0].until, gaps[1].from);
    EXPECT_LT(gaps[1].from, *gaps[1].until);
}

TEST_F(ServiceTest, RecordsWithoutTheServerOfAnotherDatabase)
{
    cg::GlobalStore global;
    global.kill();
    const auto recorder = start();
    const std::string host = " at " + server_.endpoint();
    ASSERT_TRUE(recorder->says("subscribed; following 0 positions, database 1" + host + "\n"))
        << recorder->err();
    const std::string where = "database 33 at " + global.endpoint();
    ASSERT_TRUE(recorder->says("the store does not answer yet, " + where + "; reconnecting\n"));
    plug("first");
    ask();
    ASSERT_TRUE(cg::eventually([&] { return file().open_checks().size() == 1; })) << recorder->err();
    EXPECT_TRUE(file().open_checks()[0].requested_at) << "it is news";
    global.start();
    ASSERT_TRUE(recorder->says("subscribed to " + where + "\n")) << recorder->err();
    global.stop();
    ASSERT_TRUE(recorder->says("the store has not answered since ")) << recorder->err();
    global.start();
    ASSERT_TRUE(recorder->says("the store is back, " + where)) << recorder->err();
    EXPECT_THAT(file().gaps({}, {}), IsEmpty());
    stop_server();
    ASSERT_TRUE(recorder->says("lost the store, database 1: ")) << recorder->err();
    EXPECT_TRUE(cg::eventually([&] { return file().gaps({}, {}).size() == 1; }));
}

TEST_F(ServiceTest, ARecordThatDoesNotDecodeIsAGap)
{
    const auto recorder = start();
    ASSERT_TRUE(recorder->says("subscribed; following 0 positions\n")) << recorder->err();
    plug("first");
    ASSERT_THAT(tell_server("SELECT 1\r\nHSET p_dev.card_info:0:1:3:0 6 junk\r\n"),
                testing::StartsWith("+OK\r\n:"));
    const cg::MessagePtr record =
        cg::from_json(*cg::record_type("card_info").descriptor, {{"index", position}, {"name", "second"}});
    constexpr std::array name_field{8};
    (void)client_.set_fields(1, *record, name_field);
    ASSERT_TRUE(recorder->says("cannot decode the record p_dev.card_info:0:1:3:0: ")) << recorder->err();
    ASSERT_TRUE(cg::eventually([&] { return !file().gaps({}, {}).empty(); }));
    EXPECT_EQ(file().gaps({}, {})[0].why, "a record could not be read");
}

TEST_F(ServiceTest, WrongSettingsAreWrongUsage)
{
    setenv("VX_MOM_ENDPOINT", "nowhere", 1);
    const auto recorder = start();
    EXPECT_EQ(recorder->wait(), cg::wrong_usage);
    EXPECT_THAT(recorder->err(),
                HasSubstr("recorder: cannot use database 1 of the store: endpoint 'nowhere' "));
    EXPECT_THAT(recorder->err(), Not(HasSubstr("store client"))) << "once is enough";
}

TEST_F(ServiceTest, ServesMetricsOrEnds)
{
    Options with_metrics = options();
    with_metrics.listen = "127.0.0.1:0";
    const auto first = start(with_metrics);
    ASSERT_TRUE(first->says("/metrics\n")) << first->err();
    const std::string url = "http://127.0.0.1:";
    const std::size_t at = first->err().find(url);
    ASSERT_NE(at, std::string::npos) << first->err();
    const std::string port =
        first->err().substr(at + url.size(), first->err().find('/', at + url.size()) - at - url.size());
    with_metrics.listen = "127.0.0.1:" + port;
    with_metrics.settings.history = folder_.path("other");
    const auto second = start(with_metrics);
    EXPECT_EQ(second->wait(), cg::failed);
    EXPECT_THAT(second->err(), HasSubstr("metrics cannot be served at 127.0.0.1:" + port + ": "));
    EXPECT_THAT(second->err(), Not(HasSubstr(port + ": ;")));
    EXPECT_THAT(second->err(), HasSubstr("; choose an address and a free port by --listen, or off\n"));
}

} // namespace recorder
