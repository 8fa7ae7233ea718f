#include "platform/system_call_filter.h"

#include <asm/termbits.h>
#include <linux/audit.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace orvo {
namespace {

#if defined(__x86_64__)
constexpr uint32_t kArchitecture = AUDIT_ARCH_X86_64;
constexpr uint32_t kX32Calls = 0x40000000;  // the other calls that this architecture has
#elif defined(__aarch64__)
constexpr uint32_t kArchitecture = AUDIT_ARCH_AARCH64;
#else
#error "Name the architecture as <linux/audit.h> does."
#endif

// Landlock's calls, which headers of an older kernel do not name.
constexpr int kCreateRuleset = 444;
constexpr int kAddRule = 445;
constexpr int kRestrictSelf = 446;

constexpr uint32_t kAllow = SECCOMP_RET_ALLOW;
constexpr uint32_t kRefuse = SECCOMP_RET_ERRNO | EPERM;
constexpr uint32_t kUnknown = SECCOMP_RET_ERRNO | ENOSYS;  // the caller takes an older call then
constexpr uint32_t kEnd = SECCOMP_RET_KILL_PROCESS;

constexpr int kAllowed[] = {
    // Files. Landlock says which.
    SYS_openat, SYS_close, SYS_read, SYS_write, SYS_readv, SYS_writev, SYS_pread64, SYS_pwrite64,
    SYS_preadv, SYS_pwritev, SYS_lseek, SYS_fcntl, SYS_dup, SYS_dup3, SYS_pipe2, SYS_fstat,
    SYS_newfstatat, SYS_statx, SYS_faccessat, SYS_readlinkat, SYS_getdents64, SYS_getcwd,
    SYS_statfs, SYS_fstatfs, SYS_fadvise64, SYS_readahead, SYS_flock, SYS_fsync, SYS_fdatasync,
    SYS_ftruncate, SYS_fallocate, SYS_mkdirat, SYS_unlinkat, SYS_renameat2, SYS_umask,
    SYS_memfd_create,
#ifdef SYS_faccessat2
    SYS_faccessat2,
#endif
#ifdef SYS_close_range
    SYS_close_range,
#endif
#ifdef SYS_renameat
    SYS_renameat,
#endif
#ifdef SYS_open  // the older calls that newer architectures lack
    SYS_open, SYS_stat, SYS_lstat, SYS_access, SYS_readlink, SYS_getdents, SYS_dup2, SYS_pipe,
    SYS_mkdir, SYS_rmdir, SYS_unlink, SYS_rename, SYS_poll, SYS_select, SYS_epoll_create,
    SYS_epoll_wait, SYS_time, SYS_arch_prctl,
#endif
    // Memory.
    SYS_brk, SYS_mmap, SYS_munmap, SYS_mprotect, SYS_mremap, SYS_madvise, SYS_msync, SYS_mincore,
    SYS_mlock, SYS_munlock, SYS_membarrier, SYS_mbind, SYS_get_mempolicy, SYS_set_mempolicy,
    // Threads, and what they wait for.
    SYS_futex, SYS_set_tid_address, SYS_set_robust_list, SYS_get_robust_list, SYS_sched_yield,
    SYS_sched_getaffinity, SYS_sched_setaffinity, SYS_sched_getparam, SYS_sched_getscheduler,
    SYS_sched_get_priority_max, SYS_sched_get_priority_min, SYS_getpriority, SYS_getcpu, SYS_ppoll,
    SYS_pselect6, SYS_epoll_create1, SYS_epoll_ctl, SYS_epoll_pwait, SYS_eventfd2, SYS_nanosleep,
    SYS_clock_nanosleep, SYS_restart_syscall,
#ifdef SYS_rseq
    SYS_rseq,
#endif
    // Signals, its own.
    SYS_rt_sigaction, SYS_rt_sigprocmask, SYS_rt_sigreturn, SYS_rt_sigpending, SYS_rt_sigtimedwait,
    SYS_sigaltstack, SYS_tgkill,
    // Questions.
    SYS_getpid, SYS_gettid, SYS_getppid, SYS_getpgid, SYS_getsid, SYS_getuid, SYS_geteuid,
    SYS_getgid, SYS_getegid, SYS_getresuid, SYS_getresgid, SYS_getgroups, SYS_capget, SYS_uname,
    SYS_sysinfo, SYS_getrusage, SYS_getrlimit, SYS_times, SYS_clock_gettime, SYS_clock_getres,
    SYS_gettimeofday, SYS_getrandom,
    // Names of threads and the like. The kernel lets nobody undo a confinement by it.
    SYS_prctl, SYS_exit, SYS_exit_group};

// For a process that starts others, and what the others do before they have filters of their own.
constexpr int kForking[] = {
    SYS_clone,   SYS_wait4,   SYS_waitid,  SYS_kill,       SYS_pidfd_open, SYS_pidfd_send_signal,
    SYS_accept4, SYS_recvmsg, SYS_sendmsg, SYS_getsockopt, SYS_prlimit64,  SYS_setpriority,
    SYS_setpgid, SYS_unshare, SYS_seccomp, kCreateRuleset, kAddRule,       kRestrictSelf,
#ifdef SYS_fork
    SYS_fork,
#endif
};

constexpr uint32_t LowHalf(int argument) {
  return offsetof(seccomp_data, args) + sizeof(uint64_t) * static_cast<uint32_t>(argument);
}

constexpr uint32_t HighHalf(int argument) {
  return LowHalf(argument) + sizeof(uint32_t);
}

// One instruction after the other. Skips count the instructions that they leave out.
class Writer {
 public:
  void Load(uint32_t offset) { program_.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offset)); }
  void Return(uint32_t answer) { program_.push_back(BPF_STMT(BPF_RET | BPF_K, answer)); }
  void SkipIfEqual(uint32_t value, uint8_t skip) {
    program_.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, skip, 0));
  }
  void SkipUnlessEqual(uint32_t value, uint8_t skip) {
    program_.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, skip));
  }
  // Skips below the value, goes on from it.
  void SkipIfBelow(uint32_t value, uint8_t skip) {
    program_.push_back(BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, value, 0, skip));
  }
  void SkipUnlessAnyOf(uint32_t bits, uint8_t skip) {
    program_.push_back(BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, bits, 0, skip));
  }
  void Answer(int call, uint32_t answer) {
    SkipUnlessEqual(static_cast<uint32_t>(call), 1);
    Return(answer);
  }

  // All of `decision`, which ends with an answer, for this call only.
  void Decide(int call, const Writer& decision) {
    SkipUnlessEqual(static_cast<uint32_t>(call), static_cast<uint8_t>(decision.program_.size()));
    program_.insert(program_.end(), decision.program_.begin(), decision.program_.end());
  }

  std::vector<sock_filter> Take() { return std::move(program_); }

 private:
  std::vector<sock_filter> program_;
};

