#include "stream/cmaf/cmaf_runs.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <utility>

#include "contract/blocks.h"
#include "contract/cmaf.h"
#include "platform/io.h"
#include "platform/log.h"
#include "platform/plat.h"
#include "platform/process_launch.h"
#include "preprocess/stored_result.h"
#include "state/stream_room.h"
#include "state/stream_watch.h"
#include "stream/cmaf/kept_segments.h"
#include "stream/cmaf/warmed_streams.h"
#include "stream/pipeline/monitor.h"
#include "stream/pipeline/pipeline.h"
#include "stream/pipeline/transcoder_launch.h"
#include "util/qmxutils.h"
#include "util/system_files.h"

namespace LibOrvoQMX {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

// A run is not restarted for a segment that it will reach after so many others.
constexpr int kReach = 3;
// A run without a request for this time ends. Players that pause have this much and more in their
// buffers, and a new run starts when they go on.
constexpr unsigned long kUnwantedSeconds = 30;
// The same where boxes share the blocks: one begins some time before the player gets there, and the
// run ends with the block anyway.
constexpr unsigned long kUnwantedBlockSeconds = 240;
// The same before the first request of a viewer who has not asked for the stream yet.
constexpr unsigned long kWarmSeconds = 10;
constexpr int kGraceMilliseconds = 300;
constexpr int kShortRunMilliseconds = 20000;
constexpr mode_t kFolderMode = 0700;
constexpr mode_t kLockMode = 0600;
constexpr char kPlaceFile[] = "place";
constexpr char kHeaderLock[] = "header.lock";

volatile sig_atomic_t gStop = 0;
orvo::Process gTranscoder;

void OnStop(int /*signal*/) {
  gStop = 1;
}

bool Exists(const std::string& path) {
  return access(path.c_str(), F_OK) == 0;
}

// Runs the transcoder program to its end.
bool RunShort(const char* action, const std::vector<std::string>& command, const PassedFilm& film) {
  orvo::Process program = orvo::Fork([&] {
    BecomeTranscoder(action, command, film);
    return 1;
  });
  return program && program.WaitFor(kShortRunMilliseconds) == 0;
}

StreamDirectory DirectoryOf(const std::string& streamId) {
  return StreamDirectory(kCmafKind, streamId);
}

std::vector<StreamDirectory> Folders(const std::string& streamId) {
  std::vector<StreamDirectory> folders;
  std::error_code failure;
  const std::string path = DirectoryOf(streamId).Path() + "/";
  for (fs::directory_iterator entry(path, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    if (entry->is_directory(failure)) {
      folders.push_back(CmafFolder(streamId, entry->path().filename().string()));
    }
  }
  return folders;
}

// The runs of encoded pictures in other folders than this one. Sound and copies need no place.
std::vector<StreamDirectory> RunningPictures(const std::string& streamId,
                                             const std::string& exceptFolder) {
  std::vector<StreamDirectory> running;
  for (const StreamDirectory& folder : Folders(streamId)) {
    const bool isEncoded = folder.Path().find("/h264-") != std::string::npos;
    if (isEncoded && folder.Path() != exceptFolder && folder.IsMonitored()) {
      running.push_back(folder);
    }
  }
  return running;
}

// Returns whether a run has ended.
bool EndRuns(const std::vector<StreamDirectory>& folders) {
  bool hasEnded = false;
  for (const StreamDirectory& folder : folders) {
    hasEnded = ReplaceMonitor(folder, 0, true) || hasEnded;
  }
  return hasEnded;
}

// Puts the stored key frames of the film's current state beside the plan. Returns false if there
// are none.
bool WriteKnownKeys(const StreamDirectory& directory, const std::string& film) {
  preprocess::PreprocessResultWrapper result;
  if (!preprocess::ReadCurrentResult(film, result) || !(result.end_time() > 0)) {
    return false;
  }
  std::vector<int64_t> ticks;
  for (const double seconds : result.GetAllKeyframePtsTime()) {
    ticks.push_back(std::llround(std::max(seconds, 0.0) * orvo::kPlanClock));
  }
  ticks.push_back(std::llround(result.end_time() * orvo::kPlanClock));
  return ticks.size() > 1 &&
         orvo::ReplaceFile(directory.FilePath(orvo::kCmafKeysFile), orvo::CmafNumbers(ticks));
}

bool LacksKeys(const StreamDirectory& directory) {
  const std::string known = StateFile(directory.FilePath(orvo::kCmafPicturesFile)).Read();
  return orvo::CmafKnowledge::Parse(known).copying == orvo::kCmafNoIndex;
}

}  // namespace

StreamDirectory CmafFolder(const std::string& streamId, const std::string& rendition) {
  return StreamDirectory(std::string(kCmafKind) + "/" + streamId, rendition);
}

bool MakeCmafPlan(const std::string& streamId, const PassedFilm& film, bool usesAnalysis) {
  const StreamDirectory directory = DirectoryOf(streamId);
  if (Exists(directory.FilePath(orvo::kCmafPlanFile))) {
    return true;
  }
  const bool hasKeys = usesAnalysis && WriteKnownKeys(directory, film.path);
  const bool isPlanned = RunShort(
      "Plan", {orvo::SystemPath(kTranscoder), "-cmaf", "plan", "-i", film.path, directory.Path()},
      film);
  // Without the analysis the plan would not be the one that players know.
  return isPlanned && (hasKeys || !usesAnalysis || !LacksKeys(directory));
}

void CloseCmafStream(const std::string& streamId) {
  if (!IsPlainName(streamId)) {
    return;
  }
  for (const StreamDirectory& folder : Folders(streamId)) {
    if (folder.IsMonitored()) {
      ReplaceMonitor(folder, 0, true);
    }
  }
  RemoveLinkedDirectory(DirectoryOf(streamId).Path());
}

bool StopCmafPictures(const std::string& streamId) {
  return EndRuns(RunningPictures(streamId, ""));
}

std::vector<pid_t> CmafMonitors(const std::string& streamId) {
  std::vector<pid_t> monitors;
  for (const StreamDirectory& folder : Folders(streamId)) {
    if (const auto monitor = folder.Monitor(); PlatProcAlive(monitor.value_or(-1))) {
      monitors.push_back(*monitor);
    }
  }
  return monitors;
}

CmafRun::CmafRun(std::string streamId, PassedFilm film, const CmafRendition& rendition)
    : streamId_(std::move(streamId)),
      film_(std::move(film)),
      rendition_(rendition),
      folder_(CmafFolder(streamId_, rendition.name)) {}

std::string CmafRun::HeaderPath() const {
  return folder_.FilePath(orvo::kCmafHeaderFile);
}

std::string CmafRun::SegmentPath(int number) const {
  return folder_.FilePath(orvo::CmafSegmentName(number));
}

std::string CmafRun::UnfinishedPath(int number) const {
  return SegmentPath(number) + orvo::kUnfinished;
}

bool CmafRun::MakeFolder() const {
  return mkdir(folder_.Path().c_str(), kFolderMode) == 0 || errno == EEXIST;
}

std::vector<std::string> CmafRun::Command(int number, bool isHeaderOnly) const {
  std::vector<std::string> command = {orvo::SystemPath(kTranscoder), "-cmaf"};
  for (const std::string& argument : CmafArguments(rendition_)) {
    command.push_back(argument);
  }
  for (const std::string& argument :
       {std::string("-number"), std::to_string(number), std::string("-head"),
        std::string(isHeaderOnly ? "1" : "0"), std::string("-i"), film_.path, folder_.Path()}) {
    command.push_back(argument);
  }
  return command;
}

bool CmafRun::MakeHeader() const {
  if (Exists(HeaderPath())) {
    return true;
  }
  const StreamLock lock(folder_.FilePath(kHeaderLock), kLockMode);
  return ComesFromRun() || (RunShort("Header", Command(0, true), film_) && Exists(HeaderPath()));
}

// A run writes its header before it begins a segment. That of a copy writes none if the container
// does not describe the codec.
bool CmafRun::IsPastHeader() const {
  const auto position = StateFile(folder_.FilePath(orvo::kCmafPositionFile)).Number();
  return position && (Exists(UnfinishedPath(static_cast<int>(*position))) ||
                      Exists(SegmentPath(static_cast<int>(*position))));
}

bool CmafRun::ComesFromRun() const {
  const StreamWatch watch(folder_.Path());
  const auto end = Clock::now() + std::chrono::milliseconds(kShortRunMilliseconds);
  while (!Exists(HeaderPath()) && !IsPastHeader() && folder_.IsMonitored() && Clock::now() < end) {
    watch.Wait(OpenRunningProcess(folder_.Monitor().value_or(-1)),
               static_cast<int>(kLookAgain.count()));
  }
  return Exists(HeaderPath());
}

std::optional<StreamLock> CmafRun::TakePlace() const {
  if (!rendition_.IsEncodedPicture()) {
    return std::nullopt;
  }
  return std::optional<StreamLock>(std::in_place, DirectoryOf(streamId_).FilePath(kPlaceFile),
                                   kLockMode);
}

bool CmafRun::IsReplaced(int number) const {
  const int64_t asked = folder_.LastAskedFor();
  return asked >= 0 && (asked < number || asked > number + 1);
}

// Whether the request is replaced is looked at under the lock: the newer request may have started
// its run while this one waited.
bool CmafRun::Reach(int number, std::optional<StreamLock>& place) const {
  StreamLock lock = folder_.SeekTime().Lock();
  return Exists(SegmentPath(number)) || IsOnItsWay(number) || IsReplaced(number) ||
         Start(number, lock, place);
}

bool CmafRun::IsOnItsWay(int number) const {
  const auto position = StateFile(folder_.FilePath(orvo::kCmafPositionFile)).Number();
  return position && folder_.IsMonitored() && *position <= number && number <= *position + kReach;
}

bool CmafRun::IsPlaceTaken() const {
  return rendition_.IsEncodedPicture() &&
         (IsStreamLocked(DirectoryOf(streamId_).FilePath(kPlaceFile)) || !Rivals().empty());
}

bool CmafRun::StartWhenFinished(int number) const {
  if (IsPlaceTaken()) {
    return false;
  }
  auto place = TakePlace();
  StreamLock lock = folder_.SeekTime().Lock();
  if (Exists(SegmentPath(number)) || IsOnItsWay(number)) {
    return true;
  }
  return !folder_.IsMonitored() && Rivals().empty() && Start(number, lock, place);
}

// The running other renditions that need the same place.
std::vector<StreamDirectory> CmafRun::Rivals() const {
  return rendition_.IsEncodedPicture() ? RunningPictures(streamId_, folder_.Path())
                                       : std::vector<StreamDirectory>();
}

bool CmafRun::Start(int number, StreamLock& lock, std::optional<StreamLock>& place) const {
  EndRuns(Rivals());
  const StateFile position(folder_.FilePath(orvo::kCmafPositionFile));
  const auto record = [&] {
    lock.Leave();
    if (place) {
      place->Leave();
    }
    if (!BecomeMonitor(folder_)) {
      return false;
    }
    RemoveUnfinished(position);
    return position.Replace(number);
  };
  gStop = 0;
  gTranscoder = orvo::Process();
  return StartMonitor(OnStop, record, [&] { Watch(number); });
}

// A run that was killed leaves the segment in work. Requests would take it for that of the next
// run.
void CmafRun::RemoveUnfinished(const StateFile& position) const {
  if (const auto number = position.Number()) {
    unlink(UnfinishedPath(static_cast<int>(*number)).c_str());
  }
}

// The monitor's work.
void CmafRun::Watch(int number) const {
  Pipeline pipeline(gTranscoder, {rendition_.IsEncodedPicture(), kGraceMilliseconds});
  const auto become = [&] {
    if (!rendition_.IsEncodedPicture() || RegisterTranscoder(false)) {
      BecomeTranscoder("Execute FFmpeg", Command(number, false), film_);
    }
  };
  const auto patience = orvo::HasBlocks() ? kUnwantedBlockSeconds : kUnwantedSeconds;
  const StateFile position(folder_.FilePath(orvo::kCmafPositionFile));
  CmafKeeper keeper(streamId_, KeptCmafBytes());
  const auto isUnwanted = [&] {
    keeper.Look(position.Number());
    const auto idle = folder_.SecondsSinceAccess();
    return !idle || *idle > (IsCmafWarmed(streamId_) ? kWarmSeconds : patience);
  };
  if (gStop == 0 && pipeline.Start(become)) {
    pipeline.Watch(gStop, isUnwanted);
  }
  pipeline.End();
}

CmafRun::State CmafRun::Look(int number) const {
  if (Exists(SegmentPath(number))) {
    return State::kComplete;
  }
  if (!IsOnItsWay(number)) {
    // The run may have finished the segment since the first look.
    return Exists(SegmentPath(number)) ? State::kComplete : State::kNobodyMakesIt;
  }
  return Exists(UnfinishedPath(number)) ? State::kGrowing : State::kTimeout;
}

CmafRun::State CmafRun::Await(int number) const {
  const StreamWatch watch(folder_.Path());
  const auto end = Clock::now() + kFragmentTimeout;
  State state = Look(number);
  while (state == State::kTimeout && Clock::now() < end) {
    watch.Wait(OpenRunningProcess(folder_.Monitor().value_or(-1)),
               static_cast<int>(kLookAgain.count()));
    state = Look(number);
  }
  return state;
}

}  // namespace LibOrvoQMX
