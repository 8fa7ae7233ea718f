#include "serve/heartbeat.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>

#include "serve/readiness.h"

namespace serve {
namespace {

bool IsReadable(const orvo::UniqueFd& descriptor) {
  pollfd look{descriptor.Get(), POLLIN, 0};
  return descriptor.IsOpen() && poll(&look, 1, 0) > 0;
}

bool HasBytes(const orvo::UniqueFd& descriptor) {
  char byte = '\0';
  return read(descriptor.Get(), &byte, 1) == 1;
}

}  // namespace

Heartbeat::Heartbeat(const WebServer& server) : server_(server), interval_(WatchdogTime() / 2) {}

void Heartbeat::Update() {
  if (IsReadable(question_)) {
    if (HasBytes(question_)) {
      AnnounceLife();
    }
    question_.Reset();
  }
  if (interval_.count() > 0 && Clock::now() >= next_) {
    next_ = Clock::now() + interval_;
    Ask();
  }
}

void Heartbeat::Ask() {
  if (server_.certificate.empty()) {
    question_ = serve::Ask(server_);
  } else {
    AnnounceLife();
  }
}

int Heartbeat::Patience() const {
  if (interval_.count() == 0) {
    return -1;
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(next_ - Clock::now());
  return static_cast<int>(std::max<long>(left.count(), 0));
}

}  // namespace serve
