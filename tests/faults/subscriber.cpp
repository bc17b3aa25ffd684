// A subscriber like the daemon, that tells what it is told: a line for each notification, loss and return.
//
//     fault_subscriber NAME DATABASE TYPE
//
// It does what the daemon does at a return: it subscribes again after change type 2, and ends with status 77
// after any other. Revisions are not visible to a subscriber; the writers of the test put a running number
// into every record instead, and the whole content is printed, so that one line can be compared with one
// write.
//
//     set KEY NUMBER CONTENT      fields KEY NUMBER CONTENT      deleted KEY NUMBER CONTENT
//     subscribed                  lost                           back TYPE            error CODE
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"
#include "vx_mom.h"
#include "vx_thread.h"

namespace
{

constexpr int start_afresh = 77;

struct Subscriber {
    vx_global_t *global = nullptr;
    int32_t database = 0;
    bool cards = false; // otherwise acknowledgements
};

Subscriber self;

std::string text_of(const char *text)
{
    return text == nullptr ? std::string() : text;
}

// Key, number and content of a card. What only makes the record long is printed by its length.
std::string card_text(const PDev__CardInfo &card)
{
    const PDev__CardInfoIndex &at = *card.index;
    return std::to_string(at.t_mod) + ':' + std::to_string(at.devid) + ':' + std::to_string(at.slotid) + ':' +
           std::to_string(at.sslotid) + ' ' + std::to_string(card.config_dev_type) +
           " 12=" + text_of(card.name) + ",15=" + std::to_string(card.user_slot) +
           ",17=" + std::to_string(card.card_nodeid) + ",20=" + std::to_string(card.serial.len);
}

std::string ack_text(const PLibpub__AppCgCardCheckAck &ack)
{
    const PLibpub__AppCgCardCheckAckIndex &at = *ack.index;
    return std::to_string(at.devid) + ':' + std::to_string(at.slotid) + ':' + std::to_string(at.t_sslotid) +
           ':' + text_of(at.mod_name) + ' ' + std::to_string(ack.ret_flag) + " 6=" + std::to_string(ack.ret) +
           ",7=" + std::to_string(text_of(ack.reason).size());
}

std::string record_text(const ProtobufCMessage *record)
{
    return self.cards ? card_text(*reinterpret_cast<const PDev__CardInfo *>(record))
                      : ack_text(*reinterpret_cast<const PLibpub__AppCgCardCheckAck *>(record));
}

void print(const char *what, const std::string &rest = std::string())
{
    std::printf("%s%s%s\n", what, rest.empty() ? "" : " ", rest.c_str());
    std::fflush(stdout);
}

int32_t on_notification(void * /*arg*/, vx_mom_pmsg_t *pmsg)
{
    switch (pmsg->cmd) {
    case VX_MOM_CMD_SUBSCRIBED:
        print("subscribed");
        break;
    case VX_MOM_CMD_DELETED:
        print("deleted", record_text(pmsg->record));
        break;
    case VX_MOM_CMD_SET:
    case VX_MOM_CMD_HMSET:
        if (pmsg->result->error_code != 0) {
            print("error", std::to_string(pmsg->result->error_code));
        } else {
            print(pmsg->cmd == VX_MOM_CMD_SET ? "set" : "fields", record_text(pmsg->result->record));
        }
        break;
    default:
        print("unknown", std::to_string(pmsg->cmd));
        break;
    }
    return 0;
}

int32_t subscribe()
{
    PDev__CardInfoIndex card_index = P_DEV__CARD_INFO_INDEX__INIT;
    PDev__CardInfo card = P_DEV__CARD_INFO__INIT;
    card.index = &card_index;
    PLibpub__AppCgCardCheckAckIndex ack_index = P_LIBPUB__APP_CG_CARD_CHECK_ACK_INDEX__INIT;
    PLibpub__AppCgCardCheckAck ack = P_LIBPUB__APP_CG_CARD_CHECK_ACK__INIT;
    ack.index = &ack_index;
    return vx_mom_subscribe(self.global, self.database, self.cards ? &card.base : &ack.base, 0,
                            on_notification, nullptr);
}

int32_t on_connected(void * /*first*/, void * /*second*/)
{
    return subscribe();
}

int32_t on_lost(void * /*first*/, int32_t /*db*/)
{
    print("lost");
    return 0;
}

int32_t on_back(void * /*first*/, int32_t /*db*/, int32_t type)
{
    print("back", std::to_string(type));
    if (type != 2) {
        std::exit(start_afresh);
    }
    return subscribe();
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: fault_subscriber NAME DATABASE card|ack\n");
        return 2;
    }
    self.database = static_cast<int32_t>(std::strtol(argv[2], nullptr, 10));
    self.cards = std::strcmp(argv[3], "card") == 0;
    self.global = vx_global_init(argv[1], nullptr);
    const bool begun = self.global != nullptr &&
                       vx_mom_client_connect_sync(self.global, self.database) == 0 &&
                       vx_mom_client_connect(self.global, self.database, on_connected, nullptr) == 0 &&
                       vx_mom_client_set_disconnect_cb(self.global, self.database, on_lost, nullptr) == 0 &&
                       vx_mom_client_set_reconnect_cb(self.global, self.database, on_back, nullptr) == 0;
    if (!begun) {
        std::fprintf(stderr, "fault_subscriber: no connection to the store\n");
        return 1;
    }
    const int32_t rv = vx_global_run(self.global);
    vx_global_finish(self.global);
    return rv == 0 ? 0 : 1;
}
