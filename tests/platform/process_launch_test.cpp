#include "platform/process_launch.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "support/processes.h"
#include "support/sysroot.h"

namespace {

using orvo::LaunchOptions;
using orvo::PassedDescriptor;
using orvo::Program;
using test::Child;
using test::InChild;
using test::Pipe;

constexpr char kShell[] = "/bin/sh";

Program Shell(const std::string& script, std::vector<PassedDescriptor> descriptors = {}) {
  Program program{kShell, {"sh", "-c", script}};
  program.descriptors = std::move(descriptors);
  return program;
}

// What the program writes to its standard output.
std::string OutputOf(Program program, const LaunchOptions& options = {}) {
  Pipe output;
  program.descriptors.push_back({output.WriteEnd(), STDOUT_FILENO});
  orvo::Process process = orvo::Start(program, options);
  EXPECT_TRUE(process) << strerror(errno);
  const std::string text = output.ReadToEnd();
  EXPECT_EQ(process.Wait(), 0);
  return text;
}

// What the kernel says of a program that was started so: the value of this name.
std::string StatusOf(const std::string& name, const LaunchOptions& options = {}) {
  std::istringstream lines(OutputOf({"/bin/cat", {"cat", "/proc/self/status"}}, options));
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind(name + ":\t", 0) == 0) {
      return line.substr(name.size() + 2);
    }
  }
  return "none";
}

std::string MaskOf(const std::vector<int>& signals) {
  uint64_t mask = 0;
  for (const int number : signals) {
    mask |= uint64_t{1} << (number - 1);
  }
  char text[32];
  snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(mask));
  return text;
}

// A program that runs until this end of the pipe is closed or a signal ends it.
Program Reader(const Pipe& pipe) {
  Program program{"/bin/cat", {"cat"}};
  program.descriptors = {{pipe.ReadEnd(), STDIN_FILENO}};
  return program;
}

void DoNothing(int /*signal*/) {}

class Start : public test::Sysroot {};
class Fork : public test::Sysroot {};
class Become : public test::Sysroot {};

// --- The program -------------------------------------------------------------------------------

TEST_F(Start, RunsTheProgramWithTheseArgumentsAndTellsItsStatus) {
  EXPECT_EQ(OutputOf({kShell, {"name", "-c", "echo \"$0\" \"$@\"", "a b", "$HOME", ";"}}),
            "a b $HOME ;\n");
  EXPECT_EQ(orvo::Start(Shell("exit 37")).Wait(), 37);
  EXPECT_EQ(orvo::Start(Shell("kill -TERM $$")).Wait(), 128 + SIGTERM);
}

TEST_F(Start, ReportsTheErrorOfAFailedExecAndLeavesNothing) {
  Write("/plain", "no program");
  const std::string folder = Path("/");
  const struct {
    std::string path;
    int error;
  } cases[] = {{Path("/missing"), ENOENT}, {Path("/plain"), EACCES}, {folder, EACCES}};
  for (const auto& row : cases) {
    EXPECT_FALSE(orvo::Start({row.path, {row.path}}));
    EXPECT_EQ(errno, row.error) << row.path;
    EXPECT_TRUE(test::HasNoChild());
  }
}

TEST_F(Start, ReportsTheErrorOfAFailedExecOfADetachedProgram) {
  LaunchOptions options;
  options.detached = true;
  EXPECT_FALSE(orvo::Start({Path("/missing"), {"missing"}}, options));
  EXPECT_EQ(errno, ENOENT);
  test::ReapAll();
}

