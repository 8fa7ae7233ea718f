#include "transcoder/ready_client.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "contract/ready_ffmpeg.h"
#include "platform/local_message.h"
#include "transcoder/byte_run.h"
#include "transcoder/command_reach.h"
#include "transcoder/launch.h"
#include "transcoder/places.h"
#include "transcoder/ready_text.h"
#include "transcoder/remote_worker.h"
#include "util/number.h"

namespace orvo::transcoder {
namespace {

// The descriptors of this process that an exec keeps.
std::vector<int> KeptDescriptors() {
  std::vector<int> kept;
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir("/proc/self/fd"), closedir);
  while (const dirent* entry = folder != nullptr ? readdir(folder.get()) : nullptr) {
    const auto number = static_cast<int>(LibOrvoQMX::ParseNumber(entry->d_name).value_or(-1));
    const int flags = fcntl(number, F_GETFD);
    if (flags >= 0 && (flags & FD_CLOEXEC) == 0) {
      kept.push_back(number);
    }
  }
  return kept;
}

// Its process has the priority of a transcoder.
bool HasUsualPriority() {
  return sched_getscheduler(0) == SCHED_OTHER && getpriority(PRIO_PROCESS, 0) <= kNiceness;
}

bool IsForReady(const std::vector<std::string>& command) {
  const Reach reach = ReachOf(command);
  return command.front() == kExecutable && WritesBytes(command) && !reach.hardware &&
         std::all_of(reach.read.begin(), reach.read.end(),
                     [](const std::string& path) { return path.starts_with('/'); });
}

}  // namespace

std::unique_ptr<Worker> AskForFFmpeg(const std::vector<std::string>& command, int output) {
  if (!IsForReady(command) || !HasUsualPriority()) {
    return nullptr;
  }
  const ReadyRun run{KeptDescriptors(), command};
  std::vector<int> files = run.numbers;
  std::replace(files.begin(), files.end(), STDOUT_FILENO, output);
  return files.size() <= kMostPassedFiles ? AskForFork(kReadySocket, TextOf(run), files) : nullptr;
}

std::unique_ptr<Worker> AskForFFmpeg(const std::vector<std::string>& command) {
  return AskForFFmpeg(command, STDOUT_FILENO);
}

}  // namespace orvo::transcoder