void CheckArchitecture(Writer& writer) {
  writer.Load(offsetof(seccomp_data, arch));
  writer.SkipIfEqual(kArchitecture, 1);
  writer.Return(kEnd);
  writer.Load(offsetof(seccomp_data, nr));
#if defined(__x86_64__)
  writer.SkipIfBelow(kX32Calls, 1);
  writer.Return(kEnd);
#endif
}

// A new thread has CLONE_THREAD. clone3 has its flags in memory, where no filter can look.
void AllowThreads(Writer& writer) {
#ifdef SYS_clone3
  writer.Answer(SYS_clone3, kUnknown);
#endif
  Writer clone;
  clone.Load(LowHalf(0));
  clone.SkipUnlessAnyOf(CLONE_THREAD, 1);
  clone.Return(kAllow);
  clone.Return(kRefuse);
  writer.Decide(SYS_clone, clone);
}

// The answers of these calls come before those that refuse them.
void AllowForking(Writer& writer) {
  for (const int call : kForking) {
    writer.Answer(call, kAllow);
  }
}

// Root could raise its limits again, so they may be read only.
void AllowReadingLimits(Writer& writer) {
  Writer limits;
  limits.Load(LowHalf(2));
  limits.SkipUnlessEqual(0, 3);
  limits.Load(HighHalf(2));
  limits.SkipUnlessEqual(0, 1);
  limits.Return(kAllow);
  limits.Return(kRefuse);
  writer.Decide(SYS_prlimit64, limits);
}

// A terminal that was inherited takes no input from here.
void AllowDeviceCalls(Writer& writer) {
  Writer device;
  device.Load(LowHalf(1));
  device.Answer(TIOCSTI, kRefuse);
  device.Answer(TIOCLINUX, kRefuse);
  device.Return(kAllow);
  writer.Decide(SYS_ioctl, device);
}

// Both ends stay in the process: it can neither connect to another one nor pass descriptors on.
void AllowLocalPairs(Writer& writer) {
  Writer pair;
  pair.Load(LowHalf(0));
  pair.SkipUnlessEqual(AF_UNIX, 1);
  pair.Return(kAllow);
  pair.Return(kRefuse);
  writer.Decide(SYS_socketpair, pair);
}

}  // namespace

std::vector<sock_filter> MediaFilter(Execution execution, SocketPairs pairs) {
  Writer writer;
  CheckArchitecture(writer);
  if (execution == Execution::kForks) {
    AllowForking(writer);
  }
  AllowThreads(writer);
  AllowReadingLimits(writer);
  AllowDeviceCalls(writer);
  if (execution == Execution::kAllowed) {
    writer.Answer(SYS_execve, kAllow);
  }
  if (pairs == SocketPairs::kAllowed) {
    AllowLocalPairs(writer);
  }
  for (const int call : kAllowed) {
    writer.Answer(call, kAllow);
  }
  writer.Return(kRefuse);
  return writer.Take();
}

int InstallFilter(const std::vector<sock_filter>& filter) {
  const sock_fprog program{static_cast<unsigned short>(filter.size()),
                           const_cast<sock_filter*>(filter.data())};
  const bool isDone = prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
                      prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
  return isDone ? 0 : errno;
}

bool HasSystemCallFilters() {
  const uint32_t action = SECCOMP_RET_KILL_PROCESS;
  return syscall(SYS_seccomp, SECCOMP_GET_ACTION_AVAIL, 0, &action) == 0;
}

}  // namespace orvo
