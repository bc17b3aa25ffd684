// Record keys. Whatever text is taken for a key of a type is the very text that the type's record is written
// under: with two spellings the server would have two records where the reader sees one.
#include "store/codec/key.h"

#include "fuzz.h"
#include "schema_registry.h"
#include "store/codec/value.h"

namespace
{

using fuzz::require;

// Whether the text is a key of this type.
bool check(const ProtobufCMessageDescriptor &type, const std::string &key)
{
    std::string wire = "before";
    if (!store::decode_key(type, key, wire)) {
        return false;
    }
    require(wire.substr(0, 6) == "before", "decode_key only appends", key);
    wire.erase(0, 6);
    const store::MessagePtr record(protobuf_c_message_unpack(&type, nullptr, wire.size(),
                                                             reinterpret_cast<const uint8_t *>(wire.data())));
    require(record != nullptr, "the wire bytes of a key unpack", key);
    require(store::encode_key(*record) == key, "a key that decodes is the one that is written", key);
    for (size_t count = 0; count <= store::key_field_count(type); ++count) {
        const std::string prefix = store::encode_key_prefix(*record, count);
        require(key.compare(0, prefix.size(), prefix) == 0, "a key begins with each of its prefixes", key);
    }
    return true;
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string key(fuzz::view_of(data, size));
    int types = 0;
    for (size_t i = 0; i < schema_registry_count(); ++i) {
        types += check(*schema_registry_at(i), key) ? 1 : 0;
    }
    require(types <= 1, "a key is of one type", key);
    return 0;
}
