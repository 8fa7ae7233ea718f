#include "webapi/choice/profiles.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <string_view>
#include <utility>

#include "platform/plat.h"
#include "policy/argument_helper.h"
#include "policy/platform_utils.h"
#include "policy/profile_traits.h"
#include "policy/trans_loading.h"
#include "util/qmxutils.h"
#include "util/system_files.h"
#include "webapi/choice/engine_rows.h"
#include "webapi/choice/machine_speed.h"
#include "webapi/http/number.h"
#include "webapi/library/film_traits.h"

namespace webapi {
namespace {

using LibOrvoQMX::ArgumentHelper;
using LibOrvoQMX::ProfileTraits;
using LibOrvoQMX::VideoMetaData;

constexpr char kProfileFolder[] = "/var/packages/Mirevo/target/profiles/";
constexpr char kFallbackPlatform[] = "x86_1";
constexpr unsigned kDefaultMaxHeight = 720;

struct MediaType {
  const char* muxer;
  const char* type;
};
constexpr std::array kMediaTypes = {
    MediaType{"mp4", "video/mp4"},
    MediaType{"mpegts", "video/mp2t"},
    MediaType{"asf", "video/x-ms-asf"},
    // Browsers play it under the name of the container's web variant.
    MediaType{"matroska", "video/webm"},
    MediaType{"webm", "video/webm"},
};

// The beginning of the keys of one format's profiles.
std::string KeyPrefix(const std::string& format) {
  return (format == "ss" ? "smoothstreaming" : format) + "_";
}

std::string PathOf(const std::string& platform) {
  return orvo::SystemPath(kProfileFolder + platform + ".json");
}

// The value after an option in a profile; "" if the option is missing.
std::string OptionValue(const Profile& profile, const std::string& option) {
  const std::vector<std::string> list = LibOrvoQMX::StringExplode(profile.value, " \n");
  const auto found = std::find(list.begin(), list.end(), option);
  return found == list.end() || found + 1 == list.end() ? "" : *(found + 1);
}

unsigned HeightOf(const Profile& profile) {
  return LinesOf(profile.value);
}

// "720p"; the profile's own text for a size without a known height.
std::string SizeWord(const Profile& profile) {
  const unsigned height = HeightOf(profile);
  return height != 0 ? std::to_string(height) + "p" : OptionValue(profile, "-s");
}

std::string CodecOf(const VideoMetaData& film) {
  const std::string name = film.GetVideoCodecName();
  return name.empty() ? film.GetFirstVideoMemberString("codec_raw") : name;
}

bool IsEightBit420(const std::string& pixelFormat) {
  return pixelFormat == "yuv420p" || pixelFormat == "yuvj420p";
}

Verdict Refuse(const std::string& word, const std::string& why) {
  return {"refused", word, why};
}

// Of the containers, MP4 alone tells a player how to turn the picture.
bool TellsRotation(const Profile& profile) {
  return ContentTypeOf(profile) == "video/mp4";
}

bool IsRotated(const VideoMetaData& film) {
  constexpr unsigned kFullTurn = 360;
  return film.GetVideoRotate() % kFullTurn != 0;
}

Verdict JudgeRemux(const Profile& profile, const VideoMetaData& film) {
  if (film.GetVideoCodecName() != "h264") {
    return Refuse("TransVideoNotSupported",
                  "The server can copy only H.264 video; this film has " + CodecOf(film) + ".");
  }
  if (!IsEightBit420(film.GetVideoPixFmt())) {
    return Refuse("TransVideoNotSupported",
                  "Players cannot decode H.264 video in the pixel format " + film.GetVideoPixFmt() +
                      "; the server must re-encode it.");
  }
  if (IsRotated(film) && !TellsRotation(profile)) {
    return Refuse("TransVideoNotSupported",
                  "This kind of stream cannot carry the film's rotation of " +
                      std::to_string(film.GetVideoRotate()) +
                      " degrees; the server must re-encode the video.");
  }
  return {"remux", "", "The video is copied without conversion; the sound is converted to AAC."};
}

// The containers, by FFmpeg's names, that GStreamer plays from the start to the end. It has no
// demuxer of its own for others, and that for FLV loses tracks.
constexpr auto kReadByGstreamer =
    std::to_array<std::string_view>({"matroska,webm", "mov,mp4,m4a,3gp,3g2,mj2", "mpegts", "mpeg",
                                     "ogg", "asf", "avi", "mxf", "dv"});

// AVI has no times for pictures that are stored in another order than they are shown, and
// GStreamer guesses wrong ones.
bool IsGuessedByGstreamer(const VideoMetaData& film) {
  const std::string codec = film.GetVideoCodecName();
  return film.GetContainer() == "avi" && (codec == "mpeg4" || codec == "h264");
}

bool IsReadByGstreamer(const VideoMetaData& film) {
  return std::ranges::count(kReadByGstreamer, film.GetContainer()) != 0 &&
         !IsGuessedByGstreamer(film);
}

bool NeedsFfmpeg(const VideoMetaData& film) {
  return !IsReadByGstreamer(film) ||
         LibMirevo::ForceFFmpegTranscoding(film.GetContainer(), film.GetVideoCodecName(),
                                           film.GetVideoProfile());
}

// What happens to the colors; "" if they stay.
std::string ToneSentence(const VideoMetaData& film) {
  const std::string range = HighRangeOf(film);
  return range.empty() ? "" : " Its " + range + " colors become those of a standard screen.";
}

Verdict JudgeTranscode(const Profile& profile, const VideoMetaData& film) {
  const ProfileTraits traits = ProfileTraits::Of(profile.value);
  if (traits.gstreamer && NeedsFfmpeg(film)) {
    return Refuse("TransVideoNotHardwareSupported",
                  "FFmpeg, not GStreamer, transcodes this film's " + CodecOf(film) +
                      " video on this server.");
  }
  const unsigned capability = ArgumentHelper(film).AbleToTranscodeTheVideo(traits.hardware);
  if (capability != LibOrvoQMX::kHardwareAble) {
    return Refuse(ArgumentHelper::RefusalWord(capability),
                  "The hardware cannot transcode this film's " + CodecOf(film) + " video.");
  }
  return {"transcode", "",
          "The " + CodecOf(film) + " video of " + std::to_string(film.GetVideoResolutionX()) + "x" +
              std::to_string(film.GetVideoResolutionY()) + " is re-encoded to " +
              SizeWord(profile) + "." + ToneSentence(film)};
}

// Can this kind of stream do without pictures?
bool HasPlaceForMusic(const Profile& profile) {
  const ProfileTraits traits = ProfileTraits::Of(profile.value);
  const bool isByteStream =
      profile.key.rfind("http_", 0) == 0 || profile.key.rfind("webm_", 0) == 0;
  return isByteStream && !traits.hardware && !traits.remux;
}

// The library makes streams only of films with a picture, which may be a cover.
Verdict JudgeMusic(const Profile& profile, const VideoMetaData& film) {
  if (film.GetVideoResolutionX() == 0) {
    return Refuse("TransVideoNotSupported",
                  "This file has sound alone, and this kind of stream needs a picture.");
  }
  if (!HasPlaceForMusic(profile)) {
    return Refuse("TransVideoNotSupported",
                  "This file is music with a cover; this kind of stream needs moving pictures.");
  }
  return {"transcode", "", "The sound is converted; the cover is not part of the stream."};
}

// All profiles are for browsers, except the progressive ones that do not produce MP4.
bool IsForBrowsers(const std::string& format, const Profile& profile) {
  return format != "http" || ContentTypeOf(profile) == "video/mp4";
}

// The numbers that tell how much work a conversion is.
Conversion ConversionOf(const Profile& profile, const VideoMetaData& film) {
  Conversion conversion = ConversionFrom(film);
  const std::string preset = OptionValue(profile, "-preset");
  conversion.encoder = OptionValue(profile, "-vcodec") + (preset.empty() ? "" : " " + preset);
  conversion.outHeight = HeightOf(profile);
  conversion.outWidth = conversion.outHeight * 16 / 9;
  conversion.threads =
      static_cast<unsigned>(ParseNumber(OptionValue(profile, "-threads")).value_or(0));
  return conversion;
}

// A quality whose speed is not known counts as fast enough, and so does a copy.
bool IsInTime(const JudgedProfile& judged) {
  return judged.speed == 0 || judged.speed >= 1;
}

// "This server makes 1080p at 0.7 of the film's speed;"
std::string SlownessOf(const JudgedProfile& judged) {
  std::array<char, 16> speed{};
  snprintf(speed.data(), speed.size(), "%.1f", judged.speed);
  return "This server makes " + SizeWord(judged.profile) + " at " + speed.data() +
         " of the film's speed;";
}

// The best profile for a browser among those that `isWanted` holds of: one that copies, else the
// largest picture up to `limit` lines, else the smallest above it.
JudgedProfile* LargestUpTo(unsigned limit, const std::string& format,
                           std::vector<JudgedProfile>& profiles,
                           bool (*isWanted)(const JudgedProfile&)) {
  JudgedProfile* best = nullptr;
  for (JudgedProfile& candidate : profiles) {
    const auto& [profile, verdict, speed] = candidate;
    if (!IsForBrowsers(format, profile) || verdict.method == "refused" || !isWanted(candidate)) {
      continue;
    }
    if (verdict.method == "remux") {
      return &candidate;
    }
    const unsigned height = HeightOf(profile);
    const unsigned bestHeight = best != nullptr ? HeightOf(best->profile) : 0;
    // Up to the limit, the larger picture is better; above it, the smaller one.
    if (best == nullptr || (height <= limit ? bestHeight > limit || height > bestHeight
                                            : bestHeight > limit && height < bestHeight)) {
      best = &candidate;
    }
  }
  return best;
}

// The best profile for the film on a machine that is fast enough. Null if no profile fits.
JudgedProfile* MeantFor(const VideoMetaData& film, const std::string& format,
                        std::vector<JudgedProfile>& profiles) {
  const unsigned limit = std::min(film.GetVideoResolutionY(), kDefaultMaxHeight);
  return LargestUpTo(limit, format, profiles, [](const JudgedProfile&) { return true; });
}

JudgedProfile* Fastest(const std::string& format, std::vector<JudgedProfile>& profiles) {
  JudgedProfile* best = nullptr;
  for (JudgedProfile& candidate : profiles) {
    if (IsForBrowsers(format, candidate.profile) &&
        (best == nullptr || candidate.speed > best->speed)) {
      best = &candidate;
    }
  }
  return best;
}

}  // namespace

std::string ProfileFile() {
  std::error_code failure;
  const std::string own = PathOf(libmrv::util::PlatformUtils::GetInst().GetTransPlatformName());
  return std::filesystem::exists(own, failure) ? own : PathOf(kFallbackPlatform);
}

std::vector<Profile> ProfilesOf(const std::string& format) {
  std::vector<Profile> profiles;
  const Json::Value& file = LibOrvoQMX::ReadProfiles(ProfileFile());
  if (!file.isObject()) {
    return profiles;
  }
  for (const std::string& key : file.getMemberNames()) {
    if (key.rfind(KeyPrefix(format), 0) == 0 && file[key].isString()) {
      profiles.push_back({key, file[key].asString()});
    }
  }
  return WithoutUnprovedEngines(std::move(profiles));
}

Verdict Judge(const Profile& profile, const VideoMetaData& film) {
  if (IsMusic(film)) {
    return JudgeMusic(profile, film);
  }
  if (film.GetVideoResolutionX() == 0) {
    return Refuse("TransVideoNotSupported", "This file has no video.");
  }
  if (profile.key.rfind("hls_", 0) == 0 && ArgumentHelper(film).ZeroAudioTrack()) {
    return Refuse("TransAudioNotSupported", "HLS needs sound, and this film has none.");
  }
  if (profile.key.rfind(KeyPrefix("ss"), 0) == 0 &&
      (film.GetVideoRatio() <= 0 || film.GetDuration() == 0)) {
    return Refuse("TransVideoNotSupported",
                  "The picture size or the length of this film is unknown.");
  }
  if (CodecOf(film).empty()) {
    return Refuse("TransVideoNotSupported", "The codec of this film's video is unknown.");
  }
  return ProfileTraits::Of(profile.value).remux ? JudgeRemux(profile, film)
                                                : JudgeTranscode(profile, film);
}

std::vector<JudgedProfile> JudgeProfiles(const std::string& format, const VideoMetaData& film) {
  const MachineSpeed machine = MachineSpeed::Load();
  std::vector<JudgedProfile> judged;
  for (const Profile& profile : ProfilesOf(format)) {
    judged.push_back({profile, Judge(profile, film)});
    if (machine.IsKnown() && judged.back().verdict.method == "transcode" && !IsMusic(film)) {
      judged.back().speed = machine.Of(ConversionOf(profile, film));
    }
  }
  return judged;
}

const JudgedProfile* ChooseProfile(const std::string& format, std::vector<JudgedProfile>& profiles,
                                   const VideoMetaData& film) {
  JudgedProfile* const best = MeantFor(film, format, profiles);
  if (best == nullptr || IsInTime(*best)) {
    return best;
  }
  JudgedProfile* faster = LargestUpTo(HeightOf(best->profile), format, profiles, IsInTime);
  if (faster == nullptr) {
    faster = Fastest(format, profiles);
  }
  faster->verdict.why.append(" ").append(SlownessOf(*best)).append(" ");
  faster->verdict.why.append(SizeWord(faster->profile)).append(" is chosen.");
  return faster;
}

bool PlaysInTime(const VideoMetaData& film) {
  if (IsMusic(film) || film.GetVideoResolutionX() == 0) {
    return true;
  }
  // Films without sound have no segments.
  for (const char* const format : {"hls", "http"}) {
    auto profiles = JudgeProfiles(format, film);
    if (const JudgedProfile* const best = MeantFor(film, format, profiles)) {
      return IsInTime(*best);
    }
  }
  return false;
}

void LearnCost(const Profile& profile, const VideoMetaData& film, double processorSeconds) {
  MachineSpeed machine = MachineSpeed::Load();
  if (machine.IsKnown() && !RunsOnHardware(profile.value) &&
      machine.Learn(ConversionOf(profile, film), processorSeconds)) {
    machine.Save();
  }
}

std::string ContentTypeOf(const Profile& profile) {
  const std::string muxer = OptionValue(profile, "-f") + OptionValue(profile, "--mux");
  for (const MediaType& row : kMediaTypes) {
    if (muxer == row.muxer) {
      return row.type;
    }
  }
  return "application/octet-stream";
}

}  // namespace webapi
