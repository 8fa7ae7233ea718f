#include "platform/confined_call.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>

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

std::optional<std::string> ReadUntil(int fd, Clock::time_point deadline, size_t longest) {
  std::string bytes;
  std::array<char, 65536> part{};
  while (WaitForBytes(fd, deadline)) {
    const ssize_t count = read(fd, part.data(), part.size());
    if (count <= 0) {
      return count == 0 ? std::optional(std::move(bytes)) : std::nullopt;
    }
    bytes.append(part.data(), static_cast<size_t>(count));
    if (bytes.size() > longest) {
      errno = EFBIG;
      break;
    }
  }
  return std::nullopt;
}

// A connection of this process's must not serve a film's purposes.
void CloseAllBut(int kept) {
  const auto number = static_cast<unsigned>(kept);
  if (number > STDERR_FILENO + 1) {
    close_range(STDERR_FILENO + 1, number - 1, 0);
  }
  close_range(number + 1, UINT_MAX, 0);
}

}  // namespace

std::optional<std::string> CallConfined(Job job, const Reach& reach, size_t longest,
                                        const std::function<std::string()>& function) {
  UniqueFd result;
  UniqueFd output;
  if (!OpenPipe(result, output)) {
    return std::nullopt;
  }
  Confinement confinement(job, reach);
  LaunchOptions options;
  options.group = ProcessGroup::kOwn;
  options.parentDeath.signal = SIGKILL;
  confinement.AddTo(options);
  const Clock::time_point deadline = After(confinement.WallMilliseconds());
  const Process process = Fork(
      [&] {
        CloseAllBut(output.Get());
        return WriteAll(output.Get(), function()) ? 0 : 1;
      },
      options);
  if (!process) {
    return std::nullopt;
  }
  output.Reset();
  return ReadUntil(result.Get(), deadline, longest);
}

}  // namespace orvo
