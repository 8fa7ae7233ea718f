#include "transcoder/film_copy.h"

#include <unistd.h>

#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string_view>
#include <utility>

#include "platform/io.h"
#include "transcoder/child_stream.h"
#include "transcoder/copy_output.h"
#include "transcoder/copy_sound.h"
#include "transcoder/film_packets.h"

namespace orvo::transcoder {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kReportInterval{2};

// --- Progress ---

class Report {
 public:
  // `start`: where the film is entered, in microseconds.
  Report(int descriptor, int64_t start) : descriptor_(descriptor), start_(start) {}

  void Look(const CopyOutput& output) {
    if (descriptor_ >= 0 && Clock::now() >= due_) {
      due_ = Clock::now() + kReportInterval;
      Write(output, "continue");
    }
  }
  void Finish(const CopyOutput& output) {
    if (descriptor_ >= 0) {
      Write(output, "end");
    }
  }

 private:
  void Write(const CopyOutput& output, const char* state) const {
    const int64_t done = output.Position() > start_ ? output.Position() - start_ : 0;
    const double passed = std::chrono::duration<double, std::micro>(Clock::now() - begin_).count();
    std::array<char, 256> text{};
    const int size =
        snprintf(text.data(), text.size(),
                 "frame=%lld\nout_time_us=%lld\nout_time_ms=%lld\nspeed=%.3gx\n"
                 "progress=%s\n",
                 static_cast<long long>(output.Pictures()), static_cast<long long>(done),
                 static_cast<long long>(done), static_cast<double>(done) / passed, state);
    (void)WriteAll(descriptor_, std::string_view(text.data(), static_cast<size_t>(size)));
  }

  int descriptor_;
  int64_t start_;
  Clock::time_point begin_ = Clock::now();
  Clock::time_point due_ = begin_ + kReportInterval;
};

// --- Bit streams ---

// The filters of copied pictures.
class PictureFilters {
 public:
  PictureFilters() : av_(*AvFunctions::Get()), packet_(av_.av_packet_alloc()) {}
  ~PictureFilters() { av_.av_bsf_free(&filters_); }
  PictureFilters(const PictureFilters&) = delete;
  PictureFilters& operator=(const PictureFilters&) = delete;

  bool Open(const std::string& chain, const AVStream& track) {
    const bool isMade = av_.av_bsf_list_parse_str(chain.c_str(), &filters_) >= 0 &&
                        av_.avcodec_parameters_copy(filters_->par_in, track.codecpar) >= 0;
    if (isMade) {
      filters_->time_base_in = track.time_base;
    }
    return isMade && av_.av_bsf_init(filters_) >= 0;
  }

  const AVCodecParameters& Codec() const { return *filters_->par_out; }
  AVRational TimeBase() const { return filters_->time_base_out; }

  // Takes what the packet holds; null is the end. What the filters do not understand is left out.
  void Put(AVPacket* packet) { (void)av_.av_bsf_send_packet(filters_, packet); }
  // Null when there is none yet.
  AVPacket* Get() {
    const bool isThere = av_.av_bsf_receive_packet(filters_, packet_.get()) >= 0;
    return isThere ? packet_.get() : nullptr;
  }

 private:
  const AvFunctions& av_;
  AvPacket packet_;
  AVBSFContext* filters_ = nullptr;
};

// --- The copy ---

class Copy {
 public:
  Copy(const FilmCopy& plan, int output, int progress)
      : plan_(plan),
        av_(*AvFunctions::Get()),
        output_([output](std::string_view bytes) { return WriteAll(output, bytes); }, plan.format),
        report_(progress, static_cast<int64_t>(plan.seek * AV_TIME_BASE)) {}

  // False when FFmpeg has to do it.
  bool Open(UniqueFd film) {
    film_ = FilmPackets::Open(std::move(film), WantedDetail());
    if (film_ == nullptr || !film_->StatesTimes() || !ChooseTracks()) {
      return false;
    }
    output_.Describe(film_->Format().metadata);
    return OpenTracks() && Enter() && output_.Begin();
  }

  int Run() {
    while (!hasFailed_) {
      auto packet = film_->Next();
      if (!packet) {
        Finish();
        break;
      }
      Take(*packet->packet);
      report_.Look(output_);
    }
    return hasFailed_ ? kExitFailure : 0;
  }

 private:
  // An MP4 file's header states the shape of pixels.
  Detail WantedDetail() const {
    return plan_.format.name == kMp4 ? Detail::kPixelShape : Detail::kStated;
  }

  bool ChooseTracks() {
    const auto pictures = film_->Find(AVMEDIA_TYPE_VIDEO, plan_.pictures.number);
    const auto sound = film_->Find(AVMEDIA_TYPE_AUDIO, plan_.sound.number);
    picture_ = pictures.value_or(-1);
    sound_ = plan_.sound.isWanted ? sound.value_or(-1) : -1;
    film_->Choose({picture_, sound_});
    const bool lacksSound = plan_.sound.isWanted && sound_ < 0 &&
                            !(plan_.sound.isOptional && film_->FirstOf(AVMEDIA_TYPE_AUDIO) < 0);
    return plan_.pictures.isWanted && picture_ >= 0 && !lacksSound;
  }

