/*
 * The schemas' key attributes and their list of messages, over the table that protoc-gen-vxkey generates.
 */
#include "vx_mom_schema.h"

#include <stddef.h>

#include "schema_registry.h"

struct key_field {
    uint32_t number;
    int32_t attribute;
};

struct key_message {
    const ProtobufCMessageDescriptor *descriptor;
    const struct key_field *fields;
    size_t field_count;
};

#include "vx_mom_schema_table.h"

#define MESSAGE_COUNT (sizeof key_messages / sizeof key_messages[0])

int32_t vx_mom_key_attribute(const ProtobufCMessageDescriptor *message, uint32_t field_number)
{
    for (size_t i = 0; i < MESSAGE_COUNT; i++) {
        if (key_messages[i].descriptor != message) {
            continue;
        }
        for (size_t j = 0; j < key_messages[i].field_count; j++) {
            if (key_messages[i].fields[j].number == field_number) {
                return key_messages[i].fields[j].attribute;
            }
        }
        return -1;
    }
    return -1;
}

size_t schema_registry_count(void)
{
    return MESSAGE_COUNT;
}

const ProtobufCMessageDescriptor *schema_registry_at(size_t position)
{
    return position < MESSAGE_COUNT ? key_messages[position].descriptor : NULL;
}
