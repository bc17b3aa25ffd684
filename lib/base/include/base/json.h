// JSON as the programs print it: fields in the order in which they were added.
#ifndef BASE_JSON_H
#define BASE_JSON_H

#include <nlohmann/json.hpp>
#include <string>

// Instantiated once, in json.cpp: it is most of what the compiler would do for every file here.
extern template class nlohmann::basic_json<nlohmann::ordered_map>;

namespace cg
{

using Json = nlohmann::ordered_json;

// The text of a JSON value on one line; bytes that are no UTF-8 become replacement characters.
std::string dump(const Json &json);

} // namespace cg

#endif
