// The scripts by which every change is one atomic step on the server.
//
// Each checks everything that could refuse it first (type of the keys, rights of the user), since scripts do
// not roll back; then writes, counts, indexes and publishes. A transaction of plain commands measures
// slightly faster, but cannot refuse as a whole and cannot publish content that it has to read first.
#ifndef VX_MOM_SCRIPTS_H
#define VX_MOM_SCRIPTS_H

#include <string>

namespace vx_mom
{

// A script and the name that the server knows it by.
struct Script {
    std::string body;
    std::string sha1;
};

// Replaces a record. KEYS: record, counter, index. ARGV: channel, then name and value of each field.
// Returns the change's revision.
const Script &set_script();

// Writes some fields. KEYS: record, counter, index. ARGV: channel, number of names and values together,
// those, then the names of the fields to remove. Returns the change's revision.
const Script &hmset_script();

// Deletes a record. KEYS: record, counter, index. ARGV: channel. Returns the change's revision, "0" when
// there was nothing to delete.
const Script &del_script();

// Deletes the records whose key begins with a prefix (or equals it). KEYS: counter, index. ARGV: channel,
// prefix, "1" when only the key that equals the prefix is meant. Returns the last change's revision, "0" when
// there was nothing to delete. The records' keys are found through the index, so they cannot be declared.
const Script &pdel_script();

} // namespace vx_mom

#endif
