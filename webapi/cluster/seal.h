// Seals texts so that only holders of a key can read or make them.
#pragma once

#include <optional>
#include <string>

#include "webapi/cluster/cluster_keys.h"

namespace webapi {

// Encrypts and authenticates `content` as base64url. The result opens only under the same `name`.
// The same arguments give the same text. Returns "" without libsodium.
std::string Seal(const ClusterKey& key, const std::string& name, const std::string& content);

// The content of such a text. Returns nothing if it was made with another key or name, or altered.
std::optional<std::string> Unseal(const ClusterKey& key, const std::string& name,
                                  const std::string& text);

// A secret in the form of accounts::NewSecret that follows from `text` and that only holders of the
// key can compute. Returns "" without libsodium.
std::string DeriveSecret(const ClusterKey& key, const std::string& text);

}  // namespace webapi
