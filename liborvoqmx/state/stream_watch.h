// Waits for changes in a stream's files and processes.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <chrono>
#include <set>
#include <string>

#include "platform/export.h"
#include "platform/unique_fd.h"

namespace LibOrvoQMX {

// A descriptor of the process. It is not open if the process has ended.
ORVO_API orvo::UniqueFd OpenRunningProcess(pid_t pid);

// How long a request waits for a fragment, and how long a pipeline must look ended before the
// request gives up. A newer pipeline may be about to start.
inline constexpr std::chrono::seconds kFragmentTimeout(60);
inline constexpr std::chrono::milliseconds kSettled(500);
// The interval for checks on file systems that report no events.
inline constexpr std::chrono::milliseconds kLookAgain(1000);

// Watches a stream directory for files that appear, disappear or become complete. It reports every
// event after its construction, so construct it first, then look, then wait.
class ORVO_API StreamWatch {
 public:
  explicit StreamWatch(const std::string& directory);
  ~StreamWatch();
  StreamWatch(const StreamWatch&) = delete;
  StreamWatch& operator=(const StreamWatch&) = delete;

  // Watches this directory too. Does nothing if it is already watched or missing. For a missing
  // directory, watch the parent, wait, and call Add again.
  void Add(const std::string& directory);

  // Returns when a watched directory has changed, the process of `process` has ended or
  // `milliseconds` have passed. A closed descriptor means no process.
  void Wait(const orvo::UniqueFd& process, int milliseconds) const;

 private:
  void Drain() const;

  int changes_;
  std::set<int> watches_;
};

// While this object exists, SIGINT and SIGTERM reach the process only inside Wait. A caller that
// reads the handler's flag before Wait therefore misses no signal.
class SignalGate {
 public:
  SignalGate();
  ~SignalGate();
  SignalGate(const SignalGate&) = delete;
  SignalGate& operator=(const SignalGate&) = delete;

  // Returns when the process of `process` has ended, a signal was handled or `milliseconds` have
  // passed. A closed descriptor means no process.
  void Wait(const orvo::UniqueFd& process, int milliseconds) const;

 private:
  sigset_t previous_;
};

}  // namespace LibOrvoQMX
