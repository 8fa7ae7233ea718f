#include "stream/pipeline/monitor.h"

#include <poll.h>

#include <csignal>
#include <exception>

#include "platform/io.h"
#include "platform/process_launch.h"
#include "platform/unique_fd.h"

namespace LibOrvoQMX {
namespace {

// A monitor waits up to five seconds for the end of the old monitor.
constexpr int kRecordMilliseconds = 10000;

// Closes `recorded` when `record` has returned.
void RunMonitor(const std::function<bool()>& record, const std::function<void()>& watch,
                orvo::UniqueFd& recorded) {
  try {
    const bool isRecorded = record();
    recorded.Reset();
    if (isRecorded) {
      watch();
    }
  } catch (const std::exception&) {
    // No caller is left that could receive the exception.
  }
}

}  // namespace

bool StartMonitor(void (*handler)(int), const std::function<bool()>& record,
                  const std::function<void()>& watch) {
  orvo::UniqueFd readEnd;
  orvo::UniqueFd writeEnd;
  if (!orvo::OpenPipe(readEnd, writeEnd)) {
    return false;
  }
  orvo::LaunchOptions options;
  options.detached = true;
  options.actions = {{SIGINT, handler}, {SIGTERM, handler}};
  const auto body = [&] {
    readEnd.Reset();
    RunMonitor(record, watch, writeEnd);
    return 0;
  };
  if (!orvo::Fork(body, options)) {
    return false;
  }
  writeEnd.Reset();
  pollfd recorded{readEnd.Get(), POLLIN, 0};
  poll(&recorded, 1, kRecordMilliseconds);
  return true;
}

}  // namespace LibOrvoQMX
