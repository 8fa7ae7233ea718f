#include "stream/cmaf/kept_segments.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <optional>
#include <utility>
#include <vector>

#include "contract/cmaf.h"
#include "contract/kept_segments.h"
#include "stream/cmaf/cmaf_runs.h"

namespace LibOrvoQMX {
namespace {

namespace fs = std::filesystem;

// What is made now is for somebody, whatever the newest request says: a stream may have several
// players.
constexpr time_t kYoungSeconds = 60;
// A player may go back a little, and has requested nothing yet of what a run makes ahead.
constexpr int64_t kBehind = 4;
constexpr int64_t kAhead = 16;

struct Segment {
  std::string path;
  int64_t number = 0;
  uint64_t bytes = 0;
  time_t madeAt = 0;
};

// The number of a complete segment; nothing for other files.
std::optional<int64_t> NumberOf(const std::string& name) {
  int number = 0;
  const auto end = std::from_chars(name.data(), name.data() + name.size(), number).ptr;
  const bool isSegment = end != name.data() && name == orvo::CmafSegmentName(number);
  return isSegment ? std::optional<int64_t>(number) : std::nullopt;
}

// What lies in one stream's directory.
class Kept {
 public:
  explicit Kept(const std::string& streamId) {
    std::error_code failure;
    const StreamDirectory directory(kCmafKind, streamId);
    asked_.push_back(directory.LastAskedFor());
    for (fs::directory_iterator entry(directory.Path() + "/", failure), end;
         !failure && entry != end; entry.increment(failure)) {
      if (entry->is_directory(failure)) {
        AddFolder(streamId, entry->path());
      }
    }
  }

  void Shrink(uint64_t bytes) {
    std::sort(segments_.begin(), segments_.end(),
              [](const Segment& one, const Segment& other) { return one.madeAt < other.madeAt; });
    for (const Segment& segment : segments_) {
      if (bytes_ <= bytes) {
        return;
      }
      if (!IsWanted(segment) && unlink(segment.path.c_str()) == 0) {
        bytes_ -= segment.bytes;
      }
    }
  }

 private:
  void AddFolder(const std::string& streamId, const fs::path& folder) {
    std::error_code failure;
    asked_.push_back(CmafFolder(streamId, folder.filename().string()).LastAskedFor());
    for (fs::directory_iterator entry(folder, failure), end; !failure && entry != end;
         entry.increment(failure)) {
      if (const auto number = NumberOf(entry->path().filename().string())) {
        Add(entry->path().string(), *number);
      }
    }
  }

  void Add(const std::string& path, int64_t number) {
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0) {
      const auto size = static_cast<uint64_t>(status.st_size);
      segments_.push_back({path, number, size, status.st_mtime});
      bytes_ += size;
    }
  }

  // Players change the rendition, so a request counts for all of them.
  bool IsWanted(const Segment& segment) const {
    return segment.madeAt + kYoungSeconds > now_ ||
           std::any_of(asked_.begin(), asked_.end(), [&](int64_t asked) {
             return asked >= 0 && segment.number >= asked - kBehind &&
                    segment.number <= asked + kAhead;
           });
  }

  std::vector<Segment> segments_;
  std::vector<int64_t> asked_;
  uint64_t bytes_ = 0;
  time_t now_ = time(nullptr);
};

}  // namespace

uint64_t KeptCmafBytes() {
  const char* const text = secure_getenv(orvo::kKeptSegmentsVariable);
  const long mebibytes = text == nullptr ? 0 : std::strtol(text, nullptr, 10);
  return orvo::BytesOfMebibytes(
      static_cast<uint64_t>(mebibytes > 0 ? mebibytes : orvo::kKeptSegmentsMebibytes));
}

void KeepCmafWithin(const std::string& streamId, uint64_t bytes) {
  Kept(streamId).Shrink(bytes);
}

CmafKeeper::CmafKeeper(std::string streamId, uint64_t bytes)
    : streamId_(std::move(streamId)), bytes_(bytes) {}

void CmafKeeper::Look(std::optional<int64_t> position) {
  if (position != seen_) {
    seen_ = position;
    KeepCmafWithin(streamId_, bytes_);
  }
}

}  // namespace LibOrvoQMX
