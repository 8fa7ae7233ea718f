#include "platform/children.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "platform/process.h"

namespace orvo {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// A process that cannot end, because it waits for a device, holds nobody up for longer.
constexpr milliseconds kKilled(1000);

std::ifstream FileOf(pid_t process, const std::string& name) {
  return std::ifstream("/proc/" + std::to_string(process) + "/" + name);
}

// The numbers of a process's children that have not been reaped.
std::set<pid_t> ChildrenOf(pid_t process) {
  std::ifstream children = FileOf(process, "task/" + std::to_string(process) + "/children");
  return {std::istream_iterator<pid_t>(children), {}};
}

// Is it a child of this parent, and stopped?
bool IsStoppedChild(pid_t process, pid_t parent) {
  std::ifstream status = FileOf(process, "status");
  const std::string parentLine = "PPid:\t" + std::to_string(parent);
  bool isStopped = false;
  for (std::string line; std::getline(status, line);) {
    isStopped |= line.rfind("State:\tT", 0) == 0;
    if (line == parentLine) {
      return isStopped;
    }
  }
  return false;
}

void ContinueBelow(pid_t parent) {
  for (const pid_t child : ChildrenOf(parent)) {
    // Opened before the look, so the signal reaches the process that was looked at.
    const Process process = Process::Open(child);
    if (IsStoppedChild(child, parent)) {
      process.Signal(SIGCONT);
    }
    ContinueBelow(child);
  }
}

// Sends `signal` to those children that are not in `told`.
void Tell(const std::set<pid_t>& children, const std::set<pid_t>& told, int signal) {
  for (const pid_t child : children) {
    if (told.count(child) == 0) {
      AskToEnd(child, signal);
    }
  }
}

// Waits until one of these processes has ended.
void WaitForAny(const std::set<pid_t>& children, milliseconds longest) {
  std::vector<Process> processes;
  std::vector<pollfd> events;
  for (const pid_t child : children) {
    processes.push_back(Process::Open(child));
    events.push_back({processes.back().Descriptor().Get(), POLLIN, 0});
  }
  poll(events.data(), events.size(), static_cast<int>(longest.count()));
}

}  // namespace

void AdoptOrphans() {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
}

void ReapChildren() {
  while (waitpid(-1, nullptr, WNOHANG) > 0) {
  }
}

void ContinueDescendants() {
  ContinueBelow(getpid());
}

void EndChildren(int longest) {
  const auto deadline = Clock::now() + milliseconds(longest);
  std::set<pid_t> told;
  for (;;) {
    ReapChildren();
    const std::set<pid_t> children = ChildrenOf(getpid());
    const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
    if (children.empty() || left < -kKilled) {
      return;
    }
    if (left.count() > 0) {
      Tell(children, told, SIGTERM);
    } else {
      Tell(children, {}, SIGKILL);
    }
    told = children;
    WaitForAny(children, left.count() > 0 ? left : kKilled);
  }
}

}  // namespace orvo
