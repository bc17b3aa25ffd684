// A module in virtual time, beside a store in memory.
#include "module_fixture.h"

#include <algorithm>

#include "p_libpub.pb-c.h"

namespace kit_test
{

namespace
{

PDev__CardInfoIndex index_of(int32_t slot)
{
    PDev__CardInfoIndex index = P_DEV__CARD_INFO_INDEX__INIT;
    index.devid = 1;
    index.slotid = slot;
    return index;
}

void with_request(int32_t slot, int32_t type, const std::function<void(const ProtobufCMessage &)> &use)
{
    PDev__CardInfoIndex index = index_of(slot);
    PLibpub__AppCgCardCheckInfo request = P_LIBPUB__APP_CG_CARD_CHECK_INFO__INIT;
    request.index = &index;
    request.type = type;
    request.node_type = P_DEV__DM_NODE_TYPE_E__DM_TYPE_LC;
    request.card_nodeid = 7;
    use(request.base);
}

} // namespace

ModuleTest::ModuleTest()
{
    fake_loop::reset();
    fake_store::reset();
}

kit::Log ModuleTest::log_to_lines()
{
    return {[this](int level, const std::string &text) {
                const std::lock_guard<std::mutex> guard(mutex_);
                lines_.push_back(std::to_string(level) + ' ' + text);
            },
            APP_CG_KIT_DEBUG};
}

void ModuleTest::serve(Examine examine, const std::function<void()> &story)
{
    kit::Module::Hooks hooks;
    hooks.check = [examine = std::move(examine)](const app_cg_kit_card_t & /*card*/,
                                                 app_cg_kit_check &check) { return examine(check); };
    kit::Module module("volt", std::nullopt, std::move(hooks), log_to_lines());
    fake_loop::on_run([&] {
        fake_store::connect();
        fake_loop::deliver();
        story();
    });
    EXPECT_EQ(module.run(false), 0);
}

void ModuleTest::request(int32_t slot, int32_t type)
{
    with_request(slot, type, fake_store::write);
    fake_loop::deliver();
}

void ModuleTest::withdraw(int32_t slot)
{
    with_request(slot, 0, fake_store::erase);
    fake_loop::deliver();
}

void ModuleTest::plug(int32_t slot, const CardInfo &card)
{
    PDev__CardInfoIndex index = index_of(slot);
    std::string name = card.name;
    std::string serial = card.serial;
    std::string type_name = "type " + std::to_string(card.type);
    PDev__CardStaticInfo static_info = P_DEV__CARD_STATIC_INFO__INIT;
    static_info.name = type_name.data();
    static_info.node_type = P_DEV__DM_NODE_TYPE_E__DM_TYPE_LC;
    PDev__CardInfo info = P_DEV__CARD_INFO__INIT;
    info.index = &index;
    info.name = name.data();
    info.serial = {serial.size(), reinterpret_cast<uint8_t *>(serial.data())};
    info.config_dev_type = card.type;
    info.card_nodeid = 7;
    info.is_online = card.online ? 1 : 0;
    info.static_info = &static_info;
    fake_store::write(info.base);
    fake_loop::deliver();
}

void ModuleTest::pull(int32_t slot)
{
    PDev__CardInfoIndex index = index_of(slot);
    PDev__CardInfo info = P_DEV__CARD_INFO__INIT;
    info.index = &index;
    fake_store::erase(info.base);
    fake_loop::deliver();
}

Strings ModuleTest::answers()
{
    Strings found;
    fake_store::for_each(p_libpub__app_cg_card_check_ack__descriptor, [&](const ProtobufCMessage &message) {
        const auto &answer = reinterpret_cast<const PLibpub__AppCgCardCheckAck &>(message);
        EXPECT_STREQ(answer.index->mod_name, "volt");
        EXPECT_EQ(answer.index->devid, 1);
        const std::string reason = answer.reason == nullptr ? "" : answer.reason;
        found.push_back(std::to_string(answer.index->slotid) + (answer.ret == 0 ? " PASS" : " DENY") +
                        (reason.empty() ? "" : ' ' + reason));
    });
    return found;
}

Strings ModuleTest::take_answers()
{
    Strings found = answers();
    std::vector<PLibpub__AppCgCardCheckAckIndex> keys;
    fake_store::for_each(p_libpub__app_cg_card_check_ack__descriptor, [&](const ProtobufCMessage &message) {
        PLibpub__AppCgCardCheckAckIndex key = P_LIBPUB__APP_CG_CARD_CHECK_ACK_INDEX__INIT;
        const auto &index = *reinterpret_cast<const PLibpub__AppCgCardCheckAck &>(message).index;
        key.devid = index.devid;
        key.slotid = index.slotid;
        key.t_sslotid = index.t_sslotid;
        keys.push_back(key);
    });
    std::string name = "volt";
    for (PLibpub__AppCgCardCheckAckIndex &key : keys) {
        key.mod_name = name.data();
        PLibpub__AppCgCardCheckAck answer = P_LIBPUB__APP_CG_CARD_CHECK_ACK__INIT;
        answer.index = &key;
        fake_store::erase(answer.base);
    }
    return found;
}

std::size_t ModuleTest::logged(const std::string &text) const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return static_cast<std::size_t>(std::count_if(lines_.begin(), lines_.end(), [&](const std::string &line) {
        return line.find(text) != std::string::npos;
    }));
}

std::string ModuleTest::log() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    std::string all;
    for (const std::string &line : lines_) {
        all += line + '\n';
    }
    return all;
}

} // namespace kit_test
