#include "platform/confinement.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <functional>
#include <thread>

#include "platform/confined_call.h"
#include "platform/landlock.h"
#include "platform/process_launch.h"
#include "platform/system_call_filter.h"
#include "platform/unique_fd.h"
#include "support/log_capture.h"
#include "support/processes.h"
#include "support/sysroot.h"

namespace {

using orvo::Confinement;
using orvo::Job;
using orvo::Process;
using orvo::Reach;
using Sandbox = orvo::Sandbox;

constexpr char kSettings[] = "/var/packages/Mirevo/etc/confinement.conf";

// What the operation left in errno; 0 when it succeeded.
int ErrorOf(bool succeeded) {
  return succeeded ? 0 : errno;
}

int OpenError(const std::string& path, int flags) {
  const orvo::UniqueFd file(open(path.c_str(), flags | O_CLOEXEC, 0600));
  return ErrorOf(file.IsOpen());
}

class Confined : public test::Sysroot {
 protected:
  // What `body` returns in a confined process.
  static int In(Job job, const Reach& reach, const std::function<int()>& body) {
    Confinement confinement(job, reach);
    orvo::LaunchOptions options;
    confinement.AddTo(options);
    Process process = orvo::Fork(body, options);
    return process ? process.Wait() : -1;
  }
  int InProbe(const std::function<int()>& body) const {
    return In(Job::kProbe, {.read = {Path("/film")}}, body);
  }
  void SetUp() override {
    Sysroot::SetUp();
    Write("/film", "pictures");
    Write("/accounts", "secrets");
    MakeDirectory("/stream");
  }
  int Run(const std::string& program, const std::vector<std::string>& argv,
          std::string* output = nullptr) const {
    return orvo::RunConfined(
        Job::kPicture, {.program = program, .read = {Path("/film")}, .write = {Path("/stream")}},
        argv, 20000, output);
  }
};

class ConfinedFiles : public Confined {
 protected:
  void SetUp() override {
    Confined::SetUp();
    if (orvo::LandlockVersion() == 0) {
      GTEST_SKIP() << "this kernel has no Landlock";
    }
  }
};

TEST_F(ConfinedFiles, TheFilmCanBeReadAndNotWritten) {
  EXPECT_EQ(InProbe([&] { return OpenError(Path("/film"), O_RDONLY); }), 0);
  EXPECT_EQ(InProbe([&] { return OpenError(Path("/film"), O_WRONLY); }), EACCES);
  EXPECT_EQ(InProbe([&] { return OpenError(Path("/film"), O_RDONLY | O_TRUNC); }), EACCES);
}

TEST_F(ConfinedFiles, NoOtherFileCanBeRead) {
  EXPECT_EQ(InProbe([&] { return OpenError(Path("/accounts"), O_RDONLY); }), EACCES);
  EXPECT_EQ(InProbe([] { return OpenError("/etc/passwd", O_RDONLY); }), EACCES);
  EXPECT_EQ(InProbe([&] { return OpenError(Root(), O_RDONLY | O_DIRECTORY); }), EACCES);
}

TEST_F(ConfinedFiles, NothingIsWrittenOutsideItsFolder) {
  const Reach reach{.write = {Path("/stream")}};
  const auto make = [](const std::string& path) { return OpenError(path, O_WRONLY | O_CREAT); };
  EXPECT_EQ(In(Job::kProbe, reach, [&] { return make(Path("/stream/part")); }), 0);
  EXPECT_TRUE(Exists("/stream/part"));
  EXPECT_EQ(In(Job::kProbe, reach, [&] { return make(Path("/other")); }), EACCES);
  EXPECT_EQ(In(Job::kProbe, reach, [&] { return make(Path("/accounts")); }), EACCES);
  EXPECT_EQ(
      In(Job::kProbe, reach,
         [&] { return ErrorOf(rename(Path("/stream/part").c_str(), Path("/out").c_str()) == 0); }),
      EACCES);
}

TEST_F(ConfinedFiles, AFilmThatIsALinkIsReadWhereItLies) {
  ASSERT_EQ(symlink(Path("/film").c_str(), Path("/link").c_str()), 0);
  const Reach reach{.read = {Path("/link")}};
  EXPECT_EQ(In(Job::kProbe, reach, [&] { return OpenError(Path("/link"), O_RDONLY); }), 0);
}

TEST_F(ConfinedFiles, ItSeesItselfInProcAndNoOtherProcess) {
  EXPECT_EQ(InProbe([] { return OpenError("/proc/self/status", O_RDONLY); }), 0);
  EXPECT_EQ(InProbe([] { return OpenError("/proc/1/cmdline", O_RDONLY); }), EACCES);
}

TEST_F(ConfinedFiles, AProgramCanExecuteNoOther) {
  std::string text;
  EXPECT_EQ(Run("/bin/sh", {"sh", "-c", "echo before; exec /bin/cat /dev/null"}, &text), 126);
  EXPECT_EQ(text, "before\n");
}

TEST_F(ConfinedFiles, AProgramReadsTheFilmAndNotTheAccounts) {
  std::string text;
  EXPECT_EQ(Run("/bin/cat", {"cat", Path("/film")}, &text), 0);
  EXPECT_EQ(text, "pictures");
  EXPECT_EQ(Run("/bin/cat", {"cat", Path("/accounts")}), 1);
}

// What `body` returns in a process that starts others and is confined itself.
int InParent(const std::function<int()>& body) {
  Process process = orvo::Fork([&] {
    Confinement own(Job::kTranscoder, {});
    const int error = own.EnterAsParent();
    return error != 0 ? error : body();
  });
  return process ? process.Wait() : -1;
}

TEST_F(ConfinedFiles, AParentOfConfinedProcessesReachesNoMoreThanThey) {
  EXPECT_EQ(InParent([&] { return OpenError(Path("/accounts"), O_RDONLY); }), EACCES);
  EXPECT_EQ(InParent([] { return ErrorOf(socket(AF_UNIX, SOCK_STREAM, 0) >= 0); }), EPERM);
  EXPECT_EQ(InParent([] {
              const char* const arguments[] = {"true", nullptr};
              return ErrorOf(execv("/bin/true", const_cast<char**>(arguments)) == 0);
            }),
            EPERM);
}

TEST_F(ConfinedFiles, AParentOfConfinedProcessesConfinesThem) {
  EXPECT_EQ(InParent([] {
              return In(Job::kTranscoder, {}, [] { return ErrorOf(fork() >= 0) == EPERM ? 0 : 1; });
            }),
            0);
}

TEST_F(ConfinedFiles, OnlyHarmlessDevicesAreOpen) {
  EXPECT_EQ(InProbe([] { return OpenError("/dev/null", O_RDWR); }), 0);
  EXPECT_EQ(InProbe([] { return OpenError("/dev/full", O_RDWR); }), EACCES);
}

TEST_F(Confined, NoSocketOpens) {
  for (const int family : {AF_INET, AF_INET6, AF_UNIX, AF_NETLINK}) {
    EXPECT_EQ(InProbe([&] { return ErrorOf(socket(family, SOCK_DGRAM, 0) >= 0); }), EPERM);
  }
  EXPECT_EQ(InProbe([] {
              int pair[2];
              return ErrorOf(socketpair(AF_UNIX, SOCK_STREAM, 0, pair) == 0);
            }),
            EPERM);
}

TEST_F(Confined, NoCallOfAnAttackerSucceeds) {
  for (const long call : {SYS_ptrace,         SYS_process_vm_readv, SYS_process_vm_writev,
                          SYS_mount,          SYS_umount2,          SYS_bpf,
                          SYS_keyctl,         SYS_add_key,          SYS_perf_event_open,
                          SYS_userfaultfd,    SYS_kexec_load,       SYS_init_module,
                          SYS_finit_module,   SYS_reboot,           SYS_clock_settime,
                          SYS_settimeofday,   SYS_setuid,           SYS_setgid,
                          SYS_setresuid,      SYS_setgroups,        SYS_unshare,
                          SYS_setns,          SYS_chroot,           SYS_pivot_root,
                          SYS_kill,           SYS_pidfd_open,       SYS_pidfd_getfd,
                          SYS_io_uring_setup, SYS_setrlimit,        SYS_personality,
                          SYS_symlinkat,      SYS_linkat,           SYS_fchmodat,
                          SYS_fchownat,       SYS_mknodat}) {
    EXPECT_EQ(InProbe([&] { return ErrorOf(syscall(call, 0, 0, 0, 0, 0, 0) >= 0); }), EPERM)
        << call;
  }
}

TEST_F(Confined, AFunctionExecutesNothing) {
  EXPECT_EQ(InProbe([] {
              char name[] = "true";
              char* const argv[] = {name, nullptr};
              execv("/bin/true", argv);
              return errno;
            }),
            EPERM);
}

TEST_F(Confined, ItHasThreadsAndNoChildren) {
  EXPECT_EQ(InProbe([] {
              int result = 1;
              std::thread([&] { result = 0; }).join();
              return result;
            }),
            0);
  EXPECT_EQ(InProbe([] { return ErrorOf(syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0) >= 0); }), EPERM);
  EXPECT_EQ(InProbe([] { return ErrorOf(syscall(SYS_clone3, nullptr, 0) >= 0); }), ENOSYS);
}