  bool OpenTracks() {
    const AVStream& picture = film_->Track(picture_);
    return filters_.Open(plan_.pictureFilters, picture) &&
           output_.AddTrack(picture, filters_.Codec()) >= 0 && (sound_ < 0 || OpenSound());
  }

  bool OpenSound() {
    const AVStream& sound = film_->Track(sound_);
    if (!plan_.recipe) {
      soundTrack_ = output_.AddTrack(sound, *sound.codecpar);
      return soundTrack_ >= 0;
    }
    encoder_ = CopySound::Open(*plan_.recipe, sound, [this](AVPacket& packet) { Encoded(packet); });
    return encoder_ != nullptr && AddEncodedTrack(sound);
  }

  bool AddEncodedTrack(const AVStream& sound) {
    AvParameters codec(av_.avcodec_parameters_alloc());
    if (codec == nullptr ||
        av_.avcodec_parameters_from_context(codec.get(), &encoder_->Encoder()) < 0) {
      return false;
    }
    soundTrack_ = output_.AddTrack(sound, *codec);
    return soundTrack_ >= 0;
  }

  bool Enter() { return plan_.seek <= 0 || film_->Seek(picture_, plan_.seek); }

  void Take(AVPacket& packet) {
    if (packet.stream_index == picture_) {
      TakePicture(packet);
    } else if (encoder_ == nullptr) {
      TakeSound(packet);
    } else {
      CountFromEntry(packet);
      encoder_->Take(packet);
      hasFailed_ = hasFailed_ || encoder_->HasFailed();
    }
  }

  // MP4 states how many samples each packet has, whatever the film's clock.
  void TakeSound(AVPacket& packet) {
    const AVStream& sound = film_->Track(sound_);
    const bool counts = plan_.format.name == kMp4 && CountSamples(sound, packet);
    Write(soundTrack_, packet, counts ? SampleClock(sound) : sound.time_base);
  }

  static AVRational SampleClock(const AVStream& sound) { return {1, sound.codecpar->sample_rate}; }

  // 0 where packets differ and do not say. A header seldom says how long frames of AAC are; for
  // longer ones the film's clock goes on to count.
  int SamplesOf(const AVStream& sound, const AVPacket& packet) const {
    constexpr int kUsualFrame = 1024;
    const int stated = av_.av_get_audio_frame_duration2(sound.codecpar, packet.size);
    return stated > 0 || sound.codecpar->codec_id != AV_CODEC_ID_AAC ? stated : kUsualFrame;
  }

  bool CountSamples(const AVStream& sound, AVPacket& packet) {
    const int samples = SamplesOf(sound, packet);
    if (samples <= 0 || sound.codecpar->sample_rate <= 0) {
      return false;
    }
    const AVRational clock = SampleClock(sound);
    packet.dts =
        av_.av_rescale_delta(sound.time_base, packet.dts, clock, samples, &lastSample_, clock);
    packet.pts = packet.dts;
    packet.duration = samples;
    return true;
  }

  // A stream begins with a key frame.
  void TakePicture(AVPacket& packet) {
    hasBegun_ = hasBegun_ || (packet.flags & AV_PKT_FLAG_KEY) != 0;
    if (hasBegun_) {
      filters_.Put(&packet);
      WritePictures();
    }
  }

  void WritePictures() {
    while (AVPacket* const packet = filters_.Get()) {
      Write(0, *packet, filters_.TimeBase());
    }
  }

  void CountFromEntry(AVPacket& packet) const {
    const AVRational clock = film_->Track(sound_).time_base;
    const int64_t entry =
        av_.av_rescale_q(std::llround(plan_.seek * AV_TIME_BASE), {1, AV_TIME_BASE}, clock);
    packet.pts -= entry;
    packet.dts -= entry;
  }

  void Encoded(AVPacket& packet) {
    const AVRational clock = encoder_->Encoder().time_base;
    const int64_t entry = std::llround(plan_.seek * clock.den / clock.num);
    packet.pts += entry;
    packet.dts += entry;
    Write(soundTrack_, packet, clock);
  }

  void Write(int track, AVPacket& packet, AVRational clock) {
    hasFailed_ = !output_.Write(track, packet, clock) || hasFailed_;
  }

  void Finish() {
    filters_.Put(nullptr);
    WritePictures();
    if (encoder_ != nullptr) {
      encoder_->Finish();
    }
    hasFailed_ = !output_.Finish() || hasFailed_;
    report_.Finish(output_);
  }

  const FilmCopy& plan_;
  const AvFunctions& av_;
  std::unique_ptr<FilmPackets> film_;
  PictureFilters filters_;
  std::unique_ptr<CopySound> encoder_;
  CopyOutput output_;
  Report report_;
  int picture_ = -1;  // the film's tracks
  int sound_ = -1;
  int soundTrack_ = -1;                  // the stream's
  int64_t lastSample_ = AV_NOPTS_VALUE;  // what av_rescale_delta() keeps
  bool hasBegun_ = false;
  bool hasFailed_ = false;
};

}  // namespace

int CopyFilm(const FilmCopy& copy, UniqueFd film, int output, int progress) {
  if (AvFunctions::Get() == nullptr) {
    return kExitNeedsFFmpeg;
  }
  Copy run(copy, output, progress);
  return run.Open(std::move(film)) ? run.Run() : kExitNeedsFFmpeg;
}

}  // namespace orvo::transcoder
