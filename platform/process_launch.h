// The one way to start a process.
//
// Start runs a program, Fork runs a function in a new process, and Become replaces the calling
// process by a program. All three prepare the process in the same way and report a failure as an
// errno. From the fork to the program's first instruction, no signal handler of the caller runs and
// only async-signal-safe functions are called.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/export.h"
#include "platform/process.h"

namespace orvo {

// The action for a signal: SIG_IGN or, if the process executes no program, a handler.
struct SignalAction {
  int number;
  void (*handler)(int);
};

struct ResourceLimit {
  int resource;  // RLIMIT_...
  rlimit limit;
};

struct ProcessIds {
  uid_t user;
  gid_t group;
};

// A step in the new process. It must be async-signal-safe. Returns 0 or an errno.
struct ProcessStep {
  int (*run)(void* context) = nullptr;
  void* context = nullptr;
};

// Asks the kernel to end the process with its parent.
struct ParentDeath {
  int signal = 0;    // the signal that ends it; 0 to live on
  pid_t parent = 0;  // who the parent has to be, or it is gone already; 0 for the caller of Start
                     // and Fork, and for the current one in Become

  // The request that the calling process has made. Become needs it, because a change of ids cancels
  // it.
  static ORVO_API ParentDeath Current();
};

enum class StandardStreams {
  kNull,  // "/dev/null", except for those that are passed
  kKept,  // the caller's
};

enum class ProcessGroup {
  kCallers,
  kOwn,      // leader of a new group
  kSession,  // leader of a new session, without a terminal
};

// How to make a process. The steps follow the order of these fields; a failure ends the launch.
struct LaunchOptions {
  // The process belongs to init, or to the nearest subreaper, from its start. The caller need not
  // reap it, and it continues when the caller ends. Not for Become.
  bool detached = false;
  // All other signals get their default action.
  std::vector<SignalAction> actions;
  ProcessGroup group = ProcessGroup::kCallers;
  StandardStreams streams = StandardStreams::kNull;
  // The lowest nice value. If the caller's is higher, the process gets that.
  int niceness = 0;
  std::vector<ResourceLimit> limits;
  // Real, effective and saved ids. The process leaves all supplementary groups that it may leave.
  std::optional<ProcessIds> ids;
  // The signal arrives when the thread that made the process ends, even if its process continues.
  // The launch fails with ESRCH if the parent has ended. Not for a detached process.
  ParentDeath parentDeath;
  // These signals start blocked. All others are delivered, including those that arrived during the
  // launch.
  std::vector<int> blocked;
  // The last step before the program or the function.
  ProcessStep confinement;
};

struct PassedDescriptor {
  int source;  // the caller's descriptor, which stays open in the caller
  int number;  // the program's number for it; may equal another one's source
};

// What to execute, without a shell.
struct Program {
  std::string path;
  std::vector<std::string> arguments;  // argv, the first one included
  // Exactly these variables, each NAME=value. Without a value, the caller's environment.
  std::optional<std::vector<std::string>> environment = std::nullopt;
  // The name of one more variable, which holds the program's own process id; "" for none.
  std::string pidVariable = {};
  // The program has these, its standard streams and no other descriptors, unless keepInheritable is
  // set.
  std::vector<PassedDescriptor> descriptors = {};
  // The program also has the caller's descriptors that are not close-on-exec.
  bool keepInheritable = false;
  // Search for a path without a slash like execvp. Only for Become.
  bool searchPath = false;
};

// Starts the program and returns its owner after the exec has succeeded. Returns no process, with
// errno set, if it cannot be started; then nothing of it remains.
ORVO_API Process Start(const Program& program, const LaunchOptions& options = {});

// Runs `body` in a copy of this process. Its exit status is the result of `body`, or 1 after an
// exception. The copy has the caller's descriptors. None of the caller's destructors and no exit
// handler runs there. Returns the owner when `body` begins. Returns no process, with errno set, on
// failure.
ORVO_API Process Fork(const std::function<int()>& body, const LaunchOptions& options = {});

// Replaces this process's image by the program; the process id stays. Returns only on failure, with
// the errno. The steps before the failure are not undone, so the caller should end soon.
ORVO_API int Become(const Program& program, const LaunchOptions& options = {});

}  // namespace orvo