TEST_F(Start, LooksForNoProgramInThePath) {
  EXPECT_FALSE(orvo::Start({"true", {"true"}}));
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(Start, GivesTheProgramExactlyTheGivenEnvironment) {
  EXPECT_EQ(OutputOf({"/usr/bin/env", {"env"}, {{"A=1", "B=two words"}}}), "A=1\nB=two words\n");
  EXPECT_EQ(OutputOf({"/usr/bin/env", {"env"}, std::vector<std::string>()}), "");
}

TEST_F(Start, GivesTheProgramTheCallersEnvironmentIfNoneIsGiven) {
  InChild([] {
    clearenv();
    setenv("OWN", "1", 1);
    EXPECT_EQ(OutputOf({"/usr/bin/env", {"env"}}), "OWN=1\n");
  });
}

TEST_F(Start, TellsTheProgramItsOwnProcessIdInOneVariable) {
  Program program = Shell("test \"$SELF\" = $$ && env | grep -c ^SELF=");
  program.environment = {"SELF=inherited", "SELFISH=1", "PATH=/usr/bin:/bin"};
  program.pidVariable = "SELF";
  EXPECT_EQ(OutputOf(program), "1\n");
}

// --- Descriptors -------------------------------------------------------------------------------

TEST_F(Start, PassesDescriptorsUnderTheirNumbers) {
  Pipe first;
  Pipe second;
  orvo::Process process = orvo::Start(
      Shell("echo five >&5; echo six >&6", {{first.WriteEnd(), 5}, {second.WriteEnd(), 6}}));
  EXPECT_EQ(first.ReadToEnd(), "five\n");
  EXPECT_EQ(second.ReadToEnd(), "six\n");
  EXPECT_EQ(process.Wait(), 0);
}

TEST_F(Start, PassesDescriptorsWhoseNumbersOverlap) {
  InChild([] {
    Pipe first;
    Pipe second;
    ASSERT_EQ(dup3(first.WriteEnd(), 8, O_CLOEXEC), 8);
    ASSERT_EQ(dup3(second.WriteEnd(), 9, O_CLOEXEC), 9);
    orvo::Process process = orvo::Start(
        Shell("echo first >&9; echo second >&8; echo again >&7", {{8, 9}, {9, 8}, {8, 7}}));
    EXPECT_EQ(process.Wait(), 0);
    close(8);
    close(9);
    EXPECT_EQ(first.ReadToEnd(), "first\nagain\n");
    EXPECT_EQ(second.ReadToEnd(), "second\n");
  });
}

TEST_F(Start, PassesADescriptorUnderItsOwnNumber) {
  Pipe pipe;
  const int number = pipe.WriteEnd();
  orvo::Process process =
      orvo::Start(Shell("echo x > /proc/self/fd/" + std::to_string(number), {{number, number}}));
  EXPECT_EQ(pipe.ReadToEnd(), "x\n");
  EXPECT_NE(fcntl(number, F_GETFD), FD_CLOEXEC) << "the pipe has closed its end";
  EXPECT_EQ(process.Wait(), 0);
}

TEST_F(Start, GivesTheProgramNoOtherDescriptor) {
  InChild([] {
    const int careless = open("/dev/zero", O_RDONLY);
    ASSERT_GE(careless, 0);
    // The last one is the folder that is listed.
    EXPECT_EQ(OutputOf({"/bin/ls", {"ls", "/proc/self/fd"}}), "0\n1\n2\n3\n");
    EXPECT_EQ(fcntl(careless, F_GETFD), 0) << "the caller's own stays as it is";
  });
}

TEST_F(Start, KeepsInheritableDescriptorsOnRequest) {
  InChild([] {
    Pipe pipe;
    ASSERT_EQ(dup2(pipe.WriteEnd(), 9), 9);
    Program program = Shell("echo kept >&9");
    program.keepInheritable = true;
    EXPECT_EQ(orvo::Start(program).Wait(), 0);
    close(9);
    EXPECT_EQ(pipe.ReadToEnd(), "kept\n");
  });
}

TEST_F(Start, ReportsAnInvalidDescriptor) {
  EXPECT_FALSE(orvo::Start(Shell("", {{1000, 5}})));
  EXPECT_EQ(errno, EBADF);
}

TEST_F(Start, PointsStandardStreamsThatAreNotPassedToNull) {
  Pipe pipe;
  Program program{"/bin/sleep", {"sleep", "infinity"}};
  program.descriptors = {{pipe.WriteEnd(), STDERR_FILENO}};
  const orvo::Process process = orvo::Start(program);
  const std::string folder = "/proc/" + std::to_string(process.Pid()) + "/fd/";
  EXPECT_EQ(std::filesystem::read_symlink(folder + "0"), "/dev/null");
  EXPECT_EQ(std::filesystem::read_symlink(folder + "1"), "/dev/null");
  EXPECT_EQ(std::filesystem::read_symlink(folder + "2").string().rfind("pipe:", 0), 0U);
}

TEST_F(Start, PassesStandardStreamsEvenIfTheCallerHasNone) {
  InChild([] {
    Pipe report;
    for (const int standard : {0, 1, 2}) {
      close(standard);
    }
    orvo::Process process = orvo::Start(Shell("echo out; echo err >&2; readlink /proc/$$/fd/0",
                                              {{report.WriteEnd(), 1}, {report.WriteEnd(), 2}}));
    const bool isAsExpected = report.ReadToEnd() == "out\nerr\n/dev/null\n" && process.Wait() == 0;
    _exit(isAsExpected ? 0 : 1);
  });
}

TEST_F(Start, KeepsTheCallersStandardStreamsOnRequest) {
  InChild([] {
    Pipe output;
    ASSERT_GE(dup2(output.WriteEnd(), STDOUT_FILENO), 0);
    LaunchOptions options;
    options.streams = orvo::StandardStreams::kKept;
    const int status = orvo::Start(Shell("echo kept"), options).Wait();
    close(STDOUT_FILENO);
    _exit(status == 0 && output.ReadToEnd() == "kept\n" ? 0 : 1);
  });
}

// --- Signals -----------------------------------------------------------------------------------

TEST_F(Start, GivesTheProgramDefaultAndUnblockedSignals) {
  InChild([] {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr);
    signal(SIGPIPE, SIG_IGN);
    signal(SIGUSR1, DoNothing);
    const std::string none = MaskOf({});
    EXPECT_EQ(StatusOf("SigBlk"), none);
    EXPECT_EQ(StatusOf("SigIgn"), none);
    EXPECT_EQ(StatusOf("SigCgt"), none);
  });
}

