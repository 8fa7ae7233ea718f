#include "platform/landlock.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstddef>

namespace orvo {
namespace {

// Headers of an older kernel name fewer of these.
constexpr long kCreateRuleset = 444;
constexpr long kAddRule = 445;
constexpr long kRestrictSelf = 446;
constexpr uint32_t kAskVersion = 1;
constexpr int kPathBeneath = 1;

constexpr uint64_t kExecute = 1 << 0;
constexpr uint64_t kWriteFile = 1 << 1;
constexpr uint64_t kReadFile = 1 << 2;
constexpr uint64_t kReadFolder = 1 << 3;
constexpr uint64_t kRemoveFolder = 1 << 4;
constexpr uint64_t kRemoveFile = 1 << 5;
constexpr uint64_t kMakeFolder = 1 << 7;
constexpr uint64_t kMakeFile = 1 << 8;
constexpr uint64_t kFirstVersion = (1 << 13) - 1;
constexpr uint64_t kRefer = 1 << 13;        // version 2
constexpr uint64_t kTruncate = 1 << 14;     // version 3
constexpr uint64_t kAllTcp = 3;             // version 4
constexpr uint64_t kDeviceCalls = 1 << 15;  // version 5
constexpr uint64_t kAllScopes = 3;          // version 6: abstract sockets, signals

constexpr uint64_t kFileRights = kExecute | kWriteFile | kReadFile | kTruncate | kDeviceCalls;
constexpr uint64_t kReading = kReadFile | kReadFolder;
constexpr uint64_t kWriting = kReading | kWriteFile | kRemoveFolder | kRemoveFile | kMakeFolder |
                              kMakeFile | kRefer | kTruncate;

// Above the numbers that a program is given descriptors under, which are put in place later.
constexpr int kLowestDescriptor = 200;

struct Attributes {
  uint64_t files;
  uint64_t network;  // version 4
  uint64_t scopes;   // version 6
};

struct [[gnu::packed]] Rule {
  uint64_t rights;
  int32_t folder;
};

uint64_t KnownRights(int version) {
  return kFirstVersion | (version >= 2 ? kRefer : 0) | (version >= 3 ? kTruncate : 0) |
         (version >= 5 ? kDeviceCalls : 0);
}

size_t KnownSize(int version) {
  if (version < 4) {
    return offsetof(Attributes, network);
  }
  return version < 6 ? offsetof(Attributes, scopes) : sizeof(Attributes);
}

bool IsAbsent(int error) {
  return error == ENOENT || error == ENOTDIR || error == ELOOP || error == EACCES || error == ENXIO;
}

}  // namespace

int LandlockVersion() {
  const long version = syscall(kCreateRuleset, nullptr, 0, kAskVersion);
  return version > 0 ? static_cast<int>(version) : 0;
}

LandlockRules::LandlockRules(Network network) : version_(LandlockVersion()) {
  if (version_ == 0) {
    errno = EOPNOTSUPP;
    return;
  }
  const Attributes attributes{KnownRights(version_), network == Network::kRefused ? kAllTcp : 0,
                              kAllScopes};
  const UniqueFd rules(
      static_cast<int>(syscall(kCreateRuleset, &attributes, KnownSize(version_), 0)));
  if (rules.IsOpen()) {
    rules_.Reset(fcntl(rules.Get(), F_DUPFD_CLOEXEC, kLowestDescriptor));
  }
}

// Async-signal-safe.
bool LandlockRules::Allow(const char* path, uint64_t rights) {
  const UniqueFd target(open(path, O_PATH | O_CLOEXEC));
  return target.IsOpen() ? AllowOpen(target.Get(), rights) : IsAbsent(errno);
}

bool LandlockRules::AllowOpen(int file, uint64_t rights) {
  struct stat status {};
  if (fstat(file, &status) != 0) {
    return false;
  }
  const uint64_t possible = S_ISDIR(status.st_mode) ? ~uint64_t{0} : kFileRights;
  const Rule rule{rights & possible & KnownRights(version_), file};
  return syscall(kAddRule, rules_.Get(), kPathBeneath, &rule, 0) == 0;
}

bool LandlockRules::AllowReading(const std::string& path) {
  return Allow(path.c_str(), kReading);
}

bool LandlockRules::AllowReading(int file) {
  return AllowOpen(file, kReading);
}

bool LandlockRules::AllowWriting(const std::string& path) {
  return Allow(path.c_str(), kWriting);
}

bool LandlockRules::AllowRemovingFolders(const std::string& path) {
  return Allow(path.c_str(), kRemoveFolder);
}

bool LandlockRules::AllowExecution(const std::string& path) {
  return Allow(path.c_str(), kExecute | kReadFile);
}

bool LandlockRules::AllowDevice(const std::string& path) {
  return Allow(path.c_str(), kReading | kWriteFile | kDeviceCalls);
}

int LandlockRules::Apply() {
  const bool isDone = Allow("/proc/self", kReading) &&
                      prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
                      syscall(kRestrictSelf, rules_.Get(), 0) == 0;
  const int error = isDone ? 0 : errno;
  rules_.Reset();
  return error;
}

}  // namespace orvo
