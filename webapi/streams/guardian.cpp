#include "webapi/streams/guardian.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "platform/pidfd.h"
#include "platform/plat.h"

namespace webapi {
namespace {

// The client's connection must not stay open on the guardian's account, nor may the terminal's
// signals reach it.
void LeaveTheRequest() {
  setsid();
  signal(SIGTERM, SIG_IGN);
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  for (int standard = STDIN_FILENO; null >= 0 && standard <= STDERR_FILENO; ++standard) {
    dup2(null, standard);
  }
}

void WaitForEnd(int process) {
  pollfd wait{process, POLLIN, 0};
  while (poll(&wait, 1, -1) < 0 && errno == EINTR) {
  }
}

}  // namespace

bool WatchOverMe(const std::function<void()>& afterwards) {
  const orvo::UniqueFd me = orvo::OpenProcess(getpid());
  if (!me.IsOpen()) {
    return false;
  }
  const int forked = PlatProcForkChildNoWait();
  if (forked == 0) {
    LeaveTheRequest();
    WaitForEnd(me.Get());
    afterwards();
    _exit(0);
  }
  return forked > 0;
}

}  // namespace webapi
