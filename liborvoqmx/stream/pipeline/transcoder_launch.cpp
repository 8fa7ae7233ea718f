// These functions log under the source file of the stream base class.
#define ORVO_LOG_SOURCE "liborvoqmx.cpp"

#include "stream/pipeline/transcoder_launch.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "contract/passed_film.h"
#include "platform/log.h"
#include "platform/media_file.h"
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

// Opens the film for the program that this process becomes, and announces it.
bool Pass(const PassedFilm& film, orvo::UniqueFd& file) {
  const orvo::MediaFile opened = orvo::MediaFile::Open(film.path);
  if (!film.identity.empty() && (!opened.IsOpen() || opened.Identity() != film.identity)) {
    ORVO_LOG("[%s] is not the film any more that was opened.", film.path.c_str());
    return false;
  }
  unsetenv(orvo::kFilmVariable);
  if (opened.IsOpen()) {
    file.Reset(dup(opened.Get()));  // without close-on-exec
    setenv(orvo::kFilmVariable, (std::to_string(file.Get()) + ' ' + film.demuxer).c_str(), 1);
  }
  return true;
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

bool BecomeTranscoder(const char* action, const std::vector<std::string>& commandLine,
                      const PassedFilm& film) {
  const orvo::ParentDeath wish = orvo::ParentDeath::Current();
  return libmrv::DoActionAsRoot(action, [&] {
    orvo::UniqueFd file;
    if (Pass(film, file)) {
      Execute(commandLine, wish);
    }
    return false;
  });
}

bool ReplaceMonitor(const StreamDirectory& directory, int pid, bool wait) {
  const StreamLock lock = directory.LockMonitor();
  if (!lock.IsOpen()) {
    return false;
  }
  const auto old = directory.OpenMonitor();
  if (!old) {
    return false;
  }
  old->AskToEnd(SIGTERM);
  if (pid > 0) {
    directory.RecordMonitor(pid);
  }
  if (wait) {
    old->HasEndedWithin(kMonitorEndMilliseconds);
  }
  return true;
}

bool BecomeMonitor(const StreamDirectory& directory) {
  return ReplaceMonitor(directory, getpid(), true) && directory.Monitor() == getpid();
}

}  // namespace LibOrvoQMX
