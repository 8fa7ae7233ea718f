#include "transcoder/engine_stream.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cmath>
#include <csignal>
#include <memory>
#include <string_view>

#include "transcoder/child_stream.h"
#include "transcoder/copy_output.h"
#include "transcoder/film_input.h"
#include "transcoder/launch.h"
#include "transcoder/software_seat.h"
#include "transcoder/stream_input.h"

namespace orvo::transcoder {
namespace {

constexpr int kSilence = 8000;             // milliseconds
constexpr int64_t kUsualDuration = 40000;  // of a picture, in microseconds
constexpr AVRational kMicroseconds = {1, AV_TIME_BASE};

// One track of the stream. Its newest packet waits for the next one, which tells how long it lasts.
class Track {
 public:
  Track(const AvFunctions& libraries, int number)
      : av_(libraries), number_(number), newest_(libraries.av_packet_alloc()) {}

  // The times are in microseconds of the film. False on failure.
  bool Take(AVPacket& packet, int64_t time, CopyOutput& output) {
    if (hasNewest_ && !Write(time - time_, output)) {
      return false;
    }
    duration_ = hasNewest_ ? time - time_ : duration_;
    time_ = time;
    hasNewest_ = true;
    av_.av_packet_move_ref(newest_.get(), &packet);
    return true;
  }

  bool Finish(CopyOutput& output) { return !hasNewest_ || Write(duration_, output); }

  // From when on the next packet is new: a little before it is due, because clocks are rounded.
  int64_t NextTime(int64_t start) const { return hasNewest_ ? time_ + duration_ / 2 : start; }

 private:
  bool Write(int64_t duration, CopyOutput& output) {
    AVPacket& packet = *newest_;
    packet.pts = packet.dts = time_;
    packet.duration = duration;
    const bool isWritten = output.Write(number_, packet, kMicroseconds);
    av_.av_packet_unref(&packet);
    return isWritten;
  }

  const AvFunctions& av_;
  int number_;  // in the output
  AvPacket newest_;
  bool hasNewest_ = false;
  int64_t time_ = 0;
  int64_t duration_ = kUsualDuration;
};

class Stream {
 public:
  Stream(const StreamPlan& plan, int descriptor)
      : av_(*AvFunctions::Get()),
        descriptor_(descriptor),
        output_([this](std::string_view bytes) { return Send(bytes); }, plan.format) {}

  // Takes over what a child writes. Returns its exit code; it is 0 at the film's end.
  int Play(const StreamPlan& plan, std::optional<int> silence) {
    child_ = ChildStream::Start(plan.command);
    if (!child_) {
      return kExitNotFound;
    }
    if (silence) {
      child_->LimitSilence(*silence);
    }
    Relay(std::llround(plan.start * AV_TIME_BASE));
    child_->Close();
    const int code = child_->ExitCode();
    return hasFailed_ ? std::max(code, kExitFailure) : code;
  }

  // The run was not stopped, and the client takes more.
  bool CanGoOn() const { return child_ && !child_->IsStopped() && !hasFailed_; }

  double NextSecond(double start) const {
    return pictures_ ? static_cast<double>(pictures_->NextTime(Microseconds(start))) / AV_TIME_BASE
                     : start;
  }

  int Finish() {
    const bool isDone = (!pictures_ || pictures_->Finish(output_)) &&
                        (!sound_ || sound_->Finish(output_)) && (!pictures_ || output_.Finish());
    return isDone ? 0 : kExitFailure;
  }

 private:
  static int64_t Microseconds(double seconds) { return std::llround(seconds * AV_TIME_BASE); }

  void Relay(int64_t start) {
    StreamInput input(
        av_, [this](unsigned char* buffer, int size) { return child_->ReadNext(buffer, size); });
    AVPacket* packet = input.Open() ? input.Next() : nullptr;
    while (packet != nullptr && !hasFailed_) {
      hasFailed_ =
          (!pictures_ && !Begin(input)) || !Take(input.Track(packet->stream_index), *packet, start);
      packet = hasFailed_ ? nullptr : input.Next();
    }
    if (hasFailed_) {
      child_->Stop(SIGKILL);
    }
  }

  // The first packet is there, so the child's encoders work.
  bool Begin(const StreamInput& input) {
    output_.Describe(input.Words());
    return AddTrack(input.TrackOf(AVMEDIA_TYPE_VIDEO), pictures_) && pictures_ &&
           AddTrack(input.TrackOf(AVMEDIA_TYPE_AUDIO), sound_) && output_.Begin();
  }

  bool AddTrack(const AVStream* model, std::optional<Track>& track) {
    if (model != nullptr) {
      const int number = output_.AddTrack(*model, *model->codecpar);
      track.emplace(av_, number);
      return number >= 0;
    }
    return true;
  }

  // FFmpeg has left out earlier pictures. Sound that the stream has already, and its lead, are
  // dropped here.
  bool Take(const AVStream& source, AVPacket& packet, int64_t start) {
    const bool isPicture = source.codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
    std::optional<Track>& track = isPicture ? pictures_ : sound_;
    const int64_t time =
        av_.av_rescale_q(packet.pts, source.time_base, kMicroseconds) - Microseconds(kStreamDelay);
    const bool isNew = track && (isPicture || start <= 0 || time >= track->NextTime(start));
    return !isNew || track->Take(packet, time, output_);
  }

  // In pieces that fit, so that a signal is seen while the reader takes its time.
  bool Send(std::string_view bytes) {
    while (!bytes.empty()) {
      if (!child_->WaitToWrite(descriptor_)) {
        return false;
      }
      const ssize_t count =
          write(descriptor_, bytes.data(), std::min<size_t>(bytes.size(), PIPE_BUF));
      if (count < 0 && errno != EINTR && errno != EAGAIN) {
        return false;
      }
      bytes.remove_prefix(static_cast<size_t>(std::max<ssize_t>(count, 0)));
    }
    return true;
  }

  const AvFunctions& av_;
  int descriptor_;
  std::optional<ChildStream> child_;
  CopyOutput output_;
  std::optional<Track> pictures_;
  std::optional<Track> sound_;
  bool hasFailed_ = false;  // the stream can be neither made nor sent
};

}  // namespace

int RunEngineStream(const StreamPlan& plan, int output, const Replacement& replace) {
  if (AvFunctions::Get() == nullptr) {
    return kExitFailure;
  }
  Stream stream(plan, output);
  int code = stream.Play(plan, kSilence);
  if (code != 0 && stream.CanGoOn()) {
    const auto software = replace(stream.NextSecond(plan.start));
    code = software ? stream.Play(*software, std::nullopt) : kExitNoSeat;
  }
  return code == 0 ? stream.Finish() : code;
}

}  // namespace orvo::transcoder
