#include "transcoder/byte_run.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <optional>
#include <string_view>

#include "platform/log.h"
#include "platform/signal_events.h"
#include "transcoder/child_stream.h"
#include "transcoder/launch.h"
#include "transcoder/ready_client.h"

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

// The reader of the output sees its end when FFmpeg has ended.
void LeaveOutput(int output) {
  const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (null < 0 || dup2(null, output) < 0) {
    close(output);
  }
  close(null);
}

// Waits for the end. A signal ends the run at once, as nobody wants the rest.
int Await(Worker& worker, SignalEvents& signals) {
  for (;;) {
    pollfd events[] = {{signals.Descriptor(), POLLIN, 0}, {worker.Descriptor(), POLLIN, 0}};
    if (poll(events, 2, -1) < 0) {
      continue;
    }
    if (events[1].revents != 0) {
      return worker.Wait();
    }
    if (signals.Take() != 0) {
      worker.End(SIGKILL);
    }
  }
}

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

int RunBytes(const std::vector<std::string>& command) {
  {
    SignalEvents signals({SIGINT, SIGTERM});
    const auto worker = signals.IsOpen() ? AskForFFmpeg(command) : nullptr;
    if (worker != nullptr) {
      LeaveOutput(OutputOf(command));
      return Await(*worker, signals);
    }
  }
  PrepareProcess();  // FFmpeg gets its signals as before
  return Become(command);
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
  return RunBytes(command);
}

}  // namespace orvo::transcoder
