// Passwords as they are kept, and secrets that nobody can guess.
#pragma once

#include <string>

namespace accounts {

// 256 bits from the kernel, as 43 characters of base64url. "" when the kernel has none to give.
std::string NewSecret();

// Is this text of the form that NewSecret gives?
bool IsSecret(const std::string& text);

// SHA-256 in hexadecimal digits: the name under which a secret is kept. "" without libsodium.
std::string DigestOf(const std::string& secret);

// Takes the same time wherever two texts of one length differ.
bool SameSecret(const std::string& one, const std::string& other);

// Argon2id with a salt of its own, in the usual "$argon2id$..." form. "" when it cannot be
// computed.
std::string HashPassword(const std::string& password);

// Does the password belong to the hash? An empty hash stands for an account that does not exist:
// false, after as long as it takes with any other.
bool MatchesPassword(const std::string& hash, const std::string& password);

}  // namespace accounts
