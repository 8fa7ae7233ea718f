#include "support/chosen_pid.h"

#include <linux/sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>

namespace test {

pid_t ForkAs(pid_t number) {
  clone_args args{};
  args.exit_signal = SIGCHLD;
  args.set_tid = reinterpret_cast<uint64_t>(&number);
  args.set_tid_size = 1;
  const auto pid = static_cast<pid_t>(syscall(SYS_clone3, &args, sizeof args));
  if (pid == 0) {
    for (;;) {
      pause();
    }
  }
  return pid;
}

}  // namespace test
