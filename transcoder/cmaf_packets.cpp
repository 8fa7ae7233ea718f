#include "transcoder/cmaf_packets.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <utility>

#include "platform/io.h"
#include "transcoder/child_stream.h"
#include "transcoder/cmaf_boxes.h"
#include "transcoder/cmaf_command.h"
#include "transcoder/cmaf_copy_header.h"
#include "transcoder/film_packets.h"
#include "transcoder/kept_memory.h"

namespace orvo::transcoder {
namespace {

constexpr size_t kDisplayBytes = 44;
constexpr size_t kBatch = 1 << 18;

std::string OwnPath() {
  std::array<char, 4096> path;
  const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
  return length > 0 ? std::string(path.data(), static_cast<size_t>(length)) : "";
}

// Passes packets on as samples of a stream.
class PacketStream {
 public:
  PacketStream(const AvFunctions& av, const AVStream& stream, int output)
      : av_(av), stream_(stream), output_(output), clock_{1, static_cast<int>(ClockOf(stream))} {
    const auto clock = static_cast<uint32_t>(clock_.den);
    if (auto described = DescribeCopy(av, stream, clock)) {
      track_ = *std::move(described);
    } else {
      track_.isPicture = stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
      track_.clock = clock;
      track_.display.assign(kDisplayBytes, '\0');
      track_.descriptions.assign(kCmafNoCodec, sizeof(kCmafNoCodec));
    }
    bytes_ = CmafHeader(track_, 0);
  }

  bool Add(const FilmPacket& packet) {
    CmafSample sample;
    sample.time = sample.decodeTime = Time(packet.packet->pts);
    sample.duration = DurationOf(*packet.packet);
    sample.isKey = packet.IsKey();
    sample.data.assign(reinterpret_cast<const char*>(packet.packet->data),
                       static_cast<size_t>(packet.packet->size));
    if (held_ && held_->duration == 0) {
      held_->duration = std::max<int64_t>(sample.time - held_->time, 0);
    }
    return PassHeld(std::exchange(held_, std::move(sample)));
  }

  bool Finish() {
    if (held_ && held_->duration == 0) {
      held_->duration = lastDuration_;
    }
    return PassHeld(std::exchange(held_, std::nullopt)) && Flush();
  }

 private:
  static int64_t ClockOf(const AVStream& stream) {
    const AVCodecParameters& codec = *stream.codecpar;
    return codec.codec_type == AVMEDIA_TYPE_VIDEO ? kPlanClock : std::max(codec.sample_rate, 1);
  }

  int64_t Time(int64_t ticks) const { return av_.av_rescale_q(ticks, stream_.time_base, clock_); }

  int64_t DurationOf(const AVPacket& packet) const {
    const int samples =
        track_.isPicture ? 0 : av_.av_get_audio_frame_duration2(stream_.codecpar, packet.size);
    return samples > 0 ? samples : Time(std::max<int64_t>(packet.duration, 0));
  }

  // A packet that is shown before the film's start is left out.
  bool PassHeld(std::optional<CmafSample> sample) {
    if (!sample || sample->time < 0) {
      return true;
    }
    lastDuration_ = sample->duration;
    const int64_t start = sample->time + kCmafLead * clock_.den;
    std::vector<CmafSample> samples;
    samples.push_back(*std::move(sample));
    samples.front().decodeTime = samples.front().time;
    bytes_ += CmafChunk(track_, samples, 0, 1, start);
    // Pictures wait for others in the cutter; sound comes in such small packets that each one
    // would be a wake of its own.
    return bytes_.size() < (track_.isPicture ? kBatch / 4 : kBatch / 16) || Flush();
  }

  // The next batch finds its memory in place.
  bool Flush() {
    const bool isWritten = WriteAll(output_, bytes_);
    bytes_.clear();
    return isWritten;
  }

  const AvFunctions& av_;
  const AVStream& stream_;
  int output_;
  AVRational clock_;
  CmafTrack track_;
  std::optional<CmafSample> held_;
  int64_t lastDuration_ = 0;
  std::string bytes_;
};

// Sound that is stored before its key frame would be missed, so sound is entered earlier. Cues name
// pictures, so the film is entered by these.
bool Enter(FilmPackets& packets, const CmafRequest& request, double seconds) {
  constexpr double kSoundEntry = 1.0;
  constexpr double kPictureEntry = 0.001;
  const bool isPicture = packets.Track(request.track).codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
  if (seconds <= 0) {
    return true;
  }
  const int pictures = packets.FirstOf(AVMEDIA_TYPE_VIDEO);
  const int entry = isPicture || pictures < 0 ? request.track : pictures;
  return packets.Seek(entry,
                      std::max(0.0, isPicture ? seconds + kPictureEntry : seconds - kSoundEntry));
}

}  // namespace

std::vector<std::string> CmafPacketsCommand(const CmafRequest& request) {
  // The place is a time here: the plan lies outside of what this process may read.
  return {OwnPath(),
          kCmafOption,
          "packets",
          "-track",
          std::to_string(request.track),
          "-from",
          std::to_string(request.from),
          "-i",
          request.film,
          "pipe:1"};
}

int WriteCmafPackets(const CmafRequest& request, UniqueFd film, int output) {
  KeepMemory();
  const AvFunctions* const av = AvFunctions::Get();
  const auto packets =
      film.IsOpen() && av != nullptr ? FilmPackets::Open(std::move(film)) : nullptr;
  if (packets == nullptr || request.track >= packets->TrackCount() ||
      !Enter(*packets, request, request.from)) {
    return kExitFailure;
  }
  packets->Choose({request.track});
  PacketStream stream(*av, packets->Track(request.track), output);
  for (auto packet = packets->Next(); packet; packet = packets->Next()) {
    if (!stream.Add(*packet)) {
      return kExitFailure;
    }
  }
  return stream.Finish() ? 0 : kExitFailure;
}

}  // namespace orvo::transcoder
