// The folder with one file of credentials for each user of the store server.
//
// Each file is what VX_MOM_AUTH_FILE names, so that the daemon, a module or an operator is given just the one
// that it needs, and the server only ever sees digests.
#ifndef ACL_SECRETS_H
#define ACL_SECRETS_H

#include <string>
#include <string_view>

namespace cg
{

// Where a user's credentials are.
std::string secret_path(const std::string &folder, const std::string &user);

// The digest of a user's password, as the server wants it. Throws Failure when the file is missing, readable
// for others, or another user's; a missing one names --create.
std::string secret_digest(const std::string &folder, const std::string &user);

// Makes a user's file with a password drawn at random, mode 0600, unless there is something of that name.
// Returns whether it was made. Throws Failure.
bool create_secret(const std::string &folder, const std::string &user);

// SHA-256, as 64 lower-case hexadecimal digits.
std::string sha256_hex(std::string_view bytes);

} // namespace cg

#endif
