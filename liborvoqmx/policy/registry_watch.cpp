#include "policy/registry_watch.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <vector>

#include "platform/pidfd.h"
#include "platform/plat.h"
#include "platform/unique_fd.h"
#include "util/json_utils.h"
#include "util/system_files.h"

namespace LibMirevo {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kAskAgain(1000);

// Waits for a change: in the register's file, or in the processes that it named at the last look.
class RegistryWatch {
 public:
  explicit RegistryWatch(const Json::Value& seen)
      : path_(orvo::SystemPath(LibOrvoQMX::kRegistryFile)),
        seen_(seen),
        changes_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    inotify_add_watch(changes_.Get(), path_.c_str(), IN_MODIFY | IN_CLOSE_WRITE | IN_DELETE_SELF);
    for (const Json::Value& entry : seen) {
      processes_.push_back(orvo::OpenProcess(entry["PID"].asInt()));
    }
  }

  // Returns true if something changed before `deadline`. Other waiting processes write the same
  // content back many times, so only different content counts as a change.
  bool Wait(Clock::time_point deadline) {
    while (!HasChanged()) {
      const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
      if (left.count() <= 0) {
        return false;
      }
      if (Poll(static_cast<int>(left.count()))) {
        return true;
      }
    }
    return true;
  }

 private:
  bool HasChanged() const {
    Json::Value now;
    return ReadJsonFromFile(path_, now) && now != seen_;
  }

  // Returns true if a process ended; false if the file was touched or the time is over.
  bool Poll(int timeout) {
    std::vector<pollfd> events{{changes_.Get(), POLLIN, 0}};
    for (const orvo::UniqueFd& process : processes_) {
      events.push_back({process.Get(), POLLIN, 0});
    }
    if (poll(events.data(), events.size(), timeout) <= 0) {
      return false;
    }
    std::array<char, 4096> ignored{};
    while (read(changes_.Get(), ignored.data(), ignored.size()) > 0) {
    }
    return std::any_of(events.begin() + 1, events.end(),
                       [](const pollfd& process) { return process.revents != 0; });
  }

  std::string path_;
  Json::Value seen_;
  orvo::UniqueFd changes_;
  std::vector<orvo::UniqueFd> processes_;
};

}  // namespace

bool AskRegistryUntil(const std::function<bool(TransLoading&)>& question, int seconds) {
  const Clock::time_point end = Clock::now() + std::chrono::seconds(seconds);
  bool early = false;
  for (;;) {
    const Clock::time_point asked = Clock::now();
    Json::Value seen;
    {
      TransLoading registry;
      if (question(registry)) {
        return true;
      }
      seen = registry.GetEntries();
    }
    if (asked >= end) {
      return false;
    }
    const Clock::time_point deadline = std::min(end, asked + kAskAgain);
    if (early) {
      // A register that cannot be written always looks changed. After two such looks in a row, wait
      // until the second is over.
      early = false;
      poll(nullptr, 0, static_cast<int>((deadline - Clock::now()) / milliseconds(1)));
    } else {
      early = RegistryWatch(seen).Wait(deadline) && Clock::now() - asked < milliseconds(20);
    }
  }
}

}  // namespace LibMirevo
