#include "convert/conversion.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "convert/live_transcoders.h"
#include "platform/io.h"
#include "platform/plat.h"
#include "util/media_formats.h"

namespace convert {
namespace {

constexpr int kAttempts = 3;
constexpr char kFilmFile[] = "/film";
constexpr size_t kMostState = 4096;
// The size of a film that is coded better than the result.
constexpr uint64_t kUsualBytesPerSecond = 250000;
constexpr uint64_t kMargin = 32 << 20;

// The pieces and the joined file exist at the same time.
uint64_t SpaceFor(const LibOrvoQMX::VideoMetaData& film) {
  return 2 * std::max(film.GetFileSize(), film.GetDuration() * kUsualBytesPerSecond) + kMargin;
}

}  // namespace

Conversion::Conversion(Item item) : item_(std::move(item)), folder_(item_.folder) {}

Conversion::~Conversion() {
  Leave();
}

Conversion::Step Conversion::Fail(const std::string& reason) {
  item_.state = State::kFailed;
  item_.reason = reason;
  return Step::kFailed;
}

Conversion::Step Conversion::Wait(const std::string& reason) {
  item_.state = State::kWaiting;
  item_.reason = reason;
  return Step::kLater;
}

bool Conversion::Open(std::string& problem) {
  film_ = orvo::MediaFile::OpenBeneath(item_.root, item_.path);
  const auto profile = FindProfile(item_.profile);
  if (!film_.IsOpen()) {
    problem = std::string("The film cannot be opened: ") + strerror(errno) + ".";
  } else if (!profile) {
    problem = "There is no profile of this name.";
  } else if (!known_.LoadFile(film_)) {
    problem = "The file is not a film.";
  } else if (known_.GetVideoResolutionX() == 0 || known_.GetVideoResolutionY() == 0) {
    problem = "The film has no picture.";
  } else {
    profile_ = *profile;
  }
  return problem.empty();
}

Conversion::Step Conversion::Prepare() {
  std::string problem;
  if (!Open(problem)) {
    return Fail(problem);
  }
  item_.seconds = known_.GetDuration();
  if (IsOfThisFilm()) {
    hasOlderPieces_ = !folder_.Pieces().empty();
    return Step::kOn;
  }
  return ChooseFolder();
}

Conversion::Step Conversion::ChooseFolder() {
  std::string volume;
  unsigned flags = 0;
  folder_.Remove();
  item_.folder.clear();
  if (VolumeAvailGet(SpaceFor(known_), volume, flags) != 1) {
    return Wait("The conversion needs " + std::to_string(SpaceFor(known_) >> 20) +
                " MiB of free space on one volume.");
  }
  item_.folder = volume + "/" + kResultsFolder + "/" + std::to_string(item_.id);
  folder_ = WorkFolder(item_.folder);
  const bool isMade =
      folder_.Make() && orvo::ReplaceFile(item_.folder + kFilmFile, FilmState(), 0600);
  return isMade ? Step::kOn : Wait("The folder " + item_.folder + " cannot be made.");
}

// A film that changes while it waits starts anew.
std::string Conversion::FilmState() const {
  const struct stat& status = film_.Status();
  return std::to_string(status.st_size) + " " + std::to_string(status.st_mtim.tv_sec) + "." +
         std::to_string(status.st_mtim.tv_nsec);
}

bool Conversion::IsOfThisFilm() const {
  return !item_.folder.empty() && folder_.Exists() &&
         orvo::ReadOwnFile(item_.folder + kFilmFile, kMostState) == FilmState();
}

bool Conversion::Run() {
  if (process_ && !isJoining_) {
    isEntered_ = EnterConversion([this] {
      process_.Continue();
      return process_.Pid();
    });
  } else if (process_) {
    process_.Continue();
  } else if (isJoining_) {
    process_ = WorkProcess::Join(JoinCommand(known_, folder_, film_.Address()), folder_, film_);
  } else {
    isEntered_ = EnterConversion([this] { return StartConverting(); });
  }
  isPaused_ = process_ && !isJoining_ && !isEntered_;
  if (isPaused_) {
    process_.Pause();
  }
  item_.state = IsRunning() ? State::kConverting : item_.state;
  return IsRunning();
}

int Conversion::StartConverting() {
  first_ = folder_.KeepCompletePieces();
  process_ = WorkProcess::Convert(ConversionCommand(known_, profile_, folder_, first_), film_,
                                  orvo::DemuxerOf(known_.GetContainer()));
  return process_.Pid();
}

void Conversion::Pause() {
  process_.Pause();
  isPaused_ = true;
  item_.state = State::kPaused;
  Leave();
}

// The number belongs to the process until it has been reaped.
void Conversion::Leave() {
  if (std::exchange(isEntered_, false)) {
    RemoveConversion(process_.Pid());
  }
}

Conversion::Step Conversion::Finish() {
  Leave();
  const int status = process_.Status();
  process_ = WorkProcess();
  isPaused_ = false;
  return isJoining_ ? FinishJoining(status) : FinishConverting(status);
}

Conversion::Step Conversion::FinishConverting(int status) {
  const auto pieces = folder_.Pieces();
  if (!pieces.empty() && pieces.rbegin()->first > first_) {
    failures_ = 0;
  }
  if (status != 0) {
    return TryAgain(status);
  }
  isJoining_ = true;
  return Step::kOn;
}

Conversion::Step Conversion::FinishJoining(int status) {
  if (status != 0) {
    return TryAgain(status);
  }
  LibOrvoQMX::VideoMetaData joined;
  const std::string difference =
      joined.LoadFile(folder_.Joined()) ? Difference(known_, joined) : "the result cannot be read";
  if (difference.empty() && folder_.Accept()) {
    folder_.RemovePieces();
    item_.state = State::kReady;
    item_.reason.clear();
    return Step::kReady;
  }
  folder_.RemovePieces();
  isJoining_ = false;
  // The power may have failed before a piece was on the disk.
  return std::exchange(hasOlderPieces_, false)
             ? Step::kOn
             : Fail("The film was not converted: " + difference + ".");
}

Conversion::Step Conversion::TryAgain(int status) {
  if (folder_.IsFull()) {
    return Wait("The volume of the result is full.");
  }
  return ++failures_ < kAttempts
             ? Step::kOn
             : Fail("FFmpeg ended with the status " + std::to_string(status) + ".");
}

}  // namespace convert
