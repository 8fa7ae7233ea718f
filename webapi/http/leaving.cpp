#include "webapi/http/leaving.h"

#include <csignal>

namespace webapi {
namespace {

void HandleLeaving(int how) {
  sigset_t leaving;
  sigemptyset(&leaving);
  sigaddset(&leaving, SIGTERM);
  sigprocmask(how, &leaving, nullptr);
}

}  // namespace

void OutliveClient() {
  HandleLeaving(SIG_BLOCK);
}

bool HasClientLeft() {
  sigset_t pending;
  return sigpending(&pending) == 0 && sigismember(&pending, SIGTERM) == 1;
}

void EndWithClient() {
  HandleLeaving(SIG_UNBLOCK);
}

}  // namespace webapi
