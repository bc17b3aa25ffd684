// Which record types the tracker wants to hear of, and whose existing records were notified of.
#include "admission/in_place.h"

#include <algorithm>
#include <utility>

#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"
#include "records/record_types.h"
#include "s_dev.pb-c.h"

namespace admission
{

const std::array<TrackedType, 7> &tracked_types()
{
    const auto type = [](const ProtobufCMessageDescriptor &descriptor) {
        return TrackedType{&descriptor, cg::record_type(descriptor.name).db};
    };
    static const std::array<TrackedType, 7> types{
        {type(p_dev__dp_lib_grole__descriptor), type(p_dev__card_info__descriptor),
         type(p_libpub__app_cg_card_check_info__descriptor),
         type(p_libpub__app_cg_card_check_ack__descriptor),
         type(p_libpub__app_cg_mom_deny_check_result__descriptor),
         type(p_dev__dm_set_card_custom_st__descriptor), type(s_dev__im_card_power_onoff__descriptor)}};
    return types;
}

const std::set<int32_t> &tracked_databases()
{
    static const std::set<int32_t> databases = [] {
        std::set<int32_t> all;
        for (const TrackedType &type : tracked_types()) {
            all.insert(type.db);
        }
        return all;
    }();
    return databases;
}

void InPlace::told(const ProtobufCMessageDescriptor *type)
{
    types_.insert(type);
}

void InPlace::lost(int32_t db)
{
    waits_.erase(db);
    for (const TrackedType &type : tracked_types()) {
        if (type.db == db) {
            types_.erase(type.descriptor);
        }
    }
}

bool InPlace::is_complete(int32_t db) const
{
    const auto &all = tracked_types();
    return std::all_of(all.begin(), all.end(), [&](const TrackedType &type) {
        return type.db != db || types_.contains(type.descriptor);
    });
}

bool InPlace::is_complete() const
{
    return types_.size() == tracked_types().size();
}

std::vector<const ProtobufCMessageDescriptor *> InPlace::overdue(int32_t db, cg::Time now)
{
    constexpr std::chrono::seconds patience{10};
    if (is_complete(db)) {
        waits_.erase(db);
        return {};
    }
    Wait &wait = waits_.try_emplace(db, Wait{now}).first->second;
    wait.since = std::min(now, wait.since); // the clock may be set back
    if (now - wait.since < patience || std::exchange(wait.is_reported, true)) {
        return {};
    }
    std::vector<const ProtobufCMessageDescriptor *> missing;
    for (const TrackedType &type : tracked_types()) {
        if (type.db == db && !types_.contains(type.descriptor)) {
            missing.push_back(type.descriptor);
        }
    }
    return missing;
}

} // namespace admission
