#include "transcoder/copy_parent.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "contract/copies.h"
#include "platform/confinement.h"
#include "platform/io.h"
#include "platform/local_message.h"
#include "platform/log.h"
#include "platform/plat.h"
#include "platform/process_launch.h"
#include "transcoder/av_functions.h"
#include "transcoder/child_stream.h"
#include "transcoder/cmaf_packets.h"
#include "transcoder/copy_text.h"
#include "transcoder/fork_server.h"
#include "transcoder/sound_graph.h"

namespace orvo::transcoder {
namespace {

// What a client has asked for. The descriptors belong to the message.
struct Task {
  CopyWork work;
  LocalMessage message;
};

std::optional<Task> ReadTask(LocalMessage message) {
  auto work = ParseCopyWork(message.text);
  const size_t files = work && std::holds_alternative<FilmCopy>(*work) ? 3 : 2;
  const bool isWhole = work && message.files.size() == files;
  return isWhole ? std::optional(Task{*std::move(work), std::move(message)}) : std::nullopt;
}

// Runs in the process of the copy. Returns its exit code.
int Copy(Task& task) {
  auto& files = task.message.files;
  std::vector<int> kept;
  for (const UniqueFd& file : files) {
    kept.push_back(file.Get());
  }
  CloseAllBut(kept);
  const auto* const copy = std::get_if<FilmCopy>(&task.work);
  return copy != nullptr ? CopyFilm(*copy, std::move(files[0]), files[1].Get(), files[2].Get())
                         : WriteCmafPackets(std::get<CmafRequest>(task.work), std::move(files[0]),
                                            files[1].Get());
}

// The confinement of every copy. It is prepared before this process loses sight of its settings.
class CopyConfinement {
 public:
  CopyConfinement() : confinement_(Job::kTranscoder, {}) {
    options_.streams = StandardStreams::kKept;
    confinement_.AddTo(options_);
  }
  const LaunchOptions& Options() const { return options_; }

 private:
  Confinement confinement_;
  LaunchOptions options_;
};

class CopyFork : public ForkWork {
 public:
  CopyFork(Task task, const LaunchOptions& options) : task_(std::move(task)), options_(options) {}

  LaunchOptions Options() override { return options_; }
  int Do() override { return Copy(task_); }

 private:
  Task task_;
  const LaunchOptions& options_;
};

bool HasLibraries() {
  return AvFunctions::Get() != nullptr && SoundGraph::IsAvailable();
}

// 0 or an errno.
int EnterOwnConfinement() {
  Confinement own(Job::kTranscoder, {});
  return own.EnterAsParent();
}

}  // namespace

int ServeCopies() {
  if (!HasLibraries()) {
    return kExitFailure;
  }
  const CopyConfinement confinement;
  UniqueFd listener = ListenLocally(SystemPath(kCopiesSocket));
  const int error = listener.IsOpen() ? EnterOwnConfinement() : errno;
  if (error != 0) {
    ORVO_LOG("Copies start without a common parent: %s", strerror(error));
    return kExitFailure;
  }
  ServeForks(std::move(listener), [&](LocalMessage message) -> std::unique_ptr<ForkWork> {
    auto task = ReadTask(std::move(message));
    return task ? std::make_unique<CopyFork>(*std::move(task), confinement.Options()) : nullptr;
  });
}

}  // namespace orvo::transcoder
