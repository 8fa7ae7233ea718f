#include "platform/idle.h"

#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace orvo {

void BecomeIdle() {
  constexpr int kWhoProcess = 1;
  constexpr int kIdleClass = 3 << 13;
  constexpr int kLowest = 19;
  const sched_param none{};
  setpriority(PRIO_PROCESS, 0, kLowest);
  sched_setscheduler(0, SCHED_IDLE, &none);
  syscall(SYS_ioprio_set, kWhoProcess, 0, kIdleClass);
}

}  // namespace orvo
