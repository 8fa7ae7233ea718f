#include "film_keyframes.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>

#include "util/media_formats.h"

namespace orvo::analyze {
namespace {

// The index must contain this many key frames from the film's start to be trusted.
constexpr size_t kSample = 4;
constexpr int kPacketsPerReport = 4096;

struct CloseInput {
  void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
struct FreePacket {
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

using Input = std::unique_ptr<AVFormatContext, CloseInput>;

Input OpenInput(const std::string& path, std::string& error) {
  AVFormatContext* context = avformat_alloc_context();
  if (context == nullptr) {
    error = "out of memory";
    return nullptr;
  }
  context->format_whitelist = av_strdup(kSelfContainedFormats);
  context->protocol_whitelist = av_strdup("file");
  // Without "file:", FFmpeg could read a name with a colon as an address. A failure frees the
  // context.
  const int result = avformat_open_input(&context, ("file:" + path).c_str(), nullptr, nullptr);
  if (result < 0) {
    char text[AV_ERROR_MAX_STRING_SIZE] = "";
    av_strerror(result, text, sizeof(text));
    error = text;
    return nullptr;
  }
  return Input(context);
}

bool IsFormat(const AVFormatContext& context, const char* name) {
  return std::strstr(context.iformat->name, name) != nullptr;
}

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

// Reads a film's video packets once.
class VideoReader {
 public:
  bool Open(const std::string& path, std::string& error) {
    context_ = OpenInput(path, error);
    if (context_ == nullptr) {
      return false;
    }
    if (avformat_find_stream_info(context_.get(), nullptr) < 0 || !ChooseVideo()) {
      error = "no video";
      return false;
    }
    return true;
  }

  // The next video packet; null at the end.
  const AVPacket* Next() {
    do {
      av_packet_unref(packet_.get());
      if (av_read_frame(context_.get(), packet_.get()) < 0) {
        return nullptr;
      }
    } while (packet_->stream_index != video_->index || Time(*packet_) == AV_NOPTS_VALUE);
    return packet_.get();
  }

  // From now on the demuxer may skip all packets except key frames. In containers that list every
  // sample, this saves reading the rest. Packets still carry presentation times, which the list
  // lacks.
  void SkipToKeyframes() { video_->discard = AVDISCARD_NONKEY; }

  // Seeks to the key frame at or before a time.
  bool Seek(int64_t time) {
    video_->discard = AVDISCARD_DEFAULT;
    return av_seek_frame(context_.get(), video_->index, time, AVSEEK_FLAG_BACKWARD) >= 0;
  }

  static int64_t Time(const AVPacket& packet) {
    return packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
  }
  int64_t EndOf(const AVPacket& packet) const {
    const AVRational rate = video_->avg_frame_rate;
    const int64_t frame = rate.num > 0 ? av_rescale_q(1, av_inv_q(rate), video_->time_base) : 0;
    return Time(packet) + (packet.duration > 0 ? packet.duration : frame);
  }
  double Seconds(int64_t time) const {
    return static_cast<double>(time) * av_q2d(video_->time_base);
  }

  int Track() const { return video_->index; }
  // Does the container list every sample?
  bool ListsSamples() const { return IsFormat(*context_, "mov"); }
  double Position() const {
    const int64_t size = avio_size(context_->pb);
    return size > 0 ? static_cast<double>(avio_tell(context_->pb)) / static_cast<double>(size) : 0;
  }

 private:
  // Selects the first video that is not a cover picture. All other tracks are skipped.
  bool ChooseVideo() {
    for (unsigned i = 0; i < context_->nb_streams; ++i) {
      AVStream* const stream = context_->streams[i];
      const bool isVideo = stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
                           (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) == 0;
      if (isVideo && video_ == nullptr) {
        video_ = stream;
      } else {
        stream->discard = AVDISCARD_ALL;
      }
    }
    return video_ != nullptr;
  }

  Input context_;
  std::unique_ptr<AVPacket, FreePacket> packet_{av_packet_alloc()};
  AVStream* video_ = nullptr;  // the context owns it
};

bool IsKeyframe(const AVPacket& packet) {
  return (packet.flags & AV_PKT_FLAG_KEY) != 0;
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
