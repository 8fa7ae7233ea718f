#include "accounts/attempts.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <optional>

#include "accounts/secrets.h"
#include "platform/io.h"
#include "platform/plat.h"
#include "util/file_lock.h"
#include "util/number.h"
#include "util/private_folder.h"
#include "util/state_reading.h"

namespace accounts {
namespace {

constexpr char kFolder[] = "/run/mirevo/attempts";
constexpr char kLock[] = "/run/mirevo/attempts.lock";
constexpr int64_t kSweepSeconds = 24 * 3600;
constexpr size_t kLongestTime = 64;
constexpr size_t kNetworkBytes = 8;

std::string Folder() {
  return orvo::SystemPath(kFolder);
}

// The time when the bucket is full again. If that is later than for an empty bucket, the file is
// damaged or the clock was set back. Nothing if the file cannot be read now.
std::optional<int64_t> FullAt(const std::string& path, int64_t now, const Limit& limit) {
  const int64_t latest = now + int64_t{limit.tries} * limit.secondsPerTry;
  const auto text = orvo::ReadIfThere(path, kLongestTime);
  return text ? std::optional(std::clamp(LibOrvoQMX::LeadingNumber(*text), now, latest))
              : std::nullopt;
}

bool Save(const std::string& path, int64_t full) {
  return orvo::ReplaceFile(path, std::to_string(full), S_IRUSR | S_IWUSR);
}

// Held for a moment only, so that one serves everybody.
orvo::FileLock LockAll() {
  return orvo::FileLock::Wait(orvo::SystemPath(kLock));
}

}  // namespace

Attempts::Attempts(const std::string& key, Limit limit, int64_t now)
    : path_(Folder() + "/" + DigestOf(key)), limit_(limit), now_(now) {
  orvo::MakePrivateFolder(Folder());
}

int64_t Attempts::Take() const {
  const auto lock = LockAll();
  const auto full = lock.IsHeld() ? FullAt(path_, now_, limit_) : std::nullopt;
  // If tries cannot be counted, nobody may try.
  if (!full) {
    return limit_.secondsPerTry;
  }
  const int64_t wait =
      *full + limit_.secondsPerTry - now_ - int64_t{limit_.tries} * limit_.secondsPerTry;
  const bool isKept = Save(path_, wait > 0 ? *full : *full + limit_.secondsPerTry);
  return isKept ? std::max<int64_t>(wait, 0) : limit_.secondsPerTry;
}

void Attempts::GiveBack() const {
  const auto lock = LockAll();
  const auto full = lock.IsHeld() ? FullAt(path_, now_, limit_) : std::nullopt;
  if (full) {
    Save(path_, *full - limit_.secondsPerTry);
  }
}

void Attempts::Sweep(int64_t now) {
  std::error_code failure;
  for (const auto& entry : std::filesystem::directory_iterator(Folder(), failure)) {
    struct stat status {};
    if (stat(entry.path().c_str(), &status) == 0 && status.st_mtime < now - kSweepSeconds) {
      unlink(entry.path().c_str());
    }
  }
}

std::string ClientOf(const std::string& address) {
  in6_addr parsed{};
  if (inet_pton(AF_INET6, address.c_str(), &parsed) != 1) {
    return address;
  }
  std::fill(std::begin(parsed.s6_addr) + kNetworkBytes, std::end(parsed.s6_addr), uint8_t{0});
  std::array<char, INET6_ADDRSTRLEN> text{};
  return inet_ntop(AF_INET6, &parsed, text.data(), text.size()) != nullptr ? text.data() : address;
}

}  // namespace accounts
