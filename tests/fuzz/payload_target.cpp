// The published form of a change. A client that may publish on a channel sends what it likes; what is
// accepted must be just what the server's functions write, so that nothing can mean two things.
#include "store/codec/payload.h"

#include "fuzz.h"

namespace
{

void append_item(std::string &payload, const std::string &item)
{
    payload += std::to_string(item.size()) + ':' + item;
}

std::string encoded(const store::PublishedChange &change)
{
    std::string payload;
    append_item(payload, std::to_string(change.revision));
    append_item(payload, std::to_string(change.command));
    append_item(payload, std::to_string(change.fields.size() + (change.mark.empty() ? 0 : 1)));
    for (const auto &[name, value] : change.fields) {
        append_item(payload, name);
        append_item(payload, value);
    }
    if (!change.mark.empty()) {
        append_item(payload, std::string(store::writer_field));
        append_item(payload, change.mark);
    }
    return payload;
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string payload(fuzz::view_of(data, size));
    store::PublishedChange change;
    change.key = "the caller's";
    change.fields.emplace_back("of an", "earlier change");
    change.mark = "of an earlier change";
    if (store::decode_change(payload, change)) {
        fuzz::require(encoded(change) == payload, "a payload that decodes is the one that is written");
    }
    fuzz::require(change.key == "the caller's", "the key is left alone");
    return 0;
}