TEST_F(Start, GivesTheProgramTheRequestedSignalActions) {
  LaunchOptions options;
  options.actions = {{SIGTERM, SIG_IGN}, {SIGHUP, SIG_IGN}};
  options.blocked = {SIGUSR1, SIGINT};
  EXPECT_EQ(StatusOf("SigBlk", options), MaskOf(options.blocked));
  EXPECT_EQ(StatusOf("SigIgn", options), MaskOf({SIGTERM, SIGHUP}));
}

TEST_F(Start, LeavesTheCallersSignalsUnchanged) {
  InChild([] {
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGUSR2);
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    signal(SIGUSR1, DoNothing);
    EXPECT_EQ(orvo::Start(Shell("exit 0")).Wait(), 0);
    EXPECT_FALSE(orvo::Start({"/missing", {"missing"}}));
    EXPECT_EQ(signal(SIGUSR1, SIG_DFL), DoNothing);
    sigset_t after;
    sigprocmask(SIG_SETMASK, nullptr, &after);
    EXPECT_EQ(sigismember(&after, SIGUSR2), 1);
    EXPECT_EQ(sigismember(&after, SIGTERM), 0);
  });
}

// --- The process -------------------------------------------------------------------------------

TEST_F(Start, GivesTheProgramAtLeastTheNiceValue) {
  InChild([] {
    LaunchOptions options;
    options.niceness = 7;
    EXPECT_EQ(OutputOf({"/usr/bin/nice", {"nice"}}, options), "7\n");
    ASSERT_EQ(setpriority(PRIO_PROCESS, 0, 12), 0);
    EXPECT_EQ(OutputOf({"/usr/bin/nice", {"nice"}}, options), "12\n");
  });
}

TEST_F(Start, LimitsTheProgramsResources) {
  LaunchOptions options;
  options.limits = {{RLIMIT_NOFILE, {32, 64}}, {RLIMIT_CORE, {0, 0}}};
  EXPECT_EQ(OutputOf(Shell("ulimit -Sn; ulimit -Hn; ulimit -c"), options), "32\n64\n0\n");
}

