// What is known of a card.
#ifndef KIT_FACTS_H
#define KIT_FACTS_H

#include <cstdint>
#include <string>
#include <vector>

#include "app_cg_kit.h"
#include "records/card_identity.h"
#include "records/position.h"

namespace kit
{

using cg::Position;

// A check request.
struct Request {
    Position position;
    int32_t type = 0;
    int32_t node_type = 0;
    int32_t node_id = 0;

    friend bool operator==(const Request &, const Request &) = default;
};

// A card with the device manager's information about it.
struct Facts {
    Request request;
    bool has_info = false;
    bool online = false;
    std::string name;
    std::string type_name;
    std::vector<uint8_t> serial;

    // Whether they are about one card, as far as the store can tell: an exchange within one slot leaves the
    // request as it was.
    [[nodiscard]] bool is_same_card(const Facts &other) const
    {
        return has_info == other.has_info && cg::has_same_identity(*this, other);
    }

    // The same for C; lives as long as this object and while it is not moved.
    [[nodiscard]] app_cg_kit_card_t view() const
    {
        app_cg_kit_card_t card{};
        card.devid = request.position.devid;
        card.slotid = request.position.slotid;
        card.sslotid = request.position.sslotid;
        card.type = request.type;
        card.node_type = request.node_type;
        card.node_id = request.node_id;
        if (has_info) {
            card.has_info = 1;
            card.online = online ? 1 : 0;
            card.name = name.c_str();
            card.type_name = type_name.c_str();
            card.serial = serial.data();
            card.serial_size = serial.size();
        }
        return card;
    }
};

} // namespace kit

#endif
