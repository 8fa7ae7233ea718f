#include "platform/children.h"

#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <string>

#include "platform/process.h"

namespace orvo {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kKilledMilliseconds = 1000;

// The number of one child that has not been reaped; -1 without any.
pid_t AnyChild() {
  const std::string self = std::to_string(getpid());
  std::ifstream children("/proc/" + self + "/task/" + self + "/children");
  pid_t pid = -1;
  return children >> pid ? pid : -1;
}

}  // namespace

void AdoptOrphans() {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
}

void ReapChildren() {
  while (waitpid(-1, nullptr, WNOHANG) > 0) {
  }
}

void WaitForChildren(int milliseconds) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
  for (;;) {
    ReapChildren();
    const pid_t child = AnyChild();
    if (child < 0) {
      return;
    }
    const Process process = Process::Open(child);
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) {
      process.Signal(SIGKILL);
    }
    process.HasEndedWithin(left <= 0 ? kKilledMilliseconds : static_cast<int>(left));
  }
}

}  // namespace orvo
