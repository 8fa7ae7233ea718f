#include "platform/process_launch.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>
#include <string_view>

#include "platform/launch_fork.h"

namespace orvo {
namespace {

constexpr int kPidDigits = 12;

// Each step below returns true on success and otherwise sets errno. All are async-signal-safe.

bool SetActions(const std::vector<SignalAction>& actions) {
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  for (int number = 1; number < NSIG; ++number) {
    sigaction(number, &action, nullptr);  // fails for signals with a fixed action; no harm
  }
  return std::all_of(actions.begin(), actions.end(), [&](const SignalAction& own) {
    action.sa_handler = own.handler;
    return sigaction(own.number, &action, nullptr) == 0;
  });
}

bool SetBlocked(const std::vector<int>& blocked) {
  sigset_t mask;
  sigemptyset(&mask);
  for (const int number : blocked) {
    sigaddset(&mask, number);
  }
  return sigprocmask(SIG_SETMASK, &mask, nullptr) == 0;
}

bool EnterGroup(ProcessGroup group) {
  switch (group) {
    case ProcessGroup::kOwn:
      return setpgid(0, 0) == 0;
    case ProcessGroup::kSession:
      return setsid() >= 0;
    case ProcessGroup::kCallers:
      break;
  }
  return true;
}

bool SetNiceness(int niceness) {
  if (niceness <= 0) {
    return true;
  }
  const int current = getpriority(PRIO_PROCESS, 0);
  return current >= niceness || setpriority(PRIO_PROCESS, 0, niceness) == 0;
}

bool SetLimits(const std::vector<ResourceLimit>& limits) {
  return std::all_of(limits.begin(), limits.end(), [](const ResourceLimit& row) {
    return setrlimit(static_cast<__rlimit_resource_t>(row.resource), &row.limit) == 0;
  });
}

// Root comes last, because the other steps need it.
bool SetIds(const std::optional<ProcessIds>& ids) {
  if (!ids) {
    return true;
  }
  const bool isRoot = geteuid() == 0 || seteuid(0) == 0;
  return (!isRoot || setgroups(0, nullptr) == 0) &&
         setresgid(ids->group, ids->group, ids->group) == 0 &&
         setresuid(ids->user, ids->user, ids->user) == 0;
}

bool AskForParentDeath(const ParentDeath& wish, pid_t maker) {
  if (wish.signal == 0) {
    return true;
  }
  if (prctl(PR_SET_PDEATHSIG, wish.signal) != 0) {
    return false;
  }
  // If the parent ended before the request was made, the child has another parent now.
  errno = ESRCH;
  return getppid() == (wish.parent != 0 ? wish.parent : maker);
}

bool Confine(const ProcessStep& step) {
  if (step.run == nullptr) {
    return true;
  }
  errno = step.run(step.context);
  return errno == 0;
}

// Prepares the process between the fork and its own work. `descriptors` sets up its descriptors.
template <typename SetDescriptors>
bool Prepare(const LaunchOptions& options, pid_t maker, const SetDescriptors& setDescriptors) {
  return SetActions(options.actions) && EnterGroup(options.group) && setDescriptors() &&
         SetNiceness(options.niceness) && SetLimits(options.limits) && SetIds(options.ids) &&
         AskForParentDeath(options.parentDeath, maker) && SetBlocked(options.blocked) &&
         Confine(options.confinement);
}

bool IsPassed(const std::vector<PassedDescriptor>& descriptors, int number) {
  return std::any_of(descriptors.begin(), descriptors.end(),
                     [&](const PassedDescriptor& row) { return row.number == number; });
}

// Opens "/dev/null" for each standard stream that the caller does not pass.
bool SetNullStreams(const std::vector<PassedDescriptor>& passed, int floor) {
  const int opened = open("/dev/null", O_RDWR | O_CLOEXEC);
  const int null = opened < 0 ? -1 : fcntl(opened, F_DUPFD_CLOEXEC, floor);
  if (null < 0) {
    return false;
  }
  for (int standard = STDIN_FILENO; standard <= STDERR_FILENO; ++standard) {
    if (!IsPassed(passed, standard) && dup2(null, standard) < 0) {
      return false;
    }
  }
  if (opened > STDERR_FILENO) {
    close(opened);
  }
  close(null);
  return true;
}

// All data that the exec needs, prepared before the fork.
class Execution {
 public:
  Execution(const Program& program, const LaunchOptions& options);

  int Floor() const { return floor_; }
  // Runs in the process that becomes the program.
  bool SetDescriptors();
  // Returns only on failure, with errno set.
  void Execute();

 private:
  void PrepareEnvironment();
  void AddPidVariable(const std::string& name);
  bool CloseOthers() const;

