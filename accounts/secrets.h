// Hashes of passwords, and random secrets.
#pragma once

#include <string>

namespace accounts {

// 256 random bits from the kernel, as 43 characters of base64url. "" if the kernel provides none.
std::string NewSecret();

// Does this text have the form of a secret from NewSecret?
bool IsSecret(const std::string& text);

// SHA-256 in hexadecimal digits; a secret is stored under this name. "" without libsodium.
std::string DigestOf(const std::string& secret);

// Compares two texts. For texts of the same length, the time does not depend on where they differ.
bool SameSecret(const std::string& one, const std::string& other);

// The Argon2id hash with a new salt, in the usual form "$argon2id$...". "" if it cannot be
// computed.
std::string HashPassword(const std::string& password);

// Does the password match the hash? An empty hash stands for an account that does not exist; the
// result is false after the same time as for any other hash.
bool MatchesPassword(const std::string& hash, const std::string& password);

}  // namespace accounts
