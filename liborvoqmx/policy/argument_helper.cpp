#include "policy/argument_helper.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "policy/platform_utils.h"

namespace LibOrvoQMX {
namespace {

using libmrv::util::PlatformUtils;

constexpr double kMax4kH264Framerate = 24.1;
constexpr unsigned kMaxHardwareWidth = 3840;
constexpr unsigned kMaxHardwareHeight = 2160;
constexpr unsigned kMinVideoBitrate = 500000;

struct VideoSize {
  std::string_view name;
  unsigned width;
  unsigned height;
};
constexpr std::array kVideoSizes = {
    VideoSize{"hd480", 852, 480},   VideoSize{"hd720", 1280, 720},  VideoSize{"hd1080", 1920, 1080},
    VideoSize{"320x240", 320, 240}, VideoSize{"480x360", 480, 360},
};

constexpr std::array<std::string_view, 5> kEvansportCodecs = {"mpeg4", "h264", "mpeg2", "vc1",
                                                              "wmv3"};
constexpr std::array<std::string_view, 6> kMonacoCodecs = {"mpeg4", "h264", "mpeg2",
                                                           "vc1",   "wmv3", "hevc"};

template <size_t N>
bool Contains(const std::array<std::string_view, N>& list, const std::string& name) {
  return std::find(list.begin(), list.end(), name) != list.end();
}

struct Refusal {
  unsigned capability;
  const char* word;
};
constexpr std::array kRefusals = {
    Refusal{kHardwareCodec, "TransVideoNotHardwareSupported"},
    Refusal{kHardwareResolution, "TransVideoOutOfResolutionCapability"},
    Refusal{kHardwareProfile, "TransVideoOutOfProfileCapability"},
    Refusal{kHardwareFramerate, "TransVideoOutOfFramerateCapability"},
};

bool Is10Bit(const std::string& codec, const std::string& profile) {
  return (codec == "h264" && profile == "High 10") || (codec == "hevc" && profile == "Main 10");
}

bool IsTurned(unsigned rotate) {
  return rotate == 90 || rotate == 270;
}

unsigned EvenBelow(float length) {
  return static_cast<unsigned>(length) & ~1U;
}

std::string TextMember(const Json::Value& track, const char* key) {
  return track.isObject() && track[key].isConvertibleTo(Json::stringValue) ? track[key].asString()
                                                                           : "";
}

}  // namespace

ArgumentHelper::ArgumentHelper(const VideoMetaData& metaData) : m_metaData(metaData) {}

std::string ArgumentHelper::GetAACEncoder() {
  return "libfdk_aac";
}
std::string ArgumentHelper::GetMP3Encoder() {
  return "libshine";
}

Json::Value ArgumentHelper::GetAudioTrackInfoByID(const std::string& id, unsigned& index) const {
  Json::Value videos;
  Json::Value audios;
  if (!m_metaData.GetTrackInfo(videos, audios) || !audios.isArray() || audios.empty()) {
    return {};
  }
  if (id.empty()) {
    index = 0;
    return audios[0];
  }
  for (Json::ArrayIndex i = 0; i < audios.size(); ++i) {
    const Json::Value& track = audios[i];
    if (track.isObject() && track.isMember("track") && track.isMember("id") &&
        track.isMember("codec") && TextMember(track, "id") == id) {
      index = i;
      return track;
    }
  }
  return {};
}

Json::Value ArgumentHelper::GetAudioTrackInfoByID(const std::string& id) const {
  unsigned index = 0;
  return GetAudioTrackInfoByID(id, index);
}

bool ArgumentHelper::DoesAudioCodecMatch(const std::string& id, const std::string& codec) const {
  const Json::Value track = GetAudioTrackInfoByID(id);
  return !track.isNull() && TextMember(track, "codec") == codec;
}

bool ArgumentHelper::AbleToDecodeAudioById(const std::string& id) const {
  const Json::Value track = GetAudioTrackInfoByID(id);
  return !track.isNull() && AbleToDecodeAudioByCodec(TextMember(track, "codec"));
}

bool ArgumentHelper::AbleToDecodeAudio(const std::string& id) const {
  return AbleToDecodeAudioById(id);
}

bool ArgumentHelper::AbleToDecodeAudioByCodec(const std::string& /*codec*/) {
  return true;
}

bool ArgumentHelper::ZeroAudioTrack() const {
  Json::Value videos;
  Json::Value audios;
  m_metaData.GetTrackInfo(videos, audios);
  return audios.isArray() && audios.empty();
}

bool ArgumentHelper::Is4kVideo(unsigned width, unsigned height) {
  return std::min(width, height) > 1080 || std::max(width, height) > 1920;
}

unsigned ArgumentHelper::AbleToHWTranscodeTheVideo(const std::string& codec, unsigned width,
                                                   unsigned height, float framerate,
                                                   const std::string& codecTag,
                                                   const std::string& profile) {
  if (height == 0) {
    return kHardwareNone;
  }
  const PlatformUtils& platform = PlatformUtils::GetInst();
  if (platform.IsEvansport()) {
    return EvansportAbleToHWTranscodeTheVideo(codec, width, height, framerate, codecTag, profile);
  }
  if (platform.IsMonaco()) {
    return MonacoAbleToHWTranscodeTheVideo(codec, width, height, framerate, codecTag, profile);
  }
  if (platform.IsBraswell()) {
    return BraswellAbleToHWTranscodeTheVideo(codec, width, height, framerate, codecTag, profile);
  }
  if (platform.IsApolloLake()) {
    return ApolloLakeAbleToHWTranscodeTheVideo(codec, width, height, framerate, codecTag, profile);
  }
  return kHardwareNone;
}

unsigned ArgumentHelper::EvansportAbleToHWTranscodeTheVideo(const std::string& codec,
                                                            unsigned /*width*/, unsigned height,
                                                            float /*framerate*/,
                                                            const std::string& /*codecTag*/,
                                                            const std::string& /*profile*/) {
  if (Contains(kEvansportCodecs, codec) || (codec == "rv40" && height <= 720) || height <= 480) {
    return kHardwareAble;
  }
  return kHardwareNone;
}

unsigned ArgumentHelper::MonacoAbleToHWTranscodeTheVideo(const std::string& codec, unsigned width,
                                                         unsigned height, float framerate,
                                                         const std::string& codecTag,
                                                         const std::string& profile) {
  // The last rule that applies is the answer.
  const bool is4k = Is4kVideo(width, height);
  unsigned answer = Contains(kMonacoCodecs, codec) ? kHardwareAble : kHardwareCodec;
  if (is4k && codec == "h264" && static_cast<double>(framerate) > kMax4kH264Framerate) {
    answer = kHardwareFramerate;
  }
  if (width > kMaxHardwareWidth || height > kMaxHardwareHeight) {
    answer = kHardwareResolution;
  }
  if (is4k && codec != "h264" && codec != "hevc") {
    answer = kHardwareResolution;
  }
  if (codec == "mpeg4" && codecTag == "DIVX") {
    answer = kHardwareCodec;
  }
  if (Is10Bit(codec, profile)) {
    answer = kHardwareProfile;
  }
  return answer;
}

unsigned ArgumentHelper::BraswellAbleToHWTranscodeTheVideo(const std::string& codec, unsigned width,
                                                           unsigned height, float framerate,
                                                           const std::string& codecTag,
                                                           const std::string& profile) {
  return ApolloLakeAbleToHWTranscodeTheVideo(codec, width, height, framerate, codecTag, profile);
}

unsigned ArgumentHelper::ApolloLakeAbleToHWTranscodeTheVideo(
    const std::string& /*codec*/, unsigned /*width*/, unsigned /*height*/, float /*framerate*/,
    const std::string& /*codecTag*/, const std::string& /*profile*/) {
  // The VA-API path accepts every video. Later code sends what it cannot decode to the software
  // path.
  return kHardwareAble;
}

unsigned ArgumentHelper::AbleToTranscodeTheVideo(bool hardware) const {
  if (!hardware) {
    return kHardwareAble;
  }
  return AbleToHWTranscodeTheVideo(m_metaData.GetVideoCodecName(), m_metaData.GetVideoResolutionX(),
                                   m_metaData.GetVideoResolutionY(), m_metaData.GetVideoFramerate(),
                                   m_metaData.GetVideoCodecTag(), m_metaData.GetVideoProfile());
}

std::string ArgumentHelper::RefusalWord(unsigned capability) {
  for (const Refusal& row : kRefusals) {
    if (row.capability == capability) {
      return row.word;
    }
  }
  return "TransVideoNotSupported";
}

bool ArgumentHelper::MapVideoSize(const std::string& name, unsigned& width, unsigned& height) {
  for (const VideoSize& row : kVideoSizes) {
    if (row.name == name) {
      width = row.width;
      height = row.height;
      return true;
    }
  }
  return false;
}

void ArgumentHelper::GetTransVideoSize(const std::string& name, bool exact, unsigned rotate,
                                       unsigned& width, unsigned& height) const {
  if (name.empty()) {
    return;
  }
  unsigned boxWidth = 0;
  unsigned boxHeight = 0;
  MapVideoSize(name, boxWidth, boxHeight);
  if (exact) {
    width = IsTurned(rotate) ? boxHeight : boxWidth;
    height = IsTurned(rotate) ? boxWidth : boxHeight;
    return;
  }
  const unsigned sourceWidth = m_metaData.GetVideoResolutionX();
  const unsigned sourceHeight = m_metaData.GetVideoResolutionY();
  if (boxWidth == 0 || boxHeight == 0 || sourceWidth == 0 || sourceHeight == 0) {
    return;
  }
  const auto aspectNum = static_cast<unsigned>(m_metaData.GetVideoSampleAspectRatioNum());
  const auto aspectDen = static_cast<unsigned>(m_metaData.GetVideoSampleAspectRatioDen());
  float ratio = aspectNum == 0 || aspectDen == 0 ? m_metaData.GetVideoRatio()
                                                 : static_cast<float>(sourceWidth * aspectNum) /
                                                       static_cast<float>(sourceHeight * aspectDen);
  if (IsTurned(rotate)) {
    ratio = 1 / ratio;
  }
  const float fullWidth = static_cast<float>(boxHeight) * ratio;
  if (fullWidth > static_cast<float>(boxWidth)) {
    width = boxWidth;
    height = EvenBelow(static_cast<float>(boxWidth) / ratio);
  } else {
    width = EvenBelow(fullWidth);
    height = boxHeight;
  }
}

unsigned ArgumentHelper::GetTransVideoBitrate(unsigned requested) const {
  const double codecFactor = m_metaData.GetVideoCodecName() == "hevc" ? 2.0 : 1.0;
  double overhead = 1.0;
  if (PlatformUtils::GetInst().IsSupportVaapi()) {
    const bool is4k = Is4kVideo(m_metaData.GetVideoResolutionX(), m_metaData.GetVideoResolutionY());
    overhead = is4k ? 2.0 : 1.5;
    requested = is4k ? requested * 2 : requested;
  }
  const unsigned base = std::max(requested, kMinVideoBitrate);
  const unsigned source = m_metaData.GetBitrate();
  if (source == 0 || requested / codecFactor / overhead <= source) {
    return base;
  }
  return std::max(static_cast<unsigned>(codecFactor * source * overhead), kMinVideoBitrate);
}

std::vector<std::string> ArgumentHelper::GetGstreamAudioMap(const std::string& id) const {
  unsigned index = 0;
  if (GetAudioTrackInfoByID(id, index).isNull()) {
    return {};
  }
  return {"--aidx", std::to_string(index)};
}

std::vector<std::string> ArgumentHelper::GetVideoAudioMap(const std::string& id) const {
  Json::Value videos;
  Json::Value audios;
  if (!m_metaData.GetTrackInfo(videos, audios) || !videos.isArray() || videos.empty()) {
    return {};
  }
  const std::string video = TextMember(videos[0], "track");
  const std::string audio = TextMember(GetAudioTrackInfoByID(id), "track");
  if (video.empty() || audio.empty()) {
    return {};
  }
  return {"-map", "0:" + video, "-map", "0:" + audio};
}

}  // namespace LibOrvoQMX
