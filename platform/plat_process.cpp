// The processes of plat.h, on top of the launcher.
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <fstream>
#include <utility>

#include "platform/confinement.h"
#include "platform/io.h"
#include "platform/launch_fork.h"
#include "platform/plat.h"
#include "platform/process.h"
#include "platform/process_launch.h"
#include "platform/unique_fd.h"

namespace {

constexpr int kCannotExecute = 127;
constexpr size_t kLongestPid = 4096;  // with its blanks

bool IsNoFork(int error) {
  return error == EAGAIN || error == ENOMEM;
}

// Runs the program for that time at most and takes what it prints. `cannotExecute` is the result
// when it cannot be started.
int RunWith(const orvo::LaunchOptions& options, orvo::Program program, int milliseconds,
            std::string* output, int cannotExecute) {
  // In memory nothing is left of a caller that ends.
  const orvo::UniqueFd file(output != nullptr ? memfd_create("output", MFD_CLOEXEC) : -1);
  if (output != nullptr && !file.IsOpen()) {
    return -1;
  }
  program.keepInheritable = true;
  if (file.IsOpen()) {
    program.descriptors.push_back({file.Get(), STDOUT_FILENO});
  }
  orvo::Process process = orvo::Start(program, options);
  if (!process) {
    return IsNoFork(errno) ? -1 : cannotExecute;
  }
  if (!process.HasEndedWithin(std::max(milliseconds, 0))) {
    process.Signal(SIGKILL);
  }
  const int status = process.Wait();
  if (output == nullptr) {
    return status;
  }
  // Opened anew, it is read from its start.
  std::ifstream written("/proc/self/fd/" + std::to_string(file.Get()), std::ios::binary);
  return orvo::ReadAll(written, *output) ? status : -1;
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

bool WaitForExit(pid_t pid, int milliseconds) {
  if (pid < 1) {
    return true;
  }
  const Process process = Process::Open(pid);
  if (process) {
    return process.HasEndedWithin(std::max(milliseconds, 0));
  }
  // Gone, or a thread's number, which is no process. Anything else (no descriptor left, say) must
  // not make a living process look dead.
  return errno == ESRCH || errno == EINVAL || errno == ENOENT ||
         (kill(pid, 0) != 0 && errno == ESRCH);
}

int RunWithin(const std::string& program, const std::vector<std::string>& argv, int milliseconds,
              std::string* output) {
  LaunchOptions options;
  options.parentDeath.signal = SIGKILL;
  return RunWith(options, {program, argv}, milliseconds, output, kCannotExecute);
}

int RunConfined(Job job, const Reach& reach, const std::vector<std::string>& argv, int milliseconds,
                std::string* output) {
  Confinement confinement(job, reach);
  LaunchOptions options;
  options.parentDeath.signal = SIGKILL;
  options.group = ProcessGroup::kOwn;
  confinement.AddTo(options);
  const int longest = confinement.WallMilliseconds();
  Program program{reach.program, argv};
  for (const int file : reach.files) {
    program.descriptors.push_back({file, file});
  }
  return RunWith(options, std::move(program),
                 longest < 0 ? milliseconds : std::min(longest, milliseconds), output, -1);
}

bool DieWithParent(pid_t parent) {
  // A parent that ended before the wish was made is told by the child's having a new one.
  return prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && getppid() == parent;
}

}  // namespace orvo

int PlatExecv(const std::string& program, const std::vector<std::string>& argv) {
  orvo::Program launched{program, argv};
  launched.keepInheritable = true;
  orvo::LaunchOptions options;
  options.streams = orvo::StandardStreams::kKept;
  return orvo::Start(launched, options).Wait();
}

int PlatProcForkChildNoWait() {
  orvo::LaunchFork launch(true);
  if (launch.IsChild()) {
    launch.TakeCallersMask();
    launch.Succeed();
    return 0;
  }
  return launch.Finish() ? 1 : -1;
}

bool PlatProcAlive(pid_t pid) {
  if (pid < 1) {
    return false;
  }
  return !orvo::WaitForExit(pid, 0);
}

pid_t PlatReadPidFile(const std::string& path) {
  std::ifstream file(path);
  // A pid has fewer digits. A hostile file is one endless line.
  std::string line(kLongestPid, '\0');
  file.read(line.data(), static_cast<std::streamsize>(line.size()));
  line.resize(static_cast<size_t>(file.gcount()));
  line.resize(std::min(line.find('\n'), line.size()));
  const auto first = line.find_first_not_of(" \t");
  if (first == std::string::npos) {
    return -1;
  }
  pid_t pid = -1;
  const auto parsed = std::from_chars(line.data() + first, line.data() + line.size(), pid);
  return parsed.ec == std::errc() ? pid : -1;
}