TEST_F(Start, ReportsAnInvalidLimit) {
  LaunchOptions options;
  options.limits = {{RLIMIT_NOFILE, {64, 32}}};
  EXPECT_FALSE(orvo::Start(Shell(""), options));
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(Start, LeavesTheProgramInTheCallersGroupOrMakesItsOwn) {
  Pipe pipe;
  LaunchOptions options;
  const orvo::Process same = orvo::Start(Reader(pipe), options);
  EXPECT_EQ(getpgid(same.Pid()), getpgid(0));
  options.group = orvo::ProcessGroup::kOwn;
  const orvo::Process leader = orvo::Start(Reader(pipe), options);
  EXPECT_EQ(getpgid(leader.Pid()), leader.Pid());
  EXPECT_EQ(getsid(leader.Pid()), getsid(0));
  options.group = orvo::ProcessGroup::kSession;
  const orvo::Process session = orvo::Start(Reader(pipe), options);
  EXPECT_EQ(getsid(session.Pid()), session.Pid());
}

TEST_F(Start, GivesTheProgramTheseIdsAndNoOtherGroup) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root";
  }
  LaunchOptions options;
  options.ids = {65534, 65533};
  EXPECT_EQ(StatusOf("Uid", options), "65534\t65534\t65534\t65534");
  EXPECT_EQ(StatusOf("Gid", options), "65533\t65533\t65533\t65533");
  EXPECT_EQ(StatusOf("Groups", options).find_first_not_of(" \t"), std::string::npos);
}

TEST_F(Start, ReportsThatTheCallerMayNotSetTheseIds) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root";
  }
  InChild([] {
    ASSERT_EQ(setresuid(65534, 65534, 65534), 0);
    LaunchOptions options;
    options.ids = {0, 0};
    EXPECT_FALSE(orvo::Start(Shell(""), options));
    EXPECT_EQ(errno, EPERM);
  });
}

// --- The parent's end --------------------------------------------------------------------------

LaunchOptions EndsWithParent() {
  LaunchOptions options;
  options.parentDeath.signal = SIGKILL;
  return options;
}

TEST_F(Start, EndsTheProgramWithItsParent) {
  Pipe alive;
  Pipe never;
  Child parent([&] {
    Program program = Reader(never);
    program.descriptors.push_back({alive.WriteEnd(), 5});
    const orvo::Process process = orvo::Start(program, EndsWithParent());
    alive.Write(process ? "x" : "-");
    test::SleepUntilKilled();
  });
  EXPECT_EQ(alive.Read(1), "x");
  parent.Kill(SIGKILL);
  EXPECT_EQ(alive.ReadToEnd(), "") << "until its end it holds the pipe open";
  parent.Wait();
  test::ReapAll();
}

TEST_F(Start, EndsTheProgramWithItsParentUnderOtherIds) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root";
  }
  Pipe alive;
  Pipe never;
  Child parent([&] {
    Program program = Reader(never);
    program.descriptors.push_back({alive.WriteEnd(), 5});
    LaunchOptions options = EndsWithParent();
    options.ids = {65534, 65534};
    const orvo::Process process = orvo::Start(program, options);
    alive.Write(process ? "x" : "-");
    test::SleepUntilKilled();
  });
  EXPECT_EQ(alive.Read(1), "x");
  parent.Kill(SIGKILL);
  EXPECT_EQ(alive.ReadToEnd(), "");
  parent.Wait();
  test::ReapAll();
}

TEST_F(Start, RefusesToEndADetachedProgramWithAParent) {
  LaunchOptions options = EndsWithParent();
  options.detached = true;
  EXPECT_FALSE(orvo::Start(Shell(""), options));
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(Become, RunsNoProgramIfTheParentHasAlreadyEnded) {
  Pipe report;
  Child parent([&] {
    const orvo::Process orphan = orvo::Fork([&] {
      LaunchOptions options;
      options.parentDeath = {SIGKILL, getppid()};
      const orvo::Process maker = orvo::Process::Open(getppid());
      report.Write("x");
      maker.HasEndedWithin(-1);
      report.Write(std::to_string(orvo::Become(Shell("exit 0"), options)));
      return 0;
    });
    test::SleepUntilKilled();
  });
  EXPECT_EQ(report.Read(1), "x");
  parent.Kill(SIGKILL);
  EXPECT_EQ(report.ReadToEnd(), std::to_string(ESRCH));
  parent.Wait();
  test::ReapAll();
}

// --- The last step -----------------------------------------------------------------------------

TEST_F(Start, RunsTheLastStepInTheProcessOfTheProgram) {
  LaunchOptions options;
  options.confinement.run = [](void* context) {
    return prctl(PR_SET_NO_NEW_PRIVS, *static_cast<int*>(context), 0, 0, 0) == 0 ? 0 : errno;
  };
  int yes = 1;
  options.confinement.context = &yes;
  EXPECT_EQ(StatusOf("NoNewPrivs", options), "1");
  EXPECT_EQ(prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0), 0);
}

