/*
 * The list of all messages of the schemas, generated with them.
 *
 * It is no part of the porting surface: tools use it to find a record type by its name.
 */
#ifndef SCHEMA_REGISTRY_H
#define SCHEMA_REGISTRY_H

#include <protobuf-c/protobuf-c.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The number of messages, index messages and other sub-messages included. */
size_t schema_registry_count(void);

/* The message at a position below schema_registry_count(); null beyond. */
const ProtobufCMessageDescriptor *schema_registry_at(size_t position);

#ifdef __cplusplus
}
#endif

#endif
