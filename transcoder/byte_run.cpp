#include "transcoder/byte_run.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <optional>
#include <string_view>

#include "transcoder/child_stream.h"
#include "transcoder/launch.h"

namespace orvo::transcoder {
namespace {

constexpr std::string_view kPipe = "pipe:";
constexpr int kSilence = 8000;  // milliseconds

std::optional<int> DescriptorOf(std::string_view output) {
  int number = -1;
  if (!output.starts_with(kPipe)) {
    return std::nullopt;
  }
  output.remove_prefix(kPipe.size());
  const auto parsed = std::from_chars(output.data(), output.data() + output.size(), number);
  const bool isNumber = parsed.ec == std::errc() && parsed.ptr == output.data() + output.size();
  return isNumber && number >= 0 ? std::optional(number) : std::nullopt;
}

class Relay {
 public:
  Relay(ChildStream child, int output) : child_(std::move(child)), output_(output) {}

  ByteRunEnd Finish() {
    child_.LimitSilence(kSilence);
    while (Step()) {
    }
    child_.Close();
    const int code = child_.ExitCode();
    return {code, code != 0 && !hasWritten_ && !child_.IsStopped()};
  }

 private:
  bool Step() {
    if (!child_.Wait(-1, false).hasOutput) {
      return true;
    }
    const ssize_t count = child_.Read(chunk_.data(), chunk_.size());
    return count < 0 || (count > 0 && PassOn({chunk_.data(), static_cast<size_t>(count)}));
  }

  // Writes no more than fits, so that a signal is seen while the reader takes its time.
  bool PassOn(std::string_view bytes) {
    while (!bytes.empty() && child_.WaitToWrite(output_)) {
      const ssize_t count = write(output_, bytes.data(), std::min(bytes.size(), size_t{4096}));
      if (count < 0 && errno != EINTR && errno != EAGAIN) {
        break;
      }
      hasWritten_ |= count > 0;
      bytes.remove_prefix(static_cast<size_t>(std::max<ssize_t>(count, 0)));
    }
    if (!bytes.empty()) {
      child_.Stop(SIGKILL);
    }
    return bytes.empty();
  }

  ChildStream child_;
  int output_;
  bool hasWritten_ = false;
  std::array<char, 65536> chunk_;
};

}  // namespace

bool WritesBytes(const std::vector<std::string>& command) {
  return DescriptorOf(command.back()).has_value();
}

ByteRunEnd RunEngineBytes(std::vector<std::string> command) {
  const int output = DescriptorOf(command.back()).value_or(STDOUT_FILENO);
  command.back() = "pipe:1";
  auto child = ChildStream::Start(command);
  return child ? Relay(std::move(*child), output).Finish() : ByteRunEnd{kExitNotFound};
}

}  // namespace orvo::transcoder
