// Records that tests write; see the header.
#include "records.h"

namespace store_test
{

Card::Card(int32_t dev, int32_t slot, int32_t sslot, int32_t config_dev_type)
{
    p_dev__card_info_index__init(&index);
    p_dev__card_info__init(&record);
    index.devid = dev;
    index.slotid = slot;
    index.sslotid = sslot;
    record.index = &index;
    record.config_dev_type = config_dev_type;
}

Ack::Ack(int32_t dev, int32_t slot, int32_t sslot, const char *module, int32_t ret, const char *reason)
    : module_(module), reason_(reason)
{
    p_libpub__app_cg_card_check_ack_index__init(&index);
    p_libpub__app_cg_card_check_ack__init(&record);
    index.devid = dev;
    index.slotid = slot;
    index.t_sslotid = sslot;
    index.mod_name = module_.data();
    record.index = &index;
    record.ret = ret;
    record.reason = reason_.data();
}

} // namespace store_test
