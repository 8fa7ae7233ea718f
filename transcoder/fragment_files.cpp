#include "transcoder/fragment_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/io.h"
#include "platform/log.h"
#include "platform/unique_fd.h"

namespace orvo::transcoder {
namespace {

constexpr mode_t kFolderMode = 0777;
constexpr mode_t kFileMode = 0666;
constexpr char kUnfinished[] = "/unfinished";
constexpr char kNext[] = ".next";

bool MakeFolder(const std::string& path) {
  if (mkdir(path.c_str(), kFolderMode) == 0 || errno == EEXIST) {
    return true;
  }
  ORVO_LOG("cannot make %s: %s", path.c_str(), strerror(errno));
  return false;
}

bool WriteNew(const std::string& path, std::string_view content) {
  unlink(path.c_str());
  const UniqueFd file(
      open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, kFileMode));
  return file.IsOpen() && WriteAll(file.Get(), content);
}

}  // namespace

FragmentFiles::FragmentFiles(const FragmentPlan& plan)
    : folder_(plan.folder),
      videoFolder_(folder_ + "/" + FragmentFolder(plan.videoRate)),
      audioFolder_(folder_ + "/" + FragmentFolder(plan.audioRate)),
      length_(plan.length) {}

FragmentFiles::~FragmentFiles() {
  for (const std::string& path : announced_) {
    unlink(path.c_str());
  }
}

bool FragmentFiles::Prepare() {
  return MakeFolder(folder_) && MakeFolder(videoFolder_) && MakeFolder(audioFolder_);
}

const std::string& FragmentFiles::FolderOf(Track track) const {
  return track == Track::kVideo ? videoFolder_ : audioFolder_;
}

std::string FragmentFiles::PathOf(Track track, int number) const {
  return FolderOf(track) + "/" + FragmentName(track, number * length_);
}

bool FragmentFiles::Write(Track track, int number, std::string_view content) {
  const std::string unfinished = folder_ + kUnfinished;
  const std::string path = PathOf(track, number);
  if (WriteNew(unfinished, content) && rename(unfinished.c_str(), path.c_str()) == 0) {
    Announce(track, number + 1);
    return true;
  }
  ORVO_LOG("cannot write %s: %s", path.c_str(), strerror(errno));
  unlink(unfinished.c_str());
  return false;
}

// Without it readers wait for the next fragment, so a failure does no harm.
void FragmentFiles::Announce(Track track, int number) {
  std::string& announced = announced_[static_cast<size_t>(track)];
  const std::string path = PathOf(track, number) + kNext;
  if (announced.empty() || rename(announced.c_str(), path.c_str()) != 0) {
    WriteNew(path, "");
  }
  announced = path;
}

}  // namespace orvo::transcoder
