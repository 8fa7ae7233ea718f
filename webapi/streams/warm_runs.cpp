#include "webapi/streams/warm_runs.h"

#include <algorithm>
#include <chrono>
#include <vector>

#include "contract/blocks.h"
#include "platform/process_launch.h"
#include "policy/registry_watch.h"
#include "state/stream_watch.h"
#include "util/qmxutils.h"
#include "webapi/cluster/balancer_client.h"
#include "webapi/cluster/cluster_keys.h"
#include "webapi/http/work.h"

namespace webapi {
namespace {

using Clock = std::chrono::steady_clock;
using LibOrvoQMX::StateFile;
using LibOrvoQMX::StreamDirectory;
using std::chrono::seconds;

// A slow box makes a block in this time.
constexpr seconds kPatience(150);
// So many may wait at a time; the next one is not begun. There is no queue before them.
constexpr Work kWaiting{"warm", {32, 0, 0}};

// The latest blocks after which the next ones have been asked for. The web server reads their file,
// too (serve/ready_segment.lua): it sends what is ready in these blocks without this program. If
// there is no file, it sends everything that is ready.
class WarmedBlocks {
 public:
  explicit WarmedBlocks(const StreamDirectory& folder) : file_(folder.FilePath("warmed_blocks")) {}

  // Makes it the latest one. Returns false if it is that already or cannot be remembered. An
  // earlier one is asked for again: a request for it comes here only if its segment is not ready
  // any more.
  bool Add(int64_t block) const {
    const std::string line =
        std::to_string(orvo::FirstOfBlock(block)) + " " + std::to_string(orvo::LastOfBlock(block));
    std::vector<std::string> lines = LibOrvoQMX::StringExplode(file_.Read(), "\n");
    if (!lines.empty() && lines.back() == line) {
      return false;
    }
    std::erase(lines, line);
    lines.push_back(line);
    std::string text;
    for (size_t i = lines.size() - std::min(lines.size(), kMost); i < lines.size(); ++i) {
      text += lines[i] + "\n";
    }
    return file_.Replace(text);
  }

  // Makes the file, so that the first request for a segment comes to this program.
  void Begin() const {
    if (file_.Read().empty()) {
      file_.Replace("none\n");
    }
  }

 private:
  static constexpr size_t kMost = 64;

  StateFile file_;
};

// The first segment of the newest warm run.
StateFile WarmSegment(const StreamDirectory& folder) {
  return StateFile(folder.FilePath("warm"));
}

class Waiting {
 public:
  explicit Waiting(const WarmRun& run)
      : run_(run), newest_(WarmSegment(run.folder)), end_(Clock::now() + kPatience) {}

  // Waits for the moment to start the run. Returns whether it was started.
  bool Start() const {
    const LibOrvoQMX::StreamWatch watch(run_.folder.Path());
    while (IsWanted()) {
      if (HasPlace() && IsWanted() && run_.start()) {
        return true;
      }
      watch.Wait(LibOrvoQMX::OpenRunningProcess(run_.folder.Monitor().value_or(-1)),
                 static_cast<int>(LibOrvoQMX::kLookAgain.count()));
    }
    return false;
  }

 private:
  bool IsWanted() const { return newest_.Number() == run_.number && Clock::now() < end_; }

  // Waits for a place as long as the run is wanted.
  bool HasPlace() const {
    const auto left = std::chrono::ceil<seconds>(end_ - Clock::now());
    return !run_.needsPlace || LibMirevo::AskRegistryUntil(
                                   [this](LibMirevo::TransLoading& registry) {
                                     return registry.TransEnable(run_.isHardware) || !IsWanted();
                                   },
                                   std::max(static_cast<int>(left.count()), 0));
  }

  const WarmRun& run_;
  StateFile newest_;
  Clock::time_point end_;
};

// Asks for the segments of this list that exist. `viewer`: the one that the viewer asks for.
void Ask(int viewer, const std::vector<int>& segments, const std::function<bool(int)>& exists,
         const std::function<std::string(int)>& addressOf) {
  const std::string end = "&warm=1&viewer=" + std::to_string(viewer);
  std::vector<std::string> addresses;
  for (const int segment : segments) {
    if (exists(segment)) {
      addresses.push_back(addressOf(segment) + end);
    }
  }
  if (!addresses.empty()) {
    AskBalancer(addresses);
  }
}

// The first segments of `count` blocks after this one, the last one first: where several go to one
// box, the last request counts.
std::vector<int> FirstsAfter(int64_t block, int count) {
  std::vector<int> firsts;
  for (int64_t next = block + count; next > block; --next) {
    firsts.push_back(static_cast<int>(orvo::FirstOfBlock(next)));
  }
  return firsts;
}

// Does the work in a process of its own, and answers that it will be done.
Answer Begin(const std::function<bool()>& work) {
  orvo::LaunchOptions options;
  options.detached = true;
  options.group = orvo::ProcessGroup::kSession;
  const auto body = [&work] {
    const auto place = TakePlace(kWaiting);
    return place && work() ? 0 : 1;
  };
  orvo::Fork(body, options);
  return Answer::Accepted();
}

}  // namespace

bool IsWarmRequest(const Request& request) {
  return IsInCluster() && request.Text("warm") == "1";
}

void WarmNextBlocks(const StreamDirectory& folder, int number,
                    const std::function<bool(int)>& exists,
                    const std::function<std::string(int)>& addressOf) {
  const int64_t block = orvo::BlockOf(number);
  const int boxes = CountBoxes();
  if (boxes >= 2 && WarmedBlocks(folder).Add(block)) {
    Ask(number, FirstsAfter(block, boxes - 1), exists, addressOf);
  }
}

void WarmFirstBlocks(int number, int boxes, const std::function<bool(int)>& exists,
                     const std::function<std::string(int)>& addressOf) {
  std::vector<int> segments = FirstsAfter(orvo::BlockOf(number), boxes - 1);
  segments.push_back(number);
  Ask(number, segments, exists, addressOf);
}

Answer StartWarm(const WarmRun& run) {
  if (!WarmSegment(run.folder).Replace(int64_t{run.number})) {
    return Answer::Failure(kInternal);
  }
  WarmedBlocks(run.folder).Begin();
  return Begin([&run] { return Waiting(run).Start(); });
}

Answer StartWarmLater(const std::function<bool()>& make) {
  return Begin([&make] {
    return make() ||
           (LibMirevo::AskRegistryUntil(
                [](LibMirevo::TransLoading& registry) { return registry.TransEnable(false); },
                static_cast<int>(kPatience.count())) &&
            make());
  });
}

}  // namespace webapi
