#include "transcoder/fragment_format.h"

#include <array>
#include <cstdio>
#include <utility>

#include "transcoder/av_functions.h"
#include "transcoder/stream_input.h"
#include "transcoder/transport_stream.h"

namespace orvo::transcoder {

namespace {

constexpr AVRational kFragmentClock = {1, kFragmentClockRate};
constexpr AVRational kPictureClock = {1, kTransportClockRate};

// A box of its own for each fragment, with its own clock; the file around it is thrown away.
constexpr std::array<std::pair<const char*, const char*>, 3> kBoxOptions = {{
    {"movflags", "empty_moov+default_base_moof+frag_custom+frag_discont+skip_trailer"},
    {"use_editlist", "0"},
    {"video_track_timescale", "10000000"},
}};

// --- Boxes ---

// One track of an MP4 file in memory.
class Boxes {
 public:
  // `picture` for a track of pictures, null for one of sound.
  Boxes(const AvFunctions& libraries, const AVCodecParameters* picture, int number)
      : libraries_(libraries), packet_(libraries.av_packet_alloc()) {
    libraries_.avformat_alloc_output_context2(&context_, nullptr, "mp4", nullptr);
    if (context_ != nullptr && libraries_.avio_open_dyn_buf(&context_->pb) == 0) {
      isReady_ = packet_ != nullptr && AddTrack(picture) && WriteHeader(number);
    }
  }
  ~Boxes() {
    (void)TakeBytes();
    libraries_.av_packet_free(&packet_);
    libraries_.avformat_free_context(context_);
  }
  Boxes(const Boxes&) = delete;
  Boxes& operator=(const Boxes&) = delete;

  // Empty when something went wrong.
  std::string Fragment(const std::vector<Sample>& samples) {
    if (!isReady_) {
      return "";
    }
    const auto header = static_cast<size_t>(libraries_.avio_seek(context_->pb, 0, SEEK_CUR));
    bool isWritten = true;
    for (const Sample& sample : samples) {
      isWritten = Write(sample) && isWritten;
    }
    isWritten = libraries_.av_write_frame(context_, nullptr) >= 0 && isWritten;
    const std::string bytes = TakeBytes();
    return isWritten && bytes.size() > header ? bytes.substr(header) : "";
  }

 private:
  bool AddTrack(const AVCodecParameters* picture) {
    AVStream* stream = libraries_.avformat_new_stream(context_, nullptr);
    if (stream == nullptr) {
      return false;
    }
    stream->time_base = kFragmentClock;
    if (picture == nullptr) {
      DescribeSound(*stream->codecpar);
      return true;
    }
    const bool copied = libraries_.avcodec_parameters_copy(stream->codecpar, picture) >= 0;
    stream->codecpar->codec_tag = 0;
    return copied;
  }

  // Clients count both tracks in the same ticks. The sound's clock follows its sample rate, which
  // otherwise only the header states.
  static void DescribeSound(AVCodecParameters& parameters) {
    parameters.codec_type = AVMEDIA_TYPE_AUDIO;
    parameters.codec_id = AV_CODEC_ID_AAC;
    parameters.sample_rate = kFragmentClockRate;
    parameters.frame_size = kFragmentSoundFrame;
    parameters.ch_layout = AV_CHANNEL_LAYOUT_STEREO;
  }

  bool WriteHeader(int number) {
    AVDictionary* options = nullptr;
    for (const auto& [name, value] : kBoxOptions) {
      libraries_.av_dict_set(&options, name, value, 0);
    }
    libraries_.av_dict_set(&options, "fragment_index", std::to_string(number + 1).c_str(), 0);
    context_->avoid_negative_ts = AVFMT_AVOID_NEG_TS_DISABLED;
    const int result = libraries_.avformat_write_header(context_, &options);
    libraries_.av_dict_free(&options);
    libraries_.avio_flush(context_->pb);
    return result >= 0;
  }

