#include "transcoder/launch.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "contract/passed_progress.h"
#include "platform/confinement.h"
#include "platform/log.h"
#include "platform/process_launch.h"
#include "transcoder/command_reach.h"

namespace orvo::transcoder {
namespace {

// The last one is for asking FFmpeg what it can do: a child that is ignored cannot be waited for.
constexpr int kSignals[] = {SIGPIPE, SIGINT, SIGTERM, SIGCHLD};

void ResetSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : kSignals) {
    signal(number, SIG_DFL);
    sigaddset(&set, number);
  }
  sigprocmask(SIG_UNBLOCK, &set, nullptr);
}

// A descriptor opened later must not become standard output by accident.
void OpenStandardDescriptors() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) < 0) {
      (void)open("/dev/null", O_RDWR);  // takes the lowest free number, which is fd
    }
  }
}

void LowerPriority() {
  const int current = getpriority(PRIO_PROCESS, 0);
  setpriority(PRIO_PROCESS, 0, std::max(current, kNiceness));
}

}  // namespace

void PrepareProcess() {
  OpenStandardDescriptors();
  ResetSignals();
  LowerPriority();
}

int PassedProgressFile() {
  const char* const text = getenv(kProgressVariable);
  int descriptor = -1;
  if (text == nullptr || std::from_chars(text, text + strlen(text), descriptor).ec != std::errc()) {
    return -1;
  }
  const bool isMemory = fcntl(descriptor, F_GET_SEALS) >= 0;
  return isMemory ? descriptor : -1;
}

int OpenProgressFile() {
  const int passed = PassedProgressFile();
  return passed >= 0 ? passed : memfd_create(kProgressName, 0);
}

int Become(const std::vector<std::string>& command) {
  Program program{command.front(), command};
  program.keepInheritable = true;  // the output, and the file for the progress
  LaunchOptions options;
  options.streams = StandardStreams::kKept;
  Confinement confinement(Job::kTranscoder, ReachOf(command));
  confinement.AddTo(options);
  return RefuseToStart(program.path, orvo::Become(program, options));
}

int RefuseToStart(const std::string& executable, int error) {
  ORVO_LOG("cannot start %s: %s. Install the ffmpeg package.", executable.c_str(), strerror(error));
  return kExitNotFound;
}

}  // namespace orvo::transcoder
