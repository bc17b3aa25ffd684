// The device around the daemon; see the header.
#include "device.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "measure.h"

namespace bench
{

namespace
{

constexpr const char *card_type = "p_dev.card_info";
constexpr const char *ack_type = "p_libpub.app_cg_card_check_ack";
constexpr size_t pipeline_depth = 100;

// The packed description of a line card, as docs/store-format.md explains it.
const std::string &static_info()
{
    static const std::string packed("*\x03\b\xc8\x01"
                                    "0\x03"
                                    "B\x02lc");
    return packed;
}

Words call(const char *function, const std::string &type, const std::string &key)
{
    return {"FCALL", function, "3", key, "@rev:" + type, "@idx:" + type, "@chg:1:"};
}

std::string card_key_at(const Position &at)
{
    return std::string(card_type) + ":0:" + std::to_string(at.devid) + ":" + std::to_string(at.slot) + ":0";
}

std::string ack_key_at(const Position &at, int module)
{
    return std::string(ack_type) + ":" + std::to_string(at.devid) + ":" + std::to_string(at.slot) + ":0:m" +
           std::to_string(module);
}

// The numbers between the colons behind a type's name.
std::vector<int32_t> numbers_of(const std::string &key, size_t from)
{
    std::vector<int32_t> numbers;
    while (from < key.size()) {
        numbers.push_back(std::atoi(key.c_str() + from + 1));
        from = std::min(key.find(':', from + 1), key.size());
    }
    return numbers;
}

char command_of(const std::string &payload)
{
    const size_t colon = payload.find(':');
    const size_t at = colon + 1 + static_cast<size_t>(std::atoi(payload.c_str())) + 2;
    return at < payload.size() ? payload[at] : '0';
}

} // namespace

bool read_message(const redisReply &message, Heard &heard)
{
    constexpr size_t prefix = sizeof "@chg:1:" - 1;
    if (message.elements != 4 || text_of(*message.element[0]) != "pmessage") {
        return false;
    }
    const std::string key = text_of(*message.element[2]).substr(prefix);
    const size_t colon = key.find(':');
    heard.type = key.substr(0, colon);
    heard.command = command_of(text_of(*message.element[3]));
    const std::vector<int32_t> numbers = numbers_of(key, colon);
    // A result is named by its TIPC node, which plug() makes of the position.
    if (heard.type == verdict_type && numbers.size() == 1) {
        heard.at = {numbers[0] / 10000, numbers[0] % 10000};
    } else if (heard.type == ack_type && numbers.size() == 4) {
        heard.at = {numbers[0], numbers[1]};
    } else if (numbers.size() == 4) {
        heard.at = {numbers[1], numbers[2]};
    }
    return true;
}

Device::Device(const std::string &socket, int modules)
    : commands_(socket, host), events_(socket, host), modules_(modules)
{
    (void)client(socket, "bench_device"); // loads the functions
    const std::string role = "p_dev.dp_lib_grole";
    Words words = call("vx_mom2_set", role, role);
    words.insert(words.end(), {mark(), "6", "1"});
    (void)commands_.run(words);
    for (const char *type : {request_type, verdict_type}) {
        (void)events_.run({"PSUBSCRIBE", std::string("@chg:1:") + type + ":*"});
    }
}

void Device::plug(const std::vector<Position> &cards)
{
    std::vector<Prepared> calls;
    for (const Position &at : cards) {
        Words words = call("vx_mom2_set", card_type, card_key_at(at));
        const std::string node = std::to_string(at.devid * 10000 + at.slot);
        words.insert(words.end(), {mark(), "6", "200", "7", "1", "12", "card", "14", static_info(), "15", "3",
                                   "17", node, "22", node});
        calls.emplace_back(words);
    }
    commands_.pipeline(calls, pipeline_depth);
}

void Device::unplug(const std::vector<Position> &cards)
{
    std::vector<Prepared> calls;
    for (const Position &at : cards) {
        calls.emplace_back(call("vx_mom2_del", card_type, card_key_at(at)));
    }
    commands_.pipeline(calls, pipeline_depth);
}

void Device::pass(const Position &card)
{
    std::vector<Prepared> calls;
    for (int i = 1; i <= modules_; i++) {
        Words words = call("vx_mom2_set", ack_type, ack_key_at(card, i));
        words.push_back(mark());
        calls.emplace_back(words);
    }
    commands_.pipeline(calls, calls.size());
}

Heard Device::hear()
{
    Heard heard;
    while (!read_message(*events_.next(), heard)) {
    }
    return heard;
}

double Device::road(const Position &card)
{
    const double began = now_us();
    plug({card});
    for (;;) {
        const Heard heard = hear();
        if (heard.type != request_type || heard.at != card) {
            continue;
        }
        if (heard.command == '3') {
            return now_us() - began;
        }
        pass(card);
    }
}

double Device::road_of_its_own(const Position &card)
{
    const double began = now_us();
    plug({card});
    pass(card);
    const double spent = now_us() - began;
    std::vector<Prepared> calls;
    for (int i = 1; i <= modules_; i++) {
        calls.emplace_back(call("vx_mom2_del", ack_type, ack_key_at(card, i)));
    }
    commands_.pipeline(calls, calls.size());
    return spent;
}

std::string Device::mark()
{
    return "bench" + std::to_string(getpid()) + "." + std::to_string(++marks_);
}

} // namespace bench
