#include "stream/stream_watch.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <ctime>

#include "platform/pidfd.h"

namespace LibOrvoQMX {
namespace {

// Not every write: a transcoder writes all the time.
constexpr uint32_t kEvents = IN_CREATE | IN_MOVED_TO | IN_CLOSE_WRITE | IN_DELETE_SELF;

}  // namespace

orvo::UniqueFd OpenRunningProcess(pid_t pid) {
  orvo::UniqueFd process = pid > 0 ? orvo::OpenProcess(pid) : orvo::UniqueFd();
  pollfd look{process.Get(), POLLIN, 0};
  if (process.IsOpen() && poll(&look, 1, 0) > 0) {
    process.Reset();
  }
  return process;
}

StreamWatch::StreamWatch(const std::string& directory)
    : changes_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  Add(directory);
}

void StreamWatch::Add(const std::string& directory) const {
  inotify_add_watch(changes_.Get(), directory.c_str(), kEvents);
}

void StreamWatch::Wait(const orvo::UniqueFd& process, int milliseconds) const {
  std::array<pollfd, 2> events{{{changes_.Get(), POLLIN, 0}, {process.Get(), POLLIN, 0}}};
  poll(events.data(), events.size(), milliseconds);
  std::array<char, 4096> ignored{};
  while (read(changes_.Get(), ignored.data(), ignored.size()) > 0) {
  }
}

SignalGate::SignalGate() {
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGINT);
  sigaddset(&stop, SIGTERM);
  sigprocmask(SIG_BLOCK, &stop, &previous_);
}

SignalGate::~SignalGate() {
  sigprocmask(SIG_SETMASK, &previous_, nullptr);
}

void SignalGate::Wait(const orvo::UniqueFd& process, int milliseconds) const {
  pollfd end{process.Get(), POLLIN, 0};
  const timespec limit{milliseconds / 1000, (milliseconds % 1000) * 1000000L};
  ppoll(&end, 1, &limit, &previous_);
}

}  // namespace LibOrvoQMX
