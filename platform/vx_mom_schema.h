/*
 * What a store client must know of the records beyond their descriptors.
 *
 * protobuf-c's descriptors keep no custom option, so the schemas bring their key attributes along as
 * code. It is generated with the schemas and linked into the daemon; any platform may call it.
 */
#ifndef VX_MOM_SCHEMA_H
#define VX_MOM_SCHEMA_H

#include <protobuf-c/protobuf-c.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The key attribute of a field.
 *
 * Returns 2 for the field that holds the record's key, 1 for a `t_` field, 0 for every other field, as
 * the schema says; -1 for an unknown message or field.
 */
int32_t vx_mom_key_attribute(const ProtobufCMessageDescriptor *message, uint32_t field_number);

#ifdef __cplusplus
}
#endif

#endif
