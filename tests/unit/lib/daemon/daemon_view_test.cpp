// What the daemon's dumps say, honest and forged.
#include "daemon/daemon_view.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>

#include <thread>

#include "loop/descriptor.h"
#include "shell/protocol.h"
#include "shell/socket.h"
#include "unit/support/folder.h"

namespace
{

using namespace cg;
using testing::ElementsAre;
using testing::IsEmpty;

// A debug shell that answers each connection with one of these, in their order; an empty one hangs up.
class Shell
{
public:
    Shell(const std::string &path, std::vector<ssat::Fields> replies)
    {
        int error = 0;
        EXPECT_TRUE(socket_.open(path, error)) << error;
        thread_ = std::thread([this, replies = std::move(replies)] {
            for (const ssat::Fields &reply : replies) {
                answer(reply);
            }
        });
    }
    ~Shell() { thread_.join(); }
    Shell(const Shell &) = delete;
    Shell &operator=(const Shell &) = delete;

private:
    void answer(const ssat::Fields &reply) const
    {
        constexpr int patience_ms = 20000;
        pollfd wanted{socket_.fd(), POLLIN, 0};
        ::poll(&wanted, 1, patience_ms);
        const platform::Descriptor client(accept4(socket_.fd(), nullptr, nullptr, SOCK_CLOEXEC));
        std::string header(ssat::header_size, '\0');
        recv(client.get(), header.data(), header.size(), MSG_WAITALL);
        std::string body(ssat::decode_header(header).value_or(0), '\0');
        recv(client.get(), body.data(), body.size(), MSG_WAITALL);
        const std::string frame = reply.empty() ? "" : ssat::encode(reply);
        send(client.get(), frame.data(), frame.size(), MSG_NOSIGNAL);
    }

    ssat::SocketFile socket_;
    std::thread thread_;
};

ssat::Fields printed(const std::string &output, const std::string &output_at = "")
{
    return {"ok", "0", output, output_at, "whole"};
}

std::string line(int slot, const std::string &reason, int count, int bits)
{
    return "node[0x00000067] config_dev_type[200] devid[1] slotid[" + std::to_string(slot) +
           "] sslotid[0] is_online[1] tipc_node[1003] node_type[3], dm_install[1] reported[0] reason[" +
           reason + "] stat[0] app_cg_wait_obj_num[" + std::to_string(count) + "] app_cg_wait_obj_bmp[" +
           std::to_string(bits) + "] timer[0x5581]\n";
}

const std::string heading = "===================CURRENT_NODE_INFO===================\n";
const std::vector<std::string> three{"m1", "m2", "m3"};

TEST(DaemonView, NamesTheModulesInTheOrderOfTheirBits)
{
    EXPECT_THAT(modules_in("app_cg_wait_obj_num 2\napp_cg_wait_obj_bmp 0x3\n"
                           "wait mod[0], name[m2]\nwait mod[1], name[m]1]\n"),
                ElementsAre("m2", "m]1"));
    EXPECT_THAT(modules_in("app_cg_wait_obj_num 0\napp_cg_wait_obj_bmp 0x0\n"), IsEmpty());
}

TEST(DaemonView, ABitSetIsAModuleWaitedFor)
{
    const auto cards = daemon_cards_in(heading + line(3, "", 3, 5) + line(4, "too hot", 3, 0), three);
    ASSERT_EQ(cards.size(), 2U);
    EXPECT_THAT(cards.at({1, 3, 0}).waiting_for, ElementsAre("m1", "m3"));
    const auto beyond = daemon_cards_in(line(3, "", 3, 15), three);
    EXPECT_THAT(beyond.at({1, 3, 0}).waiting_for, ElementsAre("m1", "m2", "m3")) << "bits without a module";
    EXPECT_THAT(cards.at({1, 4, 0}).waiting_for, IsEmpty());
    EXPECT_EQ(cards.at({1, 4, 0}).reason, "too hot");
}

TEST(DaemonView, BitsOfOtherModulesThanTodaysHaveNoNames)
{
    const auto cards = daemon_cards_in(heading + line(3, "", 2, 3), three);
    EXPECT_FALSE(cards.at({1, 3, 0}).names_known);
    EXPECT_THAT(cards.at({1, 3, 0}).waiting_for, IsEmpty());
}

TEST(DaemonView, AReasonMayHoldAnything)
{
    const std::string reason = "a\nb] stat[1] app_cg_wait_obj_num[3] app_cg_wait_obj_bmp[0] timer[0x1]\nc";
    const auto cards = daemon_cards_in(heading + line(3, reason, 3, 2) + line(4, "", 3, 1), three);
    ASSERT_EQ(cards.size(), 2U);
    EXPECT_EQ(cards.at({1, 3, 0}).reason, reason);
    EXPECT_THAT(cards.at({1, 3, 0}).waiting_for, ElementsAre("m2"));
}

TEST(DaemonView, OfAPositionThatIsNamedTwiceNothingIsBelieved)
{
    const auto cards =
        daemon_cards_in(heading + line(3, "x\n" + line(4, "", 3, 7), 3, 1) + line(4, "", 3, 1), three);
    EXPECT_FALSE(cards.contains({1, 4, 0}));
}

TEST(DaemonView, WhatIsNoDumpSaysNothing)
{
    for (const char *text :
         {"", "\n", "node[0x1] devid[1]", "node[0x00000067] devid[x] reason[] stat[0]",
          "node[0x1] devid[1] slotid[1] sslotid[0] reason[a] stat[0] app_cg_wait_obj_num[1]"}) {
        EXPECT_THAT(daemon_cards_in(text, three), IsEmpty()) << text;
    }
}

TEST(DaemonView, ModulesAndCardsAreAskedFor)
{
    const Folder folder;
    const Shell shell(folder.path("shell"), {printed("wait mod[0], name[m1]\n"), printed(line(3, "", 1, 1))});
    const DaemonView daemon = ask_daemon(folder.path("shell"));
    EXPECT_EQ(daemon.problem, "");
    EXPECT_FALSE(daemon.is_silent);
    EXPECT_THAT(daemon.modules, ElementsAre("m1"));
    ASSERT_EQ(daemon.cards.size(), 1U);
    EXPECT_THAT(daemon.cards.at({1, 3, 0}).waiting_for, ElementsAre("m1"));
}

TEST(DaemonView, ADaemonThatIsNotThereIsSilent)
{
    const Folder folder;
    const DaemonView daemon = ask_daemon(folder.path("nobody"));
    EXPECT_TRUE(daemon.is_silent);
    EXPECT_EQ(daemon.problem, folder.path("nobody") + ": no process listens there");
    EXPECT_EQ(silence_text(daemon),
              "the daemon does not answer, so cards that come now may start unchecked: " +
                  folder.path("nobody") + ": no process listens there");
}

TEST(DaemonView, OneThatAnswersOtherwiseIsNotSilent)
{
    const Folder folder;
    {
        const Shell shell(folder.path("shell"), {{}});
        const DaemonView daemon = ask_daemon(folder.path("shell"));
        EXPECT_FALSE(daemon.is_silent);
        EXPECT_NE(daemon.problem.find("without a whole answer"), std::string::npos) << daemon.problem;
    }
    const Shell shell(folder.path("shell"), {printed("", "/tmp/collect")});
    const DaemonView daemon = ask_for_modules(folder.path("shell"));
    EXPECT_FALSE(daemon.is_silent);
    EXPECT_EQ(daemon.problem, "the daemon's output has gone to its collect file since \"collect\"");
}

} // namespace
