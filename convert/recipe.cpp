#include "convert/recipe.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

#include "platform/plat.h"
#include "util/media_formats.h"
#include "util/subtitle.h"
#include "util/system_files.h"

namespace convert {
namespace {

using LibOrvoQMX::VideoMetaData;
using Words = std::vector<std::string>;
using Tracks = std::vector<Json::Value>;

constexpr std::array kProfiles = {Profile{kUsualProfile, 1080}, Profile{"mp4-720p", 720},
                                  Profile{"mp4-480p", 480}};
constexpr double kWidest = 16.0 / 9;

// The quality decides the size of the file; the limits are those of level 4.1, which televisions
// play from a stick.
constexpr auto kPicture = std::to_array<const char*>(
    {"-vcodec", "libx264", "-preset", "veryfast", "-crf", "21", "-pix_fmt", "yuv420p", "-fps_mode",
     "vfr", "-vf", "yadif=deint=interlaced", "-maxrate", "12M", "-bufsize", "24M", "-g", "250"});
constexpr auto kSound = std::to_array<const char*>({"-acodec", "aac", "-ab", "160k", "-ac", "2"});
constexpr auto kTracks = std::to_array<const char*>(
    {"-sn", "-dn", "-map_chapters", "-1", "-map_metadata", "-1", "-max_muxing_queue_size", "4096"});
constexpr size_t kMostTracks = 16;  // of one kind

// Lengths are whole seconds, and containers round differently.
constexpr double kToleratedSeconds = 2;
constexpr double kToleratedPart = 0.02;

template <typename Part>
void Append(Words& words, const Part& part) {
  words.insert(words.end(), part.begin(), part.end());
}

// The tracks that `isWanted`, at most so many as a result holds.
template <typename Wanted>
Tracks Chosen(const Json::Value& tracks, Wanted isWanted) {
  Tracks chosen;
  for (const Json::Value& track : tracks) {
    if (chosen.size() < kMostTracks && track.isObject() && track["codec"].isString() &&
        isWanted(track["codec"].asString())) {
      chosen.push_back(track);
    }
  }
  return chosen;
}

// FFmpeg's name of a track: "0:2".
std::string NameIn(const char* input, const Json::Value& track) {
  return std::string(input) + ":" + track["track"].asString();
}

// Whatever the film says of its language, this is a code of three letters or nothing.
std::string LanguageOf(const Json::Value& track) {
  const std::string language = track["language"].isString() ? track["language"].asString() : "";
  const bool isCode =
      language.size() == 3 &&
      std::all_of(language.begin(), language.end(), [](char c) { return c >= 'a' && c <= 'z'; });
  return isCode ? language : "";
}

void AppendLanguages(Words& words, const char* kind, const Tracks& tracks) {
  for (size_t i = 0; i < tracks.size(); ++i) {
    const std::string language = LanguageOf(tracks[i]);
    if (!language.empty()) {
      Append(words, Words{std::string("-metadata:s:") + kind + ":" + std::to_string(i),
                          "language=" + language});
    }
  }
}

int Even(double length) {
  return std::max(2, static_cast<int>(std::lround(length / 2)) * 2);
}

bool IsTurned(const VideoMetaData& film) {
  return film.GetVideoRotate() % 180 != 0;
}

}  // namespace

std::vector<Json::Value> SoundsOf(const VideoMetaData& film) {
  Json::Value videos;
  Json::Value sounds;
  film.GetTrackInfo(videos, sounds);
  return Chosen(sounds, [](const std::string& codec) { return !codec.empty(); });
}

std::vector<Json::Value> TextsOf(const VideoMetaData& film) {
  Json::Value subtitles;
  film.GetSubtitleTrackInfo(subtitles);
  return orvo::DemuxerOf(film.GetContainer()).empty()
             ? Tracks{}
             : Chosen(subtitles, libmrv::subtitle::IsTextBaseSubtitleCodec);
}

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
  Words words = {orvo::SystemPath(LibOrvoQMX::kTranscoder),
                 "-ss",
                 std::to_string(start),
                 "-i",
                 film.GetFilePath(),
                 "-map",
                 "0:V:0"};
  for (const Json::Value& sound : SoundsOf(film)) {
    Append(words, Words{"-map", NameIn("0", sound)});
  }
  Append(words, kTracks);
  Append(words, kPicture);
  Append(words, Words{"-s", SizeFor(film, profile)});
  Append(words, kSound);
  Append(words, Words{"-hls_seek_time", std::to_string(start * 1000), "-segment_time",
                      std::to_string(kPieceSeconds), "-segment_start_number", std::to_string(first),
                      "-break_non_keyframes", "1", folder.PiecePattern()});
  return words;
}

Words JoinCommand(const VideoMetaData& film, const WorkFolder& folder,
                  const std::string& filmAddress) {
  const Tracks texts = TextsOf(film);
  Words words = {LibOrvoQMX::kFFmpeg, "-nostdin", "-hide_banner", "-loglevel", "warning",
                 "-nostats",          "-y"};
  Append(words, Words{"-protocol_whitelist", "file,pipe", "-f", "mpegts", "-i", "pipe:0"});
  if (!texts.empty()) {
    Append(words, Words{"-protocol_whitelist", "file,pipe", "-f",
                        orvo::DemuxerOf(film.GetContainer()), "-i", "file:" + filmAddress});
  }
  Append(words, Words{"-map", "0"});
  for (const Json::Value& text : texts) {
    Append(words, Words{"-map", NameIn("1", text)});
  }
  Append(words, Words{"-c:v", "copy", "-c:a", "copy", "-c:s", "mov_text", "-map_metadata", "-1",
                      "-map_chapters", "-1"});
  AppendLanguages(words, "a", SoundsOf(film));
  AppendLanguages(words, "s", texts);
  Append(words, Words{"-movflags", "+faststart", "file:" + folder.Joined()});
  return words;
}

std::string Difference(const VideoMetaData& film, const VideoMetaData& joined) {
  if (joined.GetVideoCodecName() != "h264") {
    return "the result has no picture in H.264";
  }
  // A track without data is not in the result.
  const Tracks sounds = SoundsOf(joined);
  const auto isAac = [](const Json::Value& sound) { return sound["codec"] == "aac"; };
  if (sounds.empty() != SoundsOf(film).empty() ||
      !std::all_of(sounds.begin(), sounds.end(), isAac)) {
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
