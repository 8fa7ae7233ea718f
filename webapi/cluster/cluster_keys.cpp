#include "webapi/cluster/cluster_keys.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "accounts/secrets.h"
#include "platform/io.h"
#include "platform/log.h"
#include "util/base64_url.h"

namespace webapi {
namespace {

constexpr mode_t kOthers = S_IRWXG | S_IRWXO;
constexpr size_t kLargest = 65536;

ClusterKeys Problem(const std::string& path, const std::string& problem) {
  return {{}, "The cluster_key " + path + " " + problem + "."};
}

ClusterKeys ParseKeys(const std::string& path, const std::string& text) {
  ClusterKeys read;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const auto key = ParseClusterKey(line);
    if (!key) {
      return Problem(path, "holds a line that is no key; mirevo cluster key makes one");
    }
    read.keys.push_back(*key);
  }
  return read.keys.empty() ? Problem(path, "is empty; mirevo cluster key makes a key") : read;
}

bool IsPrivate(const struct stat& status) {
  return S_ISREG(status.st_mode) && status.st_uid == geteuid() && (status.st_mode & kOthers) == 0;
}

const char* KeyPath() {
  return secure_getenv("MIREVO_CLUSTER_KEY");
}

std::vector<ClusterKey> LoadOwnKeys() {
  const ClusterKeys read = KeyPath() != nullptr ? ReadClusterKeys(KeyPath()) : ClusterKeys{};
  if (!read.problem.empty()) {
    ORVO_LOG("%s", read.problem.c_str());
  }
  return read.keys;
}

}  // namespace

std::optional<ClusterKey> ParseClusterKey(const std::string& text) {
  const auto bytes = orvo::FromBase64Url(text);
  ClusterKey key{};
  if (!bytes || bytes->size() != key.size()) {
    return std::nullopt;
  }
  std::copy(bytes->begin(), bytes->end(), key.begin());
  return key;
}

ClusterKeys ReadClusterKeys(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    return Problem(path, std::string("cannot be read: ") + std::strerror(errno));
  }
  const auto text = IsPrivate(status) ? orvo::ReadOwnFile(path, kLargest) : std::nullopt;
  return text ? ParseKeys(path, *text)
              : Problem(path, "must be a file of the service's own user with the mode 0600");
}

std::string NewClusterKey() {
  return accounts::NewSecret();
}

const std::vector<ClusterKey>& OwnClusterKeys() {
  static const std::vector<ClusterKey> keys = LoadOwnKeys();
  return keys;
}

bool IsInCluster() {
  return KeyPath() != nullptr;
}

}  // namespace webapi
