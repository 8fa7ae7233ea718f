#include "platform/process_group.h"

#include <cerrno>
#include <csignal>

namespace orvo {

bool SignalGroup(pid_t leader, int signal) {
  // 1 would name every process of the machine.
  if (leader <= 1) {
    errno = ESRCH;
    return false;
  }
  return kill(-leader, signal) == 0;
}

}  // namespace orvo
