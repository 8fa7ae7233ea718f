#include "platform/confined_call.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <vector>

#include "platform/io.h"
#include "platform/process.h"
#include "platform/process_launch.h"
#include "platform/unique_fd.h"

namespace orvo {
namespace {

using Clock = std::chrono::steady_clock;

// The moment in `milliseconds`; the end of time for -1.
Clock::time_point After(int milliseconds) {
  return milliseconds < 0 ? Clock::time_point::max()
                          : Clock::now() + std::chrono::milliseconds(milliseconds);
}

int MillisecondsUntil(Clock::time_point deadline) {
  if (deadline == Clock::time_point::max()) {
    return -1;
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return static_cast<int>(std::max<int64_t>(left, 0));
}

// False, with errno set, when the time is over first.
bool WaitForBytes(int fd, Clock::time_point deadline) {
  pollfd wait{fd, POLLIN, 0};
  int ready = -1;
  do {
    ready = poll(&wait, 1, MillisecondsUntil(deadline));
  } while (ready < 0 && errno == EINTR);
  errno = ready == 0 ? ETIMEDOUT : errno;
  return ready > 0;
}

// To the end of the bytes. False, with errno set, when it is not reached.
bool PassOn(int fd, Clock::time_point deadline, const std::function<bool(std::string_view)>& take) {
  std::array<char, 65536> part{};
  while (WaitForBytes(fd, deadline)) {
    const ssize_t count = read(fd, part.data(), part.size());
    if (count <= 0) {
      return count == 0;
    }
    if (!take({part.data(), static_cast<size_t>(count)})) {
      errno = EFBIG;
      break;
    }
  }
  return false;
}

}  // namespace

int RunConfined(Job job, const Reach& reach, const std::function<int(int output)>& body,
                const std::function<bool(std::string_view)>& take) {
  UniqueFd result;
  UniqueFd output;
  if (!OpenPipe(result, output)) {
    return -1;
  }
  Confinement confinement(job, reach);
  LaunchOptions options;
  options.group = ProcessGroup::kOwn;
  options.parentDeath.signal = SIGKILL;
  confinement.AddTo(options);
  const Clock::time_point deadline = After(confinement.WallMilliseconds());
  std::vector<int> kept = reach.files;
  kept.push_back(output.Get());
  Process process = Fork(
      [&] {
        // A connection of this process's must not serve a film's purposes.
        CloseAllBut(kept);
        return body(output.Get());
      },
      options);
  if (!process) {
    return -1;
  }
  output.Reset();
  if (!PassOn(result.Get(), deadline, take)) {
    const int error = errno;
    process = Process();
    errno = error;
    return -1;
  }
  // Whoever has closed its output has nothing more to do.
  return process.End(0, MillisecondsUntil(deadline));
}

std::optional<std::string> CallConfined(Job job, const Reach& reach, size_t longest,
                                        const std::function<std::string()>& function) {
  std::string bytes;
  const int status = RunConfined(
      job, reach, [&](int output) { return WriteAll(output, function()) ? 0 : 1; },
      [&](std::string_view part) {
        bytes += part;
        return bytes.size() <= longest;
      });
  return status < 0 ? std::nullopt : std::optional(std::move(bytes));
}

}  // namespace orvo
