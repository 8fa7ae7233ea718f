#include "convert/recipe.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

#include "platform/plat.h"
#include "util/system_files.h"

namespace convert {
namespace {

using LibOrvoQMX::VideoMetaData;
using Words = std::vector<std::string>;

constexpr std::array kProfiles = {Profile{kUsualProfile, 1080}, Profile{"mp4-720p", 720},
                                  Profile{"mp4-480p", 480}};
constexpr double kWidest = 16.0 / 9;

// The quality decides the size of the file; the limits are those of level 4.1, which televisions
// play from a stick.
constexpr auto kPicture = std::to_array<const char*>(
    {"-vcodec", "libx264", "-preset", "veryfast", "-crf", "21", "-pix_fmt", "yuv420p", "-fps_mode",
     "vfr", "-vf", "yadif=deint=interlaced", "-maxrate", "12M", "-bufsize", "24M", "-g", "250"});
constexpr auto kSound = std::to_array<const char*>({"-acodec", "aac", "-ab", "160k", "-ac", "2"});
constexpr auto kTracks =
    std::to_array<const char*>({"-map", "0:V:0", "-map", "0:a:0?", "-sn", "-dn", "-map_chapters",
                                "-1", "-map_metadata", "-1", "-max_muxing_queue_size", "4096"});

// Lengths are whole seconds, and containers round differently.
constexpr double kToleratedSeconds = 2;
constexpr double kToleratedPart = 0.02;

template <typename Part>
void Append(Words& words, const Part& part) {
  words.insert(words.end(), part.begin(), part.end());
}

int Even(double length) {
  return std::max(2, static_cast<int>(std::lround(length / 2)) * 2);
}

bool IsTurned(const VideoMetaData& film) {
  return film.GetVideoRotate() % 180 != 0;
}

}  // namespace

std::optional<Profile> FindProfile(const std::string& name) {
  for (const Profile& profile : kProfiles) {
    if (name == profile.name || (name.empty() && &profile == kProfiles.data())) {
      return profile;
    }
  }
  return std::nullopt;
}

std::string SizeFor(const VideoMetaData& film, const Profile& profile) {
  double width = film.GetVideoResolutionX();
  double height = film.GetVideoResolutionY();
  if (IsTurned(film)) {
    std::swap(width, height);
  }
  // An upright film may be as high as others are wide.
  const double longest = std::round(profile.height * kWidest);
  const double scale =
      std::min({1.0, longest / std::max(width, height), profile.height / std::min(width, height)});
  return std::to_string(Even(width * scale)) + "x" + std::to_string(Even(height * scale));
}

Words ConversionCommand(const VideoMetaData& film, const Profile& profile, const WorkFolder& folder,
                        int first) {
  const int64_t start = int64_t{first} * kPieceSeconds;
  Words words = {orvo::SystemPath(LibOrvoQMX::kTranscoder), "-ss", std::to_string(start), "-i",
                 film.GetFilePath()};
  Append(words, kTracks);
  Append(words, kPicture);
  Append(words, Words{"-s", SizeFor(film, profile)});
  Append(words, kSound);
  Append(words, Words{"-hls_seek_time", std::to_string(start * 1000), "-segment_time",
                      std::to_string(kPieceSeconds), "-segment_start_number", std::to_string(first),
                      "-break_non_keyframes", "1", folder.PiecePattern()});
  return words;
}

Words JoinCommand(const WorkFolder& folder) {
  return {LibOrvoQMX::kFFmpeg,
          "-nostdin",
          "-hide_banner",
          "-loglevel",
          "warning",
          "-nostats",
          "-y",
          "-protocol_whitelist",
          "file,pipe",
          "-f",
          "mpegts",
          "-i",
          "pipe:0",
          "-map",
          "0",
          "-c",
          "copy",
          "-movflags",
          "+faststart",
          "file:" + folder.Joined()};
}

std::string Difference(const VideoMetaData& film, const VideoMetaData& joined) {
  if (joined.GetVideoCodecName() != "h264") {
    return "the result has no picture in H.264";
  }
  if (!film.GetAudioCodecName().empty() && joined.GetAudioCodecName() != "aac") {
    return "the result has no sound in AAC";
  }
  const double wanted = film.GetDuration();
  const double tolerated = std::max(kToleratedSeconds, wanted * kToleratedPart);
  const bool isKnown = wanted > 0;
  if (isKnown && std::abs(joined.GetDuration() - wanted) > tolerated) {
    return "the result has " + std::to_string(joined.GetDuration()) + " s, the film " +
           std::to_string(film.GetDuration()) + " s";
  }
  return joined.GetDuration() > 0 || !isKnown ? "" : "the result is empty";
}

}  // namespace convert
