#include "film_keyframes.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "video_reader.h"

namespace orvo::analyze {
namespace {

// The index must contain this many key frames from the film's start to be trusted.
constexpr size_t kSample = 4;
constexpr int kPacketsPerReport = 4096;

// The key frame times of a track from the container's index. None for formats whose index has no
// presentation times.
std::vector<int64_t> ReadIndex(const std::string& path, int track) {
  std::string error;
  // This needs a separate input: reading packets adds to the index, and a seek in a damaged file
  // disturbs the reading.
  const Input input = OpenInput(path, error);
  if (input == nullptr || !IsFormat(*input, "matroska") ||
      static_cast<unsigned>(track) >= input->nb_streams) {
    return {};
  }
  // The first seek loads the index.
  av_seek_frame(input.get(), -1, 0, AVSEEK_FLAG_BACKWARD);
  AVStream* const stream = input->streams[track];
  std::vector<int64_t> times;
  for (int n = 0; n < avformat_index_get_entries_count(stream); ++n) {
    const AVIndexEntry* const entry = avformat_index_get_entry(stream, n);
    if ((entry->flags & AVINDEX_KEYFRAME) != 0) {
      times.push_back(entry->timestamp);
    }
  }
  return times;
}

class Search {
 public:
  Search(const std::string& path, VideoReader& reader, const Progress& progress)
      : path_(path), reader_(reader), progress_(progress) {}

  // Returns false if no key frame was found.
  bool Run(FilmKeyframes& found) {
    ReadStart();
    std::vector<int64_t> index = ReadIndex(path_, reader_.Track());
    if (times_.size() >= kSample && IsComplete(index)) {
      times_ = std::move(index);
    } else {
      ReadRest();
    }
    if (times_.empty()) {
      return false;
    }
    ReadEnd();
    for (const int64_t time : times_) {
      found.times.push_back(reader_.Seconds(time));
    }
    found.endTime = reader_.Seconds(end_) - found.times.front();
    return true;
  }

 private:
  void Take(const AVPacket& packet) {
    if (IsKeyframe(packet)) {
      times_.push_back(VideoReader::Time(packet));
    }
    end_ = std::max(end_, reader_.EndOf(packet));
  }

  void ReadStart() {
    while (times_.size() < kSample) {
      const AVPacket* const packet = reader_.Next();
      if (packet == nullptr) {
        return;
      }
      Take(*packet);
    }
  }

  // An index may lack key frames. A comparison with the film's start detects that.
  bool IsComplete(const std::vector<int64_t>& index) const {
    return index.size() >= times_.size() && std::equal(times_.begin(), times_.end(), index.begin());
  }

  void ReadRest() {
    if (reader_.ListsSamples()) {
      reader_.SkipToKeyframes();
    }
    int untilReport = kPacketsPerReport;
    for (const AVPacket* packet = reader_.Next(); packet != nullptr; packet = reader_.Next()) {
      Take(*packet);
      if (--untilReport == 0) {
        progress_(reader_.Position());
        untilReport = kPacketsPerReport;
      }
    }
  }

  // Reads the packets after the last key frame if they were skipped.
  void ReadEnd() {
    if (!reader_.Seek(times_.back())) {
      return;
    }
    for (const AVPacket* packet = reader_.Next(); packet != nullptr; packet = reader_.Next()) {
      end_ = std::max(end_, reader_.EndOf(*packet));
    }
  }

  const std::string& path_;
  VideoReader& reader_;
  const Progress& progress_;
  std::vector<int64_t> times_;
  int64_t end_ = INT64_MIN;
};

}  // namespace

bool FindKeyframes(const std::string& path, const Progress& progress, FilmKeyframes& found,
                   std::string& error) {
  av_log_set_level(AV_LOG_QUIET);
  VideoReader reader;
  if (!reader.Open(path, error)) {
    return false;
  }
  if (!Search(path, reader, progress).Run(found)) {
    error = "no key frame";
    return false;
  }
  if (found.endTime <= 0) {
    error = "no duration";
    return false;
  }
  return true;
}

}  // namespace orvo::analyze
