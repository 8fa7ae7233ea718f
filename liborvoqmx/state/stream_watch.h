// Waiting for what happens to a stream.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <chrono>
#include <set>
#include <string>

#include "platform/export.h"
#include "platform/unique_fd.h"

namespace LibOrvoQMX {

// A descriptor of the process; not open when it has ended.
orvo::UniqueFd OpenRunningProcess(pid_t pid);

// How long a request waits for a fragment, and how long a pipeline has to look ended before it
// gives up: a newer one may be on its way.
inline constexpr std::chrono::seconds kFragmentTimeout(60);
inline constexpr std::chrono::milliseconds kSettled(500);
// A look now and then even where the file system tells nothing.
inline constexpr std::chrono::milliseconds kLookAgain(1000);

// Files that come, go or are complete in a stream directory. What happens after construction is
// not missed: construct, look, wait.
class ORVO_API StreamWatch {
 public:
  explicit StreamWatch(const std::string& directory);
  ~StreamWatch();
  StreamWatch(const StreamWatch&) = delete;
  StreamWatch& operator=(const StreamWatch&) = delete;

  // Watches this directory too. One that is watched already or not there changes nothing: where its
  // parent is watched, wait and add it again.
  void Add(const std::string& directory);

  // Returns when something happened in a directory, the process behind `process` ended or
  // `milliseconds` have passed. A closed descriptor stands for no process.
  void Wait(const orvo::UniqueFd& process, int milliseconds) const;

 private:
  void Drain() const;

  int changes_;
  std::set<int> watches_;
};

// For its life, SIGINT and SIGTERM reach this process only while it waits here. So a look at what
// their handler left is never out of date when the wait begins.
class SignalGate {
 public:
  SignalGate();
  ~SignalGate();
  SignalGate(const SignalGate&) = delete;
  SignalGate& operator=(const SignalGate&) = delete;

  // Returns when the process behind `process` ended, a signal was handled or `milliseconds` have
  // passed. A closed descriptor stands for no process.
  void Wait(const orvo::UniqueFd& process, int milliseconds) const;

 private:
  sigset_t previous_;
};

}  // namespace LibOrvoQMX