TEST_F(Start, RunsNoProgramWhenTheLastStepFails) {
  LaunchOptions options;
  options.confinement.run = [](void* /*context*/) { return ENOTTY; };
  EXPECT_FALSE(orvo::Start(Shell(""), options));
  EXPECT_EQ(errno, ENOTTY);
}

// --- Callers that ignore their children --------------------------------------------------------

TEST_F(Start, ReturnsTheStatusEvenIfTheCallerIgnoresItsChildren) {
  InChild([] {
    signal(SIGCHLD, SIG_IGN);
    Pipe pipe;
    orvo::Process longer = orvo::Start(Reader(pipe));
    EXPECT_EQ(orvo::Start(Shell("exit 4")).Wait(), 4);
    pipe.CloseRead();
    pipe.CloseWrite();
    EXPECT_EQ(longer.Wait(), 0) << "it has ended after the other's owner";
    EXPECT_EQ(signal(SIGCHLD, SIG_DFL), SIG_IGN) << "the caller's choice is back";
  });
}

TEST_F(Start, LeavesIgnoredChildrenIgnoredWhenItFails) {
  InChild([] {
    signal(SIGCHLD, SIG_IGN);
    EXPECT_FALSE(orvo::Start({"/missing", {"missing"}}));
    EXPECT_EQ(signal(SIGCHLD, SIG_DFL), SIG_IGN);
  });
}

// --- Detached programs -------------------------------------------------------------------------

TEST_F(Start, DetachesAProgramThatOutlivesTheCaller) {
  Pipe pipe;
  Pipe report;
  InChild([&] {
    prctl(PR_SET_CHILD_SUBREAPER, 0);
    LaunchOptions options;
    options.detached = true;
    {
      const orvo::Process process = orvo::Start(Reader(pipe), options);
      EXPECT_TRUE(process);
      EXPECT_FALSE(process.HasEndedWithin(0));
      EXPECT_TRUE(test::HasNoChild()) << "nothing to reap";
      report.Write(std::to_string(process.Pid()));
    }
  });
  report.CloseWrite();
  const orvo::Process process = orvo::Process::Open(std::stoi(report.ReadToEnd()));
  EXPECT_FALSE(process.HasEndedWithin(0)) << "neither its owner's end nor its parent's ended it";
  pipe.CloseWrite();
  EXPECT_TRUE(process.HasEndedWithin(-1));
  test::ReapAll();
}

// --- Fork --------------------------------------------------------------------------------------

TEST_F(Fork, RunsTheFunctionInAProcessThatEndsWithItsResult) {
  const pid_t self = getpid();
  EXPECT_EQ(orvo::Fork([&] { return getppid() == self ? 5 : 6; }).Wait(), 5);
}

TEST_F(Fork, EndsAFunctionThatThrowsWithStatusOne) {
  EXPECT_EQ(orvo::Fork([]() -> int { throw std::runtime_error("x"); }).Wait(), 1);
  EXPECT_EQ(orvo::Fork([]() -> int { throw 7; }).Wait(), 1);
}

TEST_F(Fork, GivesTheFunctionTheRequestedSignalActions) {
  static volatile sig_atomic_t gHandled = 0;
  LaunchOptions options;
  options.actions = {{SIGTERM, [](int /*signal*/) { gHandled = 1; }}, {SIGHUP, SIG_IGN}};
  InChild([&] {
    signal(SIGINT, SIG_IGN);
    orvo::Process process = orvo::Fork(
        [] {
          raise(SIGHUP);
          raise(SIGTERM);
          return gHandled == 1 && signal(SIGINT, SIG_DFL) == SIG_DFL ? 0 : 1;
        },
        options);
    EXPECT_EQ(process.Wait(), 0);
  });
}

TEST_F(Fork, LetsNoHandlerOfTheCallersRunInTheNewProcess) {
  InChild([] {
    signal(SIGTERM, DoNothing);
    orvo::Process process = orvo::Fork([] {
      raise(SIGTERM);
      return 0;
    });
    EXPECT_EQ(process.Wait(), 128 + SIGTERM);
  });
}

TEST_F(Fork, KeepsDescriptorsAndPointsTheStandardStreamsToNull) {
  Pipe report;
  orvo::Process process = orvo::Fork([&] {
    char target[64] = "";
    (void)!readlink("/proc/self/fd/1", target, sizeof target - 1);
    report.Write(target);
    return 0;
  });
  EXPECT_EQ(report.ReadToEnd(), "/dev/null");
  EXPECT_EQ(process.Wait(), 0);
}

