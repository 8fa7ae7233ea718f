// These functions log under the source file of the stream base class.
#define ORVO_LOG_SOURCE "liborvoqmx.cpp"

#include "stream/pipeline/transcoder_launch.h"

#include <fcntl.h>
#include <unistd.h>

#include "platform/log.h"
#include "platform/plat.h"
#include "platform/process_launch.h"
#include "policy/trans_loading.h"
#include "util/qmxutils.h"

namespace LibOrvoQMX {
namespace {

constexpr int kMonitorEndMilliseconds = 5000;

// `wish` names the process whose end also ends the program. A change of ids cancels an earlier
// wish.
void Execute(const std::vector<std::string>& commandLine, const orvo::ParentDeath& wish) {
  orvo::Program program{commandLine.front(), commandLine};
  program.keepInheritable = true;
  program.searchPath = true;
  orvo::LaunchOptions options;
  options.streams = orvo::StandardStreams::kKept;
  options.parentDeath = wish;
  orvo::Become(program, options);
}

}  // namespace

void KeepAcrossExec(const orvo::UniqueFd& descriptor) {
  fcntl(descriptor.Get(), F_SETFD, 0);
}

// One lock covers the check and the entry. Of two launches at the same time, one sees the other.
bool RegisterTranscoder(bool hardware) {
  LibMirevo::TransLoading registry;
  if (!registry.TransEnable(hardware)) {
    ORVO_LOG("QMX - TransEnable Failed.");
    return false;
  }
  if (!registry.SaveTransPID(getpid(), hardware, false)) {
    ORVO_LOG("QMX - Fail SaveTransPID [%d].", getpid());
    return false;
  }
  return true;
}

void ReplaceProcess(const std::vector<std::string>& commandLine) {
  Execute(commandLine, {});
}

bool BecomeTranscoder(const char* action, const std::vector<std::string>& commandLine) {
  const orvo::ParentDeath wish = orvo::ParentDeath::Current();
  return libmrv::DoActionAsRoot(action, [&] {
    Execute(commandLine, wish);
    return false;
  });
}

bool ReplaceMonitor(const StreamDirectory& directory, int pid, bool wait) {
  const StreamLock lock = directory.LockMonitor();
  if (!lock.IsOpen()) {
    return false;
  }
  const pid_t oldPid = directory.Monitor().value_or(-1);
  KillProcess(oldPid);
  if (pid > 0) {
    directory.MonitorPid().Write(pid);
  }
  if (wait && oldPid > 0) {
    orvo::WaitForExit(oldPid, kMonitorEndMilliseconds);
  }
  return true;
}

}  // namespace LibOrvoQMX
