// The secret that the boxes of a cluster share.
//
// With a key, each address of a stream carries a sealed ticket, and every box with the same key can
// make the stream from it (docs/boxes.md). The file holds one key a line, so that a key can be
// changed while streams run: the first one seals, and each of them opens.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace webapi {

using ClusterKey = std::array<unsigned char, 32>;

struct ClusterKeys {
  std::vector<ClusterKey> keys;
  std::string problem;  // a sentence; "" if the file is good
};

// Reads a key: 43 characters of base64url. Nothing for any other text.
std::optional<ClusterKey> ParseClusterKey(const std::string& text);

// Reads a key file: lines of 43 characters of base64url. It must belong to this process's user and
// be closed to all others.
ClusterKeys ReadClusterKeys(const std::string& path);

// A new key, as a line of such a file. "" if the kernel provides no random bits.
std::string NewClusterKey();

// The keys in the file that MIREVO_CLUSTER_KEY names in the environment. Empty without the
// variable, and, with a log line, if the file cannot be used.
const std::vector<ClusterKey>& OwnClusterKeys();

// Is this service one box of a cluster? Also true if its key file cannot be used.
bool IsInCluster();

}  // namespace webapi
