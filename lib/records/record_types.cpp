// The record types by name.
#include "records/record_types.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "base/failure.h"
#include "base/text.h"
#include "records/databases.h"
#include "schema_registry.h"
#include "vx_mom_schema.h"

namespace cg
{

namespace
{

constexpr int32_t key_attribute = 2;

struct Home {
    std::string_view type;
    int32_t db;
};

constexpr std::array homes{
    Home{"p_dev.card_info", card_database},
    Home{"p_dev.dp_lib_grole", card_database},
    Home{"p_dev.dm_set_card_custom_st", device_database},
    Home{"p_libpub.app_cg_card_check_info", card_database},
    Home{"p_libpub.app_cg_card_check_ack", card_database},
    Home{"p_libpub.app_cg_mom_deny_check_result", card_database},
    Home{"p_libpub.app_cg_card_deny_check_result", result_database},
    Home{"p_libpub.app_cg_card_bak_info", card_database},
    Home{"s_dev.im_card_power_onoff", device_database},
};

const ProtobufCFieldDescriptor *index_of(const ProtobufCMessageDescriptor *message)
{
    for (unsigned i = 0; i < message->n_fields; ++i) {
        if (vx_mom_key_attribute(message, message->fields[i].id) == key_attribute) {
            return &message->fields[i];
        }
    }
    return nullptr;
}

std::vector<RecordType> collect()
{
    std::vector<RecordType> types;
    for (std::size_t i = 0; i < schema_registry_count(); ++i) {
        const ProtobufCMessageDescriptor *message = schema_registry_at(i);
        const RecordType type{message, index_of(message), home_of(*message)};
        if (type.index != nullptr || type.db >= 0) {
            types.push_back(type);
        }
    }
    return types;
}

std::string last_part(std::string_view name)
{
    return std::string(name.substr(name.rfind('.') + 1));
}

} // namespace

const ProtobufCMessageDescriptor *RecordType::key() const
{
    return index == nullptr ? nullptr : static_cast<const ProtobufCMessageDescriptor *>(index->descriptor);
}

int32_t home_of(const ProtobufCMessageDescriptor &type)
{
    const auto *found =
        std::find_if(homes.begin(), homes.end(), [&](const Home &home) { return home.type == type.name; });
    return found == homes.end() ? -1 : found->db;
}

const std::set<int32_t> &databases()
{
    static const std::set<int32_t> all = [] {
        std::set<int32_t> found;
        for (const Home &home : homes) {
            found.insert(home.db);
        }
        return found;
    }();
    return all;
}

const std::vector<RecordType> &record_types()
{
    static const std::vector<RecordType> types = collect();
    return types;
}

const RecordType &record_type(const std::string &name)
{
    std::vector<const RecordType *> found;
    std::vector<std::string> names;
    for (const RecordType &type : record_types()) {
        if (name == type.name()) {
            return type;
        }
        names.push_back(last_part(type.name()));
        if (name == names.back()) {
            found.push_back(&type);
        }
    }
    if (found.size() == 1) {
        return *found.front();
    }
    throw Failure(wrong_usage,
                  "unknown record type " + in_quotes(name) + "; " + suggestion(last_part(name), names));
}

} // namespace cg
