// The functions of the server: loaded by each client that connects, and what they do for any writer.
#include "store/functions.h"

#include "store/codec/names.h"
#include "store_client_fixture.h"

namespace
{

using store_test::Card;

class FunctionTest : public store_test::StoreClientTest
{
protected:
    // Calls a function on a card as another writer would.
    std::string call(std::vector<std::string> command)
    {
        const std::string type = "p_dev.card_info";
        command.insert(command.begin(), "FCALL");
        command.insert(command.begin() + 2, {"3", "p_dev.card_info:0:0:1:0", store::counter_key(type),
                                             store::index_key(type), store::channel_prefix(1)});
        return server.run(1, command);
    }

    const Card card{0, 1, 0, 1};
};

TEST_F(FunctionTest, AreThereOnceSomebodyHasConnected)
{
    ASSERT_EQ(vx_mom_client_connect_sync(global.get(), 1), 0);
    const std::string list = server.run(1, {"FUNCTION", "LIST"});
    for (const char *function : {store::set_function, store::hmset_function, store::del_function,
                                 store::pdel_function, store::register_function}) {
        EXPECT_THAT(list, testing::HasSubstr(std::string(function) + "\n")) << function;
    }
}

TEST_F(FunctionTest, AreLoadedAgainWhenTheyAreGone)
{
    ASSERT_EQ(vx_mom_set_sync(global.get(), 1, card.message()), 0);
    ASSERT_EQ(server.run(1, {"FUNCTION", "FLUSH"}), "OK");
    EXPECT_EQ(vx_mom_set_sync(global.get(), 1, Card(0, 1, 0, 2).message()), 0);
    EXPECT_EQ(server.run(1, {"HGET", "p_dev.card_info:0:0:1:0", "6"}), "2");
}

TEST_F(FunctionTest, OfAnotherVersionAreReplaced)
{
    ASSERT_EQ(vx_mom_set_sync(global.get(), 1, card.message()), 0);
    std::string other = store::library_code();
    other.replace(other.find("NOPERM"), 6, "NOWISH");
    ASSERT_EQ(server.run(1, {"FUNCTION", "LOAD", "REPLACE", other}), store::library_name);
    ASSERT_EQ(server.run(1, {"HSET", store::runs_key, "library", "of another version"}), "0");
    restart_client();
    ASSERT_EQ(vx_mom_client_connect_sync(global.get(), 1), 0);
    EXPECT_THAT(server.run(1, {"FUNCTION", "LIST", "WITHCODE"}), testing::HasSubstr("'NOPERM"));
    EXPECT_EQ(server.run(1, {"HGET", store::runs_key, "library"}), store::library_digest());
}

TEST_F(FunctionTest, AWriteThatIsRepeatedIsOneChange)
{
    connect(1);
    ASSERT_EQ(subscribe_cards(), 0);
    ASSERT_TRUE(run_until_event("29"));
    EXPECT_EQ(call({store::set_function, "mark-1", "6", "5"}), "1");
    EXPECT_EQ(call({store::set_function, "mark-1", "6", "5"}), "1");
    EXPECT_EQ(call({store::hmset_function, "mark-2", "2", "6", "6"}), "2");
    EXPECT_EQ(call({store::hmset_function, "mark-2", "2", "6", "6"}), "2");
    EXPECT_EQ(call({store::set_function, "mark-1", "6", "5"}), "3") << "by then it is another write";
    ASSERT_TRUE(run_until_event("4 0/1/0 type 5"));
    EXPECT_THAT(events, testing::ElementsAre("29", "4 0/1/0 type 5", "6 0/1/0 type 6", "4 0/1/0 type 5"));
}

TEST_F(FunctionTest, AFieldWithoutAValueChangesNothing)
{
    ASSERT_EQ(vx_mom_client_connect_sync(global.get(), 1), 0);
    ASSERT_EQ(call({store::set_function, "", "6", "5"}), "1");
    for (const std::vector<std::string> &wrong :
         std::vector<std::vector<std::string>>{{store::set_function, "", "6"},
                                               {store::set_function, "", "6", "1", "7"},
                                               {store::hmset_function, "", "1", "6", "1"},
                                               {store::hmset_function, "", "4", "6", "1", "7"},
                                               {store::hmset_function, "", "-2", "6", "1"},
                                               {store::hmset_function, "", "0.5", "6", "1"},
                                               {store::hmset_function, "", "two", "6", "1"},
                                               {store::hmset_function, ""}}) {
        EXPECT_THAT(call(wrong), testing::StartsWith("(error)")) << wrong.size();
    }
    std::vector<std::string> long_one{store::set_function, ""};
    long_one.resize(20000, "7");
    EXPECT_THAT(call(long_one), testing::StartsWith("(error)"));
    long_one.resize(4002);
    EXPECT_EQ(call(long_one), "2");
    EXPECT_EQ(server.run(1, {"HGET", "p_dev.card_info:0:0:1:0", "7"}), "7");
    EXPECT_EQ(server.run(1, {"GET", "@rev:p_dev.card_info"}), "2");
}

TEST_F(FunctionTest, AWriteWithoutAMarkIsAlwaysAnotherOne)
{
    ASSERT_EQ(vx_mom_client_connect_sync(global.get(), 1), 0);
    EXPECT_EQ(call({store::set_function, "", "6", "5"}), "1");
    EXPECT_EQ(call({store::set_function, "", "6", "5"}), "2");
    EXPECT_EQ(server.run(1, {"HEXISTS", "p_dev.card_info:0:0:1:0", "by"}), "0");
}

TEST_F(FunctionTest, LargeRevisionsKeepAllTheirDigits)
{
    ASSERT_EQ(server.run(1, {"SET", "@rev:p_dev.card_info", "900719925474098"}), "OK");
    ASSERT_EQ(vx_mom_set_sync(global.get(), 1, Card(0, 1, 0, 1).message()), 0);
    EXPECT_EQ(server.run(1, {"HGET", "p_dev.card_info:0:0:1:0", "rev"}), "900719925474099");
    connect(1);
    ASSERT_EQ(subscribe_cards(), 0);
    ASSERT_TRUE(run_until_event("29"));
    ASSERT_EQ(vx_mom_set_sync(global.get(), 1, Card(0, 1, 0, 2).message()), 0);
    EXPECT_TRUE(run_until_event("4 0/1/0 type 2"));
}

TEST_F(FunctionTest, AnyBytesTravelWithAChange)
{
    uint8_t bytes[256];
    for (size_t i = 0; i < sizeof bytes; i++) {
        bytes[i] = static_cast<uint8_t>(i);
    }
    Card sent(0, 1, 0, 1);
    sent.record.serial = {sizeof bytes, bytes};
    connect(1);
    std::string heard;
    const auto note = [](void *arg, vx_mom_pmsg_t *pmsg) -> int32_t {
        if (pmsg->result != nullptr) {
            const auto *record = reinterpret_cast<PDev__CardInfo *>(pmsg->result->record);
            static_cast<std::string *>(arg)->assign(reinterpret_cast<char *>(record->serial.data),
                                                    record->serial.len);
        }
        return 0;
    };
    ASSERT_EQ(vx_mom_subscribe(global.get(), 1, sent.message(), 0, note, &heard), 0);
    ASSERT_EQ(vx_mom_set_sync(global.get(), 1, sent.message()), 0);
    ASSERT_TRUE(run_until([&] { return !heard.empty(); }));
    EXPECT_EQ(heard, std::string(reinterpret_cast<char *>(bytes), sizeof bytes));
}

} // namespace