TEST_F(Fork, PreparesTheProcessAsForAProgram) {
  LaunchOptions options;
  options.group = orvo::ProcessGroup::kSession;
  options.niceness = 9;
  options.limits = {{RLIMIT_NOFILE, {50, 50}}};
  orvo::Process process = orvo::Fork(
      [] {
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        return getsid(0) == getpid() && getpriority(PRIO_PROCESS, 0) >= 9 && limit.rlim_cur == 50
                   ? 0
                   : 1;
      },
      options);
  EXPECT_EQ(process.Wait(), 0);
  options.limits = {{RLIMIT_NOFILE, {50, 40}}};
  EXPECT_FALSE(orvo::Fork([] { return 0; }, options));
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(Fork, EndsTheFunctionWithItsParent) {
  Pipe alive;
  Child parent([&] {
    const orvo::Process process = orvo::Fork(
        [&]() -> int {
          alive.Write("x");
          test::SleepUntilKilled();
        },
        EndsWithParent());
    test::SleepUntilKilled();
  });
  EXPECT_EQ(alive.Read(1), "x");
  parent.Kill(SIGKILL);
  EXPECT_EQ(alive.ReadToEnd(), "");
  parent.Wait();
  test::ReapAll();
}

TEST_F(Fork, DetachesAFunctionFromTheCaller) {
  InChild([] {
    prctl(PR_SET_CHILD_SUBREAPER, 0);
    Pipe release;
    LaunchOptions options;
    options.detached = true;
    orvo::Process process = orvo::Fork(
        [&] {
          release.ReadToEnd();
          return 0;
        },
        options);
    EXPECT_TRUE(process);
    EXPECT_TRUE(test::HasNoChild());
    EXPECT_FALSE(process.WaitFor(0).has_value());
    release.CloseWrite();
    EXPECT_EQ(process.Wait(), -1) << "it ends, and somebody else is told how";
  });
  test::ReapAll();
}

TEST_F(Fork, StartsPrograms) {
  EXPECT_EQ(orvo::Fork([] { return orvo::Start(Shell("exit 3")).Wait(); }).Wait(), 3);
}

// --- Become ------------------------------------------------------------------------------------

TEST_F(Become, KeepsTheProcessId) {
  Pipe report;
  orvo::Process process = orvo::Fork([&] {
    return orvo::Become(Shell("echo $$", {{report.WriteEnd(), STDOUT_FILENO}}));
  });
  EXPECT_EQ(report.ReadToEnd(), std::to_string(process.Pid()) + "\n");
  EXPECT_EQ(process.Wait(), 0);
}

TEST_F(Become, GivesTheProgramDefaultSignals) {
  orvo::Process process = orvo::Fork([] {
    signal(SIGTERM, SIG_IGN);
    return orvo::Become(Shell("kill -TERM $$"));
  });
  EXPECT_EQ(process.Wait(), 128 + SIGTERM);
}

TEST_F(Become, TellsTheErrorOfAFailedExec) {
  EXPECT_EQ(orvo::Fork([] { return orvo::Become({"/missing", {"missing"}}); }).Wait(), ENOENT);
}

TEST_F(Become, LooksForTheProgramInThePathOnRequest) {
  orvo::Process process = orvo::Fork([] {
    Program program{"sh", {"sh", "-c", "exit 6"}};
    program.searchPath = true;
    return orvo::Become(program);
  });
  EXPECT_EQ(process.Wait(), 6);
}

TEST_F(Become, RenewsTheRequestToEndWithTheParent) {
  orvo::Process process = orvo::Fork(
      [] {
        const orvo::ParentDeath wish = orvo::ParentDeath::Current();
        prctl(PR_SET_PDEATHSIG, 0);  // as a change of ids does
        LaunchOptions options;
        options.parentDeath = wish;
        options.confinement.run = [](void* /*context*/) {
          int signal = 0;
          prctl(PR_GET_PDEATHSIG, &signal);
          return signal == SIGKILL ? EXDEV : EINVAL;
        };
        return orvo::Become(Shell(""), options);
      },
      EndsWithParent());
  EXPECT_EQ(process.Wait(), EXDEV);
}

}  // namespace
