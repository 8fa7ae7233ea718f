#include "stream/hls/hls_arguments.h"

#include <cstdint>
#include <cstdio>

#include "contract/fragments.h"
#include "platform/plat.h"
#include "policy/argument_helper.h"
#include "util/lists.h"
#include "util/qmxutils.h"
#include "util/system_files.h"

namespace LibOrvoQMX {
namespace {

std::string ThreeDecimals(double value) {
  char text[64];
  snprintf(text, sizeof(text), "%.3f", value);
  return text;
}

// How to produce the audio: an encoder, "copy", or "" for the profile's own choice.
std::string AudioFormatOf(const QMXMetaData& record, const HlsRun& run) {
  const ArgumentHelper policy(record);
  const bool isChromecast = record.GetDevice() == "chromecast";
  if (run.audioFormat == "mp3") {
    return "mp3";
  }
  if (IsAacLc(record, run.audioId) || (!isChromecast && run.audioFormat == "ac3_copy" &&
                                       (policy.DoesAudioCodecMatch(run.audioId, "ac3") ||
                                        policy.DoesAudioCodecMatch(run.audioId, "eac3")))) {
    return "copy";
  }
  return isChromecast || run.audioFormat == "aac" ? "aac" : "";
}

ArgumentList AdjustAudio(const ArgumentList& arguments, const std::string& format) {
  return format.empty() ? arguments : WithAudioFormat(arguments, format);
}

}  // namespace

int SegmentSeconds(bool isCopied) {
  return isCopied ? orvo::kCopiedSegmentSeconds : orvo::kFragmentSeconds;
}

double SegmentDelta(int number, int seekMilliseconds, bool isCopied) {
  const int64_t nominal = int64_t{number} * SegmentSeconds(isCopied) * 1000;
  return static_cast<double>(seekMilliseconds - nominal) / 1000.0;
}

bool IsAacLc(const QMXMetaData& record, const std::string& audioId) {
  const Json::Value track = ArgumentHelper(record).GetAudioTrackInfoByID(audioId);
  return track.isObject() && track["codec"] == "aac" && track["profile"] == "LC";
}

ArgumentList HlsArguments(const QMXMetaData& record, const HlsRun& run) {
  const std::string profile = record.GetProfileValue();
  if (profile.empty() || run.segment.text.empty() || record.GetVideoResolutionX() == 0) {
    return {};
  }
  ArgumentList arguments = WithPictureSize(
      AdjustAudio(StringExplode(profile, " \n"), AudioFormatOf(record, run)), record, run.size);
  if (!run.isCopied && record.GetVideoPixFmt() != "yuv420p") {
    Append(arguments, {"-pix_fmt", "yuv420p"});
  }
  const double delta = SegmentDelta(run.segment.number, run.seekMilliseconds, run.isCopied);
  Append(arguments, {"-segment_format", "mpegts", "-segment_list_type", "m3u8", "-hls_seek_time",
                     std::to_string(run.seekMilliseconds), "-segment_time",
                     std::to_string(SegmentSeconds(run.isCopied)), "-segment_time_delta",
                     ThreeDecimals(delta), "-segment_start_number", run.segment.text});
  if (!record.IsHLSHeader()) {
    Append(arguments, {"-individual_header_trailer", "0"});
  }
  Append(arguments,
         {"-avoid_negative_ts", "0", "-break_non_keyframes", run.cutsAtPlan ? "0" : "1"});
  return arguments;
}

std::vector<std::string> SegmenterCommand(int input, int number, const std::string& pattern) {
  // The wrapper never copies video.
  const int64_t start = int64_t{number} * orvo::kFragmentSeconds * 1000;
  return {orvo::SystemPath(kTranscoder),
          "-i",
          "pipe:" + std::to_string(input),
          "-map",
          "0",
          "-codec",
          "copy",
          "-f",
          "segment",
          "-segment_time",
          std::to_string(orvo::kFragmentSeconds),
          "-segment_start_number",
          std::to_string(number),
          "-hls_seek_time",
          std::to_string(start),
          pattern};
}

}  // namespace LibOrvoQMX
