#include "stream/bytes/byte_arguments.h"

#include "policy/argument_helper.h"
#include "util/lists.h"
#include "util/qmxutils.h"

namespace LibOrvoQMX {
namespace {

constexpr char kSeparators[] = " \n";

bool IsAudioCopied(const QMXMetaData& record, const std::string& audioId) {
  const ArgumentHelper policy(record);
  return policy.DoesAudioCodecMatch(audioId, "aac") || policy.DoesAudioCodecMatch(audioId, "mp3");
}

}  // namespace

ArgumentList ProgressiveArguments(const QMXMetaData& record, const PictureSizeRules& size) {
  const std::string profile = record.GetProfileValue();
  if (profile.empty() || record.GetVideoResolutionX() == 0) {
    return {};
  }
  return WithPictureSize(StringExplode(profile, kSeparators), record, size);
}

ArgumentList WebMArguments(const QMXMetaData& record, const PictureSizeRules& size,
                           const std::string& audioId, unsigned startSeconds) {
  const std::string profile = record.GetProfileValue();
  if (profile.empty() || startSeconds > record.GetDuration() || record.GetVideoResolutionX() == 0) {
    return {};
  }
  ArgumentList arguments =
      WithAudioFormat(WithPictureSize(StringExplode(profile, kSeparators), record, size),
                      IsAudioCopied(record, audioId) ? "copy" : "mp3");
  Append(arguments, {"-webm_seek_time", std::to_string(startSeconds), "-avoid_negative_ts", "0"});
  return arguments;
}

}  // namespace LibOrvoQMX
