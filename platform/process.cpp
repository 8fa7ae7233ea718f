#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <fstream>

#include "platform/io.h"
#include "platform/pidfd.h"
#include "platform/plat.h"

// This header forgets to say that it is C.
extern "C" {
#include <sys/pidfd.h>
}

namespace {

using Clock = std::chrono::steady_clock;

// A pidfd becomes readable when its process has ended, reaped or not. That is the one test that a
// zombie, a thread id and a reused number all answer rightly.
bool HasEndedWithin(int pidfd, Clock::time_point deadline) {
  for (;;) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd wait{pidfd, POLLIN, 0};
    const int ready = poll(&wait, 1, left > 0 ? static_cast<int>(left) : 0);
    if (ready > 0) {
      return true;
    }
    if (ready == 0 || errno != EINTR) {
      return false;
    }
  }
}

// A program that ignores SIGCHLD has its children reaped before anyone can ask how they ended. For
// this scope they wait to be asked.
class AwaitedChildren {
 public:
  AwaitedChildren() {
    struct sigaction keep {};
    keep.sa_handler = SIG_DFL;
    if (sigaction(SIGCHLD, nullptr, &previous_) == 0 &&
        (previous_.sa_handler == SIG_IGN || (previous_.sa_flags & SA_NOCLDWAIT) != 0)) {
      changed_ = sigaction(SIGCHLD, &keep, nullptr) == 0;
    }
  }
  AwaitedChildren(const AwaitedChildren&) = delete;
  AwaitedChildren& operator=(const AwaitedChildren&) = delete;
  ~AwaitedChildren() {
    if (changed_) {
      sigaction(SIGCHLD, &previous_, nullptr);
    }
  }

 private:
  struct sigaction previous_ {};
  bool changed_ = false;
};

std::vector<char*> ArgumentVector(const std::vector<std::string>& argv) {
  std::vector<char*> arguments;
  arguments.reserve(argv.size() + 1);
  for (const std::string& argument : argv) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  return arguments;
}

// In a forked child: the signals as a program expects them, nobody's streams, and the program.
// `output`: the program's standard output; below 0 for none.
[[noreturn]] void BecomeBounded(pid_t parent, const std::string& program, char* const* arguments,
                                int output) {
  for (int number = 1; number < NSIG; ++number) {
    signal(number, SIG_DFL);
  }
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  orvo::DetachStandardStreams();
  if (output >= 0) {
    dup2(output, STDOUT_FILENO);
  }
  if (orvo::DieWithParent(parent)) {
    execv(program.c_str(), arguments);
  }
  _exit(127);
}

}  // namespace

namespace orvo {

int WaitForStatus(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) {
      return -1;
    }
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

UniqueFd OpenProcess(pid_t pid) {
  return UniqueFd(pidfd_open(pid, 0));
}

bool WaitForExit(pid_t pid, int milliseconds) {
  if (pid < 1) {
    return true;
  }
  const UniqueFd process = OpenProcess(pid);
  if (process.IsOpen()) {
    return HasEndedWithin(process.Get(), Clock::now() + std::chrono::milliseconds(milliseconds));
  }
  // Gone, or a thread's number, which is no process. Anything else (no descriptor left, say) must
  // not make a living process look dead.
  return errno == ESRCH || errno == EINVAL || errno == ENOENT ||
         (kill(pid, 0) != 0 && errno == ESRCH);
}

int RunWithin(const std::string& program, const std::vector<std::string>& argv, int milliseconds,
              std::string* output) {
  // In memory nothing is left of a caller that ends.
  const UniqueFd file(output != nullptr ? memfd_create("output", MFD_CLOEXEC) : -1);
  if (output != nullptr && !file.IsOpen()) {
    return -1;
  }
  const std::vector<char*> arguments = ArgumentVector(argv);
  const pid_t parent = getpid();
  const AwaitedChildren awaited;
  const pid_t pid = fork();
  if (pid == 0) {
    BecomeBounded(parent, program, arguments.data(), file.Get());
  }
  if (pid < 0) {
    return -1;
  }
  // Unreaped until the last line, so the number is still this child's.
  if (!WaitForExit(pid, milliseconds)) {
    kill(pid, SIGKILL);
  }
  const int status = WaitForStatus(pid);
  if (output == nullptr) {
    return status;
  }
  // Opened anew, it is read from its start.
  std::ifstream written("/proc/self/fd/" + std::to_string(file.Get()), std::ios::binary);
  return ReadAll(written, *output) ? status : -1;
}

bool DieWithParent(pid_t parent) {
  // A parent that ended before the wish was made is told by the child's having a new one.
  return prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && getppid() == parent;
}

}  // namespace orvo

int PlatExecv(const std::string& program, const std::vector<std::string>& argv) {
  const std::vector<char*> arguments = ArgumentVector(argv);

  // A caller's blocked signals and ignored SIGPIPE are its own business, not the program's.
  sigset_t none;
  sigset_t defaults;
  sigemptyset(&none);
  sigfillset(&defaults);
  posix_spawnattr_t attributes;
  if (posix_spawnattr_init(&attributes) != 0) {
    return -1;
  }
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  pid_t pid = -1;
  const AwaitedChildren awaited;
  const int failure =
      posix_spawn(&pid, program.c_str(), nullptr, &attributes, arguments.data(), environ);
  posix_spawnattr_destroy(&attributes);
  return failure == 0 ? orvo::WaitForStatus(pid) : -1;
}

int PlatProcForkChildNoWait() {
  const AwaitedChildren awaited;
  const pid_t middle = fork();
  if (middle < 0) {
    return -1;
  }
  if (middle == 0) {
    const pid_t child = fork();
    if (child == 0) {
      return 0;
    }
    _exit(child < 0 ? 1 : 0);
  }
  return orvo::WaitForStatus(middle) == 0 ? 1 : -1;
}

bool PlatProcAlive(pid_t pid) {
  if (pid < 1) {
    return false;
  }
  return !orvo::WaitForExit(pid, 0);
}

pid_t PlatReadPidFile(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  const auto first = line.find_first_not_of(" \t");
  if (first == std::string::npos) {
    return -1;
  }
  pid_t pid = -1;
  const auto parsed = std::from_chars(line.data() + first, line.data() + line.size(), pid);
  return parsed.ec == std::errc() ? pid : -1;
}