  bool Write(const Sample& sample) {
    packet_->data =
        reinterpret_cast<uint8_t*>(const_cast<char*>(sample.data->data()));  // it is only read
    packet_->size = static_cast<int>(sample.data->size());
    packet_->pts = packet_->dts = sample.time;
    packet_->duration = sample.duration;
    packet_->flags = sample.isKey ? AV_PKT_FLAG_KEY : 0;
    return libraries_.av_write_frame(context_, packet_) >= 0;
  }

  std::string TakeBytes() {
    uint8_t* bytes = nullptr;
    std::string result;
    if (context_ != nullptr && context_->pb != nullptr) {
      const int size = libraries_.avio_close_dyn_buf(context_->pb, &bytes);
      context_->pb = nullptr;
      result.assign(reinterpret_cast<const char*>(bytes), static_cast<size_t>(size));
      libraries_.av_free(bytes);
    }
    return result;
  }

  const AvFunctions& libraries_;
  AVFormatContext* context_ = nullptr;
  AVPacket* packet_;
  bool isReady_ = false;
};

}  // namespace

// --- The stream ---

class FormatReader {
 public:
  FormatReader(const AvFunctions& libraries, const FragmentFormat::Source& source)
      : libraries_(libraries), input_(libraries, source) {}

  bool Open() { return input_.Open(); }

  const AVStream* StreamOf(Track track) const {
    return input_.TrackOf(track == Track::kVideo ? AVMEDIA_TYPE_VIDEO : AVMEDIA_TYPE_AUDIO);
  }

  std::optional<FragmentFormat::Frame> Next() {
    while (const AVPacket* const packet = input_.Next()) {
      for (const Track track : {Track::kVideo, Track::kAudio}) {
        const AVStream* stream = StreamOf(track);
        if (stream != nullptr && stream->index == packet->stream_index) {
          return FragmentFormat::Frame{track, ToSample(*stream, *packet)};
        }
      }
    }
    return std::nullopt;
  }

 private:
  // Times of pictures carry the encoder's marks in what is finer than their clock.
  int64_t FilmTime(const AVStream& stream, int64_t time) const {
    AVRational clock = stream.time_base;
    if (stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO) {
      time = libraries_.av_rescale_q(time, clock, kPictureClock);
      clock = kPictureClock;
    }
    return libraries_.av_rescale_q(time, clock, kFragmentClock) - kStreamDelay * kFragmentClockRate;
  }

  Sample ToSample(const AVStream& stream, const AVPacket& packet) const {
    return {FilmTime(stream, packet.pts), 0, (packet.flags & AV_PKT_FLAG_KEY) != 0,
            std::make_shared<const std::string>(reinterpret_cast<const char*>(packet.data),
                                                static_cast<size_t>(packet.size))};
  }

  const AvFunctions& libraries_;
  StreamInput input_;
};

FragmentFormat::FragmentFormat(Source source) : source_(std::move(source)) {}
FragmentFormat::~FragmentFormat() = default;

bool FragmentFormat::Open() {
  libraries_ = AvFunctions::Get();
  if (libraries_ == nullptr) {
    return false;
  }
  reader_ = std::make_unique<FormatReader>(*libraries_, source_);
  return reader_->Open() && reader_->StreamOf(Track::kVideo) != nullptr;
}

bool FragmentFormat::HasSound() const {
  return reader_->StreamOf(Track::kAudio) != nullptr;
}

std::optional<FragmentFormat::Frame> FragmentFormat::Next() {
  return reader_->Next();
}

std::string FragmentFormat::Box(Track track, int number, const std::vector<Sample>& samples) const {
  const AVCodecParameters* picture =
      track == Track::kVideo ? reader_->StreamOf(track)->codecpar : nullptr;
  return Boxes(*libraries_, picture, number).Fragment(samples);
}

}  // namespace orvo::transcoder
