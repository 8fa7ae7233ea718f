#include "webapi/streams/guardian.h"

#include <unistd.h>

#include <csignal>

#include "platform/process_launch.h"

namespace webapi {

bool WatchOverMe(const std::function<void()>& afterwards) {
  const orvo::Process me = orvo::Process::Open(getpid());
  if (!me) {
    return false;
  }
  // The terminal's signals and those that end the request must not reach the guardian.
  orvo::LaunchOptions options;
  options.detached = true;
  options.group = orvo::ProcessGroup::kSession;
  options.actions = {{SIGTERM, SIG_IGN}};
  const auto watch = [&] {
    me.HasEndedWithin(-1);
    afterwards();
    return 0;
  };
  return static_cast<bool>(orvo::Fork(watch, options));
}

}  // namespace webapi