TEST_F(Confined, ItGetsNoNewPrivileges) {
  EXPECT_EQ(InProbe([] { return prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0); }), 1);
}

TEST_F(Confined, ItReadsItsLimitsAndCannotRaiseThem) {
  EXPECT_EQ(InProbe([] {
              rlimit limit{};
              return ErrorOf(getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_max == 256);
            }),
            0);
  EXPECT_EQ(InProbe([] {
              const rlimit more{4096, 4096};
              return ErrorOf(prlimit(0, RLIMIT_NOFILE, &more, nullptr) == 0);
            }),
            EPERM);
}

TEST_F(Confined, ItGetsNoMoreMemoryThanItsJobHas) {
  const auto map = [](size_t mebibytes) {
    void* const memory = mmap(nullptr, mebibytes << 20, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    return ErrorOf(memory != MAP_FAILED);
  };
  EXPECT_EQ(InProbe([&] { return map(400); }), 0);
  EXPECT_EQ(InProbe([&] { return map(513); }), ENOMEM);
}

TEST_F(Confined, ItEndsWithItsProcessorTime) {
  Write(kSettings, "probe_processor=1\n");
  EXPECT_EQ(InProbe([] {
              for (std::atomic<unsigned> n = 0;; ++n) {
              }
              return 0;
            }),
            128 + SIGKILL);
}

TEST_F(Confined, ItsFilesStaySmall) {
  const Reach reach{.write = {Path("/stream")}};
  const auto grow = [&](off_t size) {
    return In(Job::kProbe, reach, [&] {
      signal(SIGXFSZ, SIG_IGN);
      const orvo::UniqueFd file(
          open(Path("/stream/part").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
      return ErrorOf(ftruncate(file.Get(), size) == 0);
    });
  };
  EXPECT_EQ(grow(1 << 20), 0);
  EXPECT_EQ(grow((1 << 20) + 1), EFBIG);
}

TEST_F(Confined, AProgramEndsWithTheTimeOfItsJob) {
  Write(kSettings, "picture_wall=1\n");
  EXPECT_EQ(orvo::RunConfined(Job::kPicture, {.program = "/bin/sleep"}, {"sleep", "600"}, 600000),
            128 + SIGKILL);
}

TEST_F(Confined, AFunctionHasNoDescriptorOfItsCaller) {
  test::Pipe client;
  const auto result = orvo::CallConfined(Job::kProbe, {}, 100, [&] {
    return std::string(write(client.WriteEnd(), "x", 1) < 0 ? "closed" : "open");
  });
  EXPECT_EQ(result, "closed");
}

TEST_F(Confined, AFunctionThatTellsTooMuchIsEnded) {
  const auto tell = [](size_t bytes) {
    return orvo::CallConfined(Job::kProbe, {}, 100000, [=] { return std::string(bytes, 'x'); });
  };
  EXPECT_EQ(tell(100000), std::string(100000, 'x'));
  EXPECT_EQ(tell(100001), std::nullopt);
  EXPECT_EQ(errno, EFBIG);
  EXPECT_TRUE(test::HasNoChild());
}

TEST_F(Confined, AFunctionThatOutlastsItsTimeIsEnded) {
  Write(kSettings, "probe_wall=1\n");
  const auto result =
      orvo::CallConfined(Job::kProbe, {}, 100, []() -> std::string { test::SleepUntilKilled(); });
  EXPECT_EQ(result, std::nullopt);
  EXPECT_EQ(errno, ETIMEDOUT);
  EXPECT_TRUE(test::HasNoChild());
}

TEST_F(Confined, AnotherArchitecturesCallEndsIt) {
#if defined(__x86_64__)
  // The numbers of x32 have a bit more.
  EXPECT_EQ(InProbe([] { return ErrorOf(syscall(0x40000000 + SYS_getpid) >= 0); }), 128 + SIGSYS);
#else
  GTEST_SKIP() << "this architecture has no other calls";
#endif
}

TEST_F(Confined, TheConfigurationSetsModeAndLimits) {
  const bool isPossible = orvo::MissingConfinement().empty();
  EXPECT_EQ(orvo::SandboxMode(), isPossible ? Sandbox::kRequired : Sandbox::kPreferred);
  Write(kSettings, "sandbox=off\nprobe_memory=64\nprobe_files=lots\npicture_wall=0\n");
  EXPECT_EQ(orvo::SandboxMode(), Sandbox::kOff);
  EXPECT_EQ(orvo::LimitsOf(Job::kProbe).memory, 64U);
  EXPECT_EQ(orvo::LimitsOf(Job::kProbe).files, 256U);
  EXPECT_EQ(Confinement(Job::kPicture, {}).WallMilliseconds(), -1);
  Write(kSettings, "sandbox=preferred\n");
  EXPECT_EQ(orvo::SandboxMode(), Sandbox::kPreferred);
  // A word that nobody knows must not open anything.
  Write(kSettings, "sandbox=of\n");
  EXPECT_EQ(orvo::SandboxMode(), Sandbox::kRequired);
}

TEST_F(Confined, WithoutASandboxTheLimitsStay) {
  Write(kSettings, "sandbox=off\n");
  EXPECT_EQ(InProbe([&] { return OpenError(Path("/accounts"), O_RDONLY); }), 0);
  EXPECT_EQ(InProbe([] {
              rlimit limit{};
              return ErrorOf(getrlimit(RLIMIT_CORE, &limit) == 0 && limit.rlim_max == 0);
            }),
            0);
}

// A kernel that has neither, as seen from a process that may not ask for them.
int OnAnOldKernel(const std::function<int()>& body) {
  std::vector<sock_filter> filter = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                                     BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 444, 0, 1),
                                     BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
                                     BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  return orvo::Fork([&] { return orvo::InstallFilter(filter) == 0 ? body() : 99; }).Wait();
}

TEST_F(Confined, WhatCannotBeConfinedDoesNotRunWhereThatIsRequired) {
  Write(kSettings, "sandbox=required\n");
  EXPECT_EQ(OnAnOldKernel([&] {
              const bool isRefused = InProbe([] { return 0; }) == -1 && errno == EOPNOTSUPP;
              return isRefused && test::TakeLogTexts().back().find("A probe does not run") !=
                                      std::string::npos
                         ? 0
                         : 1;
            }),
            0);
  EXPECT_EQ(OnAnOldKernel([&] { return Run("/bin/true", {"true"}) == -1 ? 0 : 1; }), 0);
}

TEST_F(Confined, WithoutLandlockThePreferredSandboxStillRefusesCalls) {
  for (const char* const mode : {"", "sandbox=preferred\n"}) {
    Write(kSettings, mode);
    EXPECT_EQ(OnAnOldKernel([&] {
                return InProbe([] { return ErrorOf(socket(AF_INET, SOCK_STREAM, 0) >= 0); });
              }),
              EPERM);
  }
}

}  // namespace
