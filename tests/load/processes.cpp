// Load on the register and on process numbers. Usage: load_processes register | pids
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/io.h"
#include "platform/plat.h"
#include "platform/process.h"
#include "platform/process_launch.h"
#include "policy/trans_loading.h"
#include "stream/http_stream.h"
#include "support/chosen_pid.h"
#include "util/system_files.h"

namespace {

using Clock = std::chrono::steady_clock;
using LibMirevo::TransLoading;

constexpr int kProcesses = 64;
constexpr int kChanges = 1000;
constexpr int kTickMilliseconds = 11;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// A system root of its own, which the destructor removes.
class Sysroot {
 public:
  Sysroot() {
    char name[] = "/tmp/mirevo-load-XXXXXX";
    path_ = mkdtemp(name);
    setenv("ORVO_SYSROOT", path_.c_str(), 1);
  }
  ~Sysroot() { std::filesystem::remove_all(path_); }
  Sysroot(const Sysroot&) = delete;
  Sysroot& operator=(const Sysroot&) = delete;

 private:
  std::string path_;
};

// Enters and removes this process, again and again, beside an entry that stays. Returns the number
// of changes that were lost.
int ChangeRegister() {
  int lost = 0;
  TransLoading().SaveTransPID(getpid(), false, true);
  for (int change = 0; change < kChanges; ++change) {
    TransLoading registry;
    int mine = 0;
    for (const Json::Value& entry : registry.GetEntries()) {
      mine += entry["PID"].asInt() == getpid() ? 1 : 0;
    }
    lost += mine == 1 ? 0 : 1;
    registry.RemoveTransPIDLock(getpid());
    registry.SaveTransPID(getpid(), false, true);
  }
  return lost > 0 ? 1 : 0;
}

int LoadRegister() {
  const Sysroot sysroot;
  const auto start = Clock::now();
  std::vector<orvo::Process> processes;
  processes.reserve(kProcesses);
  for (int number = 0; number < kProcesses; ++number) {
    processes.push_back(orvo::Fork(ChangeRegister));
  }
  int failed = 0;
  for (orvo::Process& process : processes) {
    failed += process.Wait() == 0 ? 0 : 1;
  }
  const size_t left = TransLoading().GetEntries().size();
  printf(
      "%d processes with %d register changes each in %.1f s: %d processes lost an entry, %zu "
      "entries left\n",
      kProcesses, kChanges, SecondsSince(start), failed, left);
  return failed == 0 && left == 0 ? 0 : 1;
}

// Records a monitor, lets another process get its number, and closes the stream. Returns true if
// the other process survived, nothing if the number could not be had.
std::optional<bool> ReuseNumber(const std::string& streamId) {
  LibOrvoQMX::HttpStream stream(streamId);
  orvo::Process monitor = orvo::Fork([]() -> int { return pause(); });
  stream.SaveMonitorPid(monitor.Pid(), false);
  const pid_t number = monitor.Pid();
  monitor.End(SIGKILL, 0);
  // A number comes round after some ten thousand others. That takes longer than the tick in which
  // the kernel counts the starts of processes.
  poll(nullptr, 0, kTickMilliseconds);
  const pid_t stranger = test::ForkAs(number);
  if (stranger < 0) {
    return std::nullopt;
  }
  stream.Close();
  const bool survived = !orvo::WaitForExit(stranger, 1);
  orvo::SendSignal(stranger, SIGKILL);
  orvo::WaitForStatus(stranger);
  return survived;
}

int LoadPids(int rounds) {
  const Sysroot sysroot;
  int reused = 0;
  int killed = 0;
  const auto start = Clock::now();
  for (int round = 0; round < rounds; ++round) {
    const std::string id = "d41d8cd98f00b204e9800998ecf8427e_" + std::to_string(10000000 + round);
    PlatFSMkdirP(LibOrvoQMX::StreamKindPath("HTTP") + "/" + id, 0, 1, geteuid(), getegid(), 0700);
    const auto survived = ReuseNumber(id);
    reused += survived ? 1 : 0;
    killed += survived && !*survived ? 1 : 0;
  }
  printf(
      "%d rounds in %.1f s: %d numbers passed to another process, %d other processes signalled\n",
      rounds, SecondsSince(start), reused, killed);
  return reused > 0 && killed == 0 ? 0 : 1;
}

}  // namespace

int main(int count, char** arguments) {
  const std::string name = count > 1 ? arguments[1] : "";
  if (name == "register") {
    return LoadRegister();
  }
  if (name == "pids") {
    return LoadPids(kChanges);
  }
  fputs("usage: load_processes register | pids\n", stderr);
  return 64;
}
