// Records that tests write.
#ifndef RECORDS_H
#define RECORDS_H

#include <string>

#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"

namespace store_test
{

// A card with its index; whatever points somewhere lives as long as this.
struct Card {
    Card(int32_t dev, int32_t slot, int32_t sslot, int32_t config_dev_type = 0);
    Card(const Card &) = delete;
    Card &operator=(const Card &) = delete;
    ~Card() = default;
    const ProtobufCMessage *message() const { return &record.base; }

    PDev__CardInfoIndex index;
    PDev__CardInfo record;
};

struct Ack {
    Ack(int32_t dev, int32_t slot, int32_t sslot, const char *module, int32_t ret = 0,
        const char *reason = "");
    Ack(const Ack &) = delete;
    Ack &operator=(const Ack &) = delete;
    ~Ack() = default;
    const ProtobufCMessage *message() const { return &record.base; }

    PLibpub__AppCgCardCheckAckIndex index;
    PLibpub__AppCgCardCheckAck record;

private:
    std::string module_;
    std::string reason_;
};

} // namespace store_test

#endif
