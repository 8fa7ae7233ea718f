#include "state/stream_watch.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <ctime>
#include <utility>

#include "platform/pidfd.h"

namespace LibOrvoQMX {
namespace {

// Single writes are left out, because a transcoder writes all the time.
constexpr uint32_t kEvents = IN_CREATE | IN_MOVED_TO | IN_CLOSE_WRITE | IN_DELETE_SELF;

// The process's inotify descriptor while no StreamWatch uses it. It stays open to the end of the
// process: the kernel needs 10 to 40 ms to close one, and the viewer must not wait for that. A
// forked child needs its own.
struct SpareChanges {
  int descriptor = -1;
  pid_t owner = -1;
};
SpareChanges gSpare;

int TakeChanges() {
  const int spare = std::exchange(gSpare.descriptor, -1);
  if (spare >= 0 && gSpare.owner == getpid()) {
    return spare;
  }
  if (spare >= 0) {
    close(spare);
  }
  return inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
}

void GiveChangesBack(int descriptor) {
  if (gSpare.descriptor >= 0) {
    close(descriptor);
    return;
  }
  gSpare = {descriptor, getpid()};
}

}  // namespace

orvo::UniqueFd OpenRunningProcess(pid_t pid) {
  orvo::UniqueFd process = pid > 0 ? orvo::OpenProcess(pid) : orvo::UniqueFd();
  pollfd look{process.Get(), POLLIN, 0};
  if (process.IsOpen() && poll(&look, 1, 0) > 0) {
    process.Reset();
  }
  return process;
}

StreamWatch::StreamWatch(const std::string& directory) : changes_(TakeChanges()) {
  Drain();
  Add(directory);
}

StreamWatch::~StreamWatch() {
  for (const int watch : watches_) {
    inotify_rm_watch(changes_, watch);
  }
  GiveChangesBack(changes_);
}

void StreamWatch::Add(const std::string& directory) {
  const int watch = inotify_add_watch(changes_, directory.c_str(), kEvents);
  if (watch >= 0) {
    watches_.insert(watch);
  }
}

void StreamWatch::Drain() const {
  std::array<char, 4096> ignored{};
  while (read(changes_, ignored.data(), ignored.size()) > 0) {
  }
}

void StreamWatch::Wait(const orvo::UniqueFd& process, int milliseconds) const {
  std::array<pollfd, 2> events{{{changes_, POLLIN, 0}, {process.Get(), POLLIN, 0}}};
  poll(events.data(), events.size(), milliseconds);
  Drain();
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
