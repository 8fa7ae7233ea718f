#include "webapi/library/job_queue.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <chrono>

#include "platform/plat.h"
#include "util/file_lock.h"
#include "webapi/library/film_cache.h"

namespace webapi {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kPlaces = 2;
constexpr int kLine = 32;
constexpr int kPatienceMilliseconds = 15000;

// Locks one of `count` bytes, beginning with `first`. Returns false if other processes hold all of
// them.
bool LockOneOf(const orvo::UniqueFd& file, int first, int count) {
  for (int number = first; number < first + count; ++number) {
    if (orvo::LockByte(file, number, false)) {
      return true;
    }
  }
  return false;
}

// Waits for a change. Returns false if the time is over.
bool WaitUntil(int changes, Clock::time_point deadline) {
  const auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  pollfd wait{changes, POLLIN, 0};
  if (left <= 0 || poll(&wait, 1, static_cast<int>(left)) == 0) {
    return false;
  }
  std::array<char, 4096> events;
  return read(changes, events.data(), events.size()) > 0 || errno == EAGAIN || errno == EINTR;
}

}  // namespace

std::optional<JobPlace> JobPlace::Take(const std::string& file, int places, int line,
                                       int milliseconds) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
  orvo::UniqueFd queue = orvo::OpenLockFile(file);
  if (!queue.IsOpen()) {
    return std::nullopt;
  }
  if (LockOneOf(queue, 0, places)) {
    return JobPlace(std::move(queue));
  }
  // A process that leaves the queue closes the file. The watch starts before the next check, so no
  // such event is missed.
  const orvo::UniqueFd changes(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  if (inotify_add_watch(changes.Get(), file.c_str(), IN_CLOSE_WRITE) < 0 ||
      !LockOneOf(queue, places, line)) {
    return std::nullopt;
  }
  while (!LockOneOf(queue, 0, places)) {
    if (!WaitUntil(changes.Get(), deadline)) {
      return std::nullopt;
    }
  }
  return JobPlace(std::move(queue));
}

std::optional<JobPlace> JobPlace::Take() {
  const std::string folder = orvo::SystemPath(kCacheFolder);
  if (!libmrv::critical::orvosdk::ORVOFSMkdirPMirevo(folder, 0755)) {
    return std::nullopt;
  }
  return Take(folder + "/.jobs", kPlaces, kLine, kPatienceMilliseconds);
}

}  // namespace webapi
