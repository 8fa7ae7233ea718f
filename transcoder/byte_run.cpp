#include "transcoder/byte_run.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <optional>
#include <string_view>

#include "platform/log.h"
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
    while (Step()) {
    }
    child_.Close();
    const int code = child_.ExitCode();
    return {code, code != 0 && !hasWritten_ && !child_.IsStopped()};
  }

 private:
  bool Step() { return !child_.Wait(-1, false).hasOutput || PassOn(); }

  // Moves no more than fits, so that a signal is seen while the reader takes its time.
  bool PassOn() {
    if (child_.WaitToWrite(output_)) {
      const ssize_t count = child_.Move(output_);
      hasWritten_ |= count > 0;
      if (count >= 0) {
        return count > 0;
      }
      if (errno == EINTR || errno == EAGAIN) {
        return true;
      }
    }
    child_.Stop(SIGKILL);
    return false;
  }

  ChildStream child_;
  int output_;
  bool hasWritten_ = false;
};

}  // namespace

int OutputOf(const std::vector<std::string>& command) {
  return DescriptorOf(command.back()).value_or(STDOUT_FILENO);
}

bool WritesBytes(const std::vector<std::string>& command) {
  return DescriptorOf(command.back()).has_value();
}

ByteRunEnd RunEngineBytes(std::vector<std::string> command) {
  const int output = OutputOf(command);
  command.back() = "pipe:1";
  auto child = ChildStream::Start(command);
  if (!child) {
    return {kExitNotFound};
  }
  child->LimitSilence(kSilence);
  return Relay(std::move(*child), output).Finish();
}

int RunCopyBytes(const FilmCopy& copy, int progress, const std::vector<std::string>& command) {
  auto child = ChildStream::Start(copy, progress);
  const ByteRunEnd end = child ? Relay(std::move(*child), OutputOf(command)).Finish()
                               : ByteRunEnd{kExitNeedsFFmpeg, true};
  if (!end.canGoOn) {
    return end.code;
  }
  Log(LOG_NOTICE, __FILE__, __LINE__, "%s needs FFmpeg to be copied", copy.film.c_str());
  PrepareProcess();  // FFmpeg gets its signals as a first run would
  return Become(command);
}

}  // namespace orvo::transcoder