  const Program& program_;
  StandardStreams streams_;
  std::vector<char*> arguments_;
  std::vector<char*> environment_;
  std::string pidEntry_;
  std::vector<int> moved_;  // the passed descriptors, above all numbers that the program uses
  int floor_ = STDERR_FILENO + 1;
};

char* Borrow(const std::string& text) {
  return const_cast<char*>(text.c_str());
}

Execution::Execution(const Program& program, const LaunchOptions& options)
    : program_(program), streams_(options.streams), moved_(program.descriptors.size(), -1) {
  for (const std::string& argument : program.arguments) {
    arguments_.push_back(Borrow(argument));
  }
  arguments_.push_back(nullptr);
  for (const PassedDescriptor& row : program.descriptors) {
    floor_ = std::max(floor_, row.number + 1);
  }
  PrepareEnvironment();
}

void Execution::PrepareEnvironment() {
  if (program_.environment) {
    for (const std::string& variable : *program_.environment) {
      environment_.push_back(Borrow(variable));
    }
  } else {
    for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
      environment_.push_back(*variable);
    }
  }
  if (!program_.pidVariable.empty()) {
    AddPidVariable(program_.pidVariable + "=");
  }
  environment_.push_back(nullptr);
}

void Execution::AddPidVariable(const std::string& name) {
  const auto isSame = [&](const char* variable) {
    return std::string_view(variable).substr(0, name.size()) == name;
  };
  environment_.erase(std::remove_if(environment_.begin(), environment_.end(), isSame),
                     environment_.end());
  pidEntry_ = name + std::string(kPidDigits, '\0');
  environment_.push_back(pidEntry_.data());
}

// Moves all descriptors away first, because one may occupy the number of another.
bool Execution::SetDescriptors() {
  if (!program_.keepInheritable && !CloseOthers()) {
    return false;
  }
  for (size_t i = 0; i < moved_.size(); ++i) {
    moved_[i] = fcntl(program_.descriptors[i].source, F_DUPFD_CLOEXEC, floor_);
    if (moved_[i] < 0) {
      return false;
    }
  }
  if (streams_ == StandardStreams::kNull && !SetNullStreams(program_.descriptors, floor_)) {
    return false;
  }
  for (size_t i = 0; i < moved_.size(); ++i) {
    if (dup2(moved_[i], program_.descriptors[i].number) < 0) {
      return false;
    }
    close(moved_[i]);
  }
  return true;
}

// Closes descriptors that other libraries opened without close-on-exec. A kernel before 5.11 leaves
// them open.
bool Execution::CloseOthers() const {
  return close_range(STDERR_FILENO + 1, UINT_MAX, CLOSE_RANGE_CLOEXEC) == 0 || errno == EINVAL ||
         errno == ENOSYS;
}

void Execution::Execute() {
  if (!pidEntry_.empty()) {
    char* const number = pidEntry_.data() + program_.pidVariable.size() + 1;
    *std::to_chars(number, number + kPidDigits, getpid()).ptr = '\0';
  }
  if (program_.searchPath) {
    execvpe(program_.path.c_str(), arguments_.data(), environment_.data());
  } else {
    execve(program_.path.c_str(), arguments_.data(), environment_.data());
  }
}

bool IsValid(const LaunchOptions& options) {
  errno = EINVAL;
  return !options.detached || options.parentDeath.signal == 0;
}

[[noreturn]] void RunBody(const std::function<int()>& body) {
  int status = 1;
  try {
    status = body();
  } catch (...) {
    // No caller is left that could receive the exception.
  }
  _exit(status);
}

}  // namespace

ParentDeath ParentDeath::Current() {
  ParentDeath wish;
  wish.parent = getppid();
  prctl(PR_GET_PDEATHSIG, &wish.signal);
  return wish;
}

Process Start(const Program& program, const LaunchOptions& options) {
  errno = EINVAL;
  if (!IsValid(options) || program.searchPath) {
    return {};
  }
  Execution execution(program, options);
  LaunchFork launch(options.detached);
  if (launch.IsChild()) {
    if (launch.MoveReport(execution.Floor()) &&
        Prepare(options, launch.Caller(), [&] { return execution.SetDescriptors(); })) {
      execution.Execute();
    }
    launch.Fail(errno);
  }
  return launch.Finish();
}

Process Fork(const std::function<int()>& body, const LaunchOptions& options) {
  if (!IsValid(options)) {
    return {};
  }
  LaunchFork launch(options.detached);
  if (launch.IsChild()) {
    const bool isPrepared = Prepare(options, launch.Caller(), [&] {
      return options.streams == StandardStreams::kKept || SetNullStreams({}, STDERR_FILENO + 1);
    });
    if (!isPrepared) {
      launch.Fail(errno);
    }
    launch.Succeed();
    RunBody(body);
  }
  return launch.Finish();
}

int Become(const Program& program, const LaunchOptions& options) {
  if (options.detached) {
    return EINVAL;
  }
  Execution execution(program, options);
  if (Prepare(options, getppid(), [&] { return execution.SetDescriptors(); })) {
    execution.Execute();
  }
  return errno;
}

}  // namespace orvo
