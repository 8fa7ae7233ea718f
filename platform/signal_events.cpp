#include "platform/signal_events.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>

namespace orvo {

SignalEvents::SignalEvents(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : signals) {
    sigaddset(&set, signal);
  }
  sigprocmask(SIG_BLOCK, &set, nullptr);
  descriptor_.Reset(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
}

int SignalEvents::Take() {
  signalfd_siginfo taken{};
  return read(descriptor_.Get(), &taken, sizeof taken) == sizeof taken
             ? static_cast<int>(taken.ssi_signo)
             : 0;
}

}  // namespace orvo
