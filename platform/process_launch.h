// The one way to start a process.
//
// Start runs a program, Fork runs a function of this program in a process of its own, and Become
// replaces the calling process by a program. All three prepare the process in the same way, and
// report what kept them from it as an errno. From the fork to the program's first instruction no
// signal handler of the caller runs, and nothing is called but what a forked child may call.
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

// What a process does on a signal: SIG_IGN or, where it executes no program, a handler.
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

// Something to do in the process that is made, allowed in a forked child. Returns 0 or an errno.
struct ProcessStep {
  int (*run)(void* context) = nullptr;
  void* context = nullptr;
};

// The wish to be ended with the parent.
struct ParentDeath {
  int signal = 0;    // what to be ended by; 0 for no such wish
  pid_t parent = 0;  // who the parent has to be, or it is gone already; 0 for the caller of Start
                     // and Fork, and for the current one in Become

  // The wish that the calling process has made, for Become: a change of ids takes it back.
  static ORVO_API ParentDeath Current();
};

enum class StandardStreams {
  kNull,  // "/dev/null", but for those that a descriptor is passed for
  kKept,  // the caller's
};

enum class ProcessGroup {
  kCallers,
  kOwn,      // leader of a new group
  kSession,  // leader of a new session, without a terminal
};

// How to make a process. In the order of these fields; what fails ends the launch.
struct LaunchOptions {
  // The process belongs to init, or to the nearest subreaper, from its start: the caller need not
  // reap it and it stays when the caller ends. Not for Become.
  bool detached = false;
  // All other signals get their default action.
  std::vector<SignalAction> actions;
  ProcessGroup group = ProcessGroup::kCallers;
  StandardStreams streams = StandardStreams::kNull;
  // At least this nice value. A caller that is nicer gives its own.
  int niceness = 0;
  std::vector<ResourceLimit> limits;
  // Real, effective and saved ids; no supplementary groups are left where there are any to leave.
  std::optional<ProcessIds> ids;
  // The signal comes when the thread that made the process ends, not only with its process. ESRCH
  // when the parent is gone. Not for a detached process.
  ParentDeath parentDeath;
  // These signals start blocked; all others are let through, also those that came meanwhile.
  std::vector<int> blocked;
  // The last step before the program or the function.
  ProcessStep confinement;
};

struct PassedDescriptor {
  int source;  // the caller's, which stays open there
  int number;  // what the program finds it under; the same as another's source if need be
};

// What to execute. The shell has no part in it.
struct Program {
  std::string path;
  std::vector<std::string> arguments;  // argv, the first one included
  // Exactly these, each NAME=value; the caller's where there is nothing.
  std::optional<std::vector<std::string>> environment = std::nullopt;
  // Besides those, this variable holds the program's own process id; "" for none.
  std::string pidVariable = {};
  // The program has these, its standard streams and no others...
  std::vector<PassedDescriptor> descriptors = {};
  // ...and where this is set, also those of the caller's that are not close-on-exec.
  bool keepInheritable = false;
  // Find a path without a slash as execvp does. For Become only.
  bool searchPath = false;
};

// Starts the program and returns its owner once it has been executed. No process, with errno set,
// when it cannot be started; then nothing is left of it.
ORVO_API Process Start(const Program& program, const LaunchOptions& options = {});

// Runs `body` in a copy of this process, which ends with what it returns; an exception ends it with
// 1. No destructor of the caller's and no exit handler runs there. It has the caller's descriptors.
// Returns the owner once `body` begins. No process, with errno set, when there is none.
ORVO_API Process Fork(const std::function<int()>& body, const LaunchOptions& options = {});

// Replaces this process's image by the program; the process id stays. Returns only on failure: the
// errno. What has been prepared by then stays as it is, so the caller ends soon.
ORVO_API int Become(const Program& program, const LaunchOptions& options = {});

}  // namespace orvo
