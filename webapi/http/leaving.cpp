#include "webapi/http/leaving.h"

#include <poll.h>
#include <unistd.h>

#include <csignal>

namespace webapi {
namespace {

void HandleLeaving(int how) {
  sigset_t leaving;
  sigemptyset(&leaving);
  sigaddset(&leaving, SIGTERM);
  sigprocmask(how, &leaving, nullptr);
}

// Nobody reads the answer any more.
bool IsOutputClosed() {
  pollfd output = {STDOUT_FILENO, 0, 0};
  return poll(&output, 1, 0) == 1 && (output.revents & (POLLERR | POLLHUP)) != 0;
}

bool IsTermPending() {
  sigset_t pending;
  return sigpending(&pending) == 0 && sigismember(&pending, SIGTERM) == 1;
}

}  // namespace

void OutliveClient() {
  HandleLeaving(SIG_BLOCK);
}

bool HasClientLeft() {
  return IsTermPending() || IsOutputClosed();
}

void EndWithClient() {
  HandleLeaving(SIG_UNBLOCK);
}

}  // namespace webapi
