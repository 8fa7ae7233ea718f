#include "platform/awaited_children.h"

#include <csignal>

namespace orvo {
namespace {

// What the process does on SIGCHLD is one thing for all its threads and owners, and so is this.
struct Held {
  int count = 0;
  bool changed = false;
  struct sigaction previous {};
};
Held gHeld;

bool Ignores(const struct sigaction& action) {
  return action.sa_handler == SIG_IGN || (action.sa_flags & SA_NOCLDWAIT) != 0;
}

}  // namespace

std::mutex& LaunchLock() {
  static std::mutex lock;
  return lock;
}

void HoldChildren(const std::unique_lock<std::mutex>& /*lock*/) {
  ++gHeld.count;
  struct sigaction current {};
  if (sigaction(SIGCHLD, nullptr, &current) != 0 || !Ignores(current)) {
    return;
  }
  struct sigaction keep {};
  keep.sa_handler = SIG_DFL;
  gHeld.previous = current;
  gHeld.changed = sigaction(SIGCHLD, &keep, nullptr) == 0;
}

void LetGoOfChildren(const std::unique_lock<std::mutex>& /*lock*/) {
  if (--gHeld.count == 0 && gHeld.changed) {
    gHeld.changed = false;
    sigaction(SIGCHLD, &gHeld.previous, nullptr);
  }
}

void LetGoOfParentsChildren(const std::unique_lock<std::mutex>& lock) {
  gHeld.count = 1;
  LetGoOfChildren(lock);
}

}  // namespace orvo
