#include "cmaf/renditions.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>

#include "cmaf/codec_words.h"
#include "cmaf/film_texts.h"
#include "contract/cmaf.h"
#include "util/number.h"

namespace LibOrvoQMX {
namespace {

constexpr char kUsualCodecs[] = "avc1,mp4a";
constexpr char kAac[] = "mp4a.40.2";
constexpr unsigned kAacRate = 160'000;

// The ladder. What is larger than the first row is not encoded: small machines cannot do it in
// time.
struct Rung {
  unsigned height;
  unsigned rate;       // bit/s
  const char* codec;   // up to 30 pictures a second
  const char* faster;  // up to 60
};
constexpr std::array kLadder = {
    Rung{720, 3'000'000, "avc1.64001f", "avc1.640020"},
    Rung{480, 1'400'000, "avc1.64001e", "avc1.64001f"},
    Rung{360, 800'000, "avc1.64001e", "avc1.64001f"},
    Rung{240, 400'000, "avc1.64001e", "avc1.64001f"},
};
constexpr size_t kMostRungs = 3;
constexpr float kFastRate = 30.5F;
constexpr unsigned kHalfTurn = 180;  // degrees

std::string CodecsOf(const CmafWishes& wishes) {
  return wishes.codecs.empty() ? kUsualCodecs : wishes.codecs;
}

bool HasPicture(const VideoMetaData& film, const CmafWishes& wishes) {
  return wishes.copying != orvo::kCmafNoPicture && film.GetVideoResolutionX() > 0 &&
         film.GetVideoResolutionY() > 0;
}

bool IsWithin(const CmafWishes& wishes, unsigned height, unsigned rate) {
  constexpr unsigned kKilo = 1000;
  return (wishes.maxHeight == 0 || height <= wishes.maxHeight) &&
         (wishes.maxBitrate == 0 || rate / kKilo <= wishes.maxBitrate);
}

int TrackOf(const Json::Value& track) {
  const Json::Value& number = track["track"];
  return static_cast<int>(number.isString() ? ParseNumber(number.asString()).value_or(0) : 0);
}

// --- Pictures ---

CmafRendition CopiedPictures(const VideoMetaData& film) {
  CmafRendition copy;
  copy.name = "copy-video";
  copy.treatment = "pictures";
  copy.track = TrackOf(film.GetVideo(0));
  copy.codec = PictureCodec(film);
  copy.bandwidth = std::max(film.GetBitrate(), 1U);
  copy.isPicture = true;
  const bool isUpright = film.GetVideoRotate() % kHalfTurn == 0;
  copy.width = isUpright ? film.GetVideoResolutionX() : film.GetVideoResolutionY();
  copy.height = isUpright ? film.GetVideoResolutionY() : film.GetVideoResolutionX();
  return copy;
}

CmafRendition EncodedPictures(const VideoMetaData& film, const Rung& rung, unsigned height) {
  const unsigned shownWidth = film.GetVideoDisplayX();
  const unsigned shownHeight = film.GetVideoDisplayY();
  const bool isKnown = shownWidth > 0 && shownHeight > 0;
  const double shape =
      isKnown ? static_cast<double>(shownWidth) / shownHeight
              : static_cast<double>(film.GetVideoResolutionX()) / film.GetVideoResolutionY();
  CmafRendition rendition;
  rendition.name = "h264-" + std::to_string(height);
  rendition.treatment = "h264";
  rendition.track = TrackOf(film.GetVideo(0));
  rendition.codec = film.GetVideoFramerate() > kFastRate ? rung.faster : rung.codec;
  rendition.bandwidth = rung.rate;
  rendition.isPicture = true;
  rendition.height = height;
  rendition.width = std::max(2U, static_cast<unsigned>(std::lround(height * shape / 2)) * 2);
  return rendition;
}

unsigned ShownHeight(const VideoMetaData& film) {
  const unsigned height = film.GetVideoDisplayY();
  return height > 0 ? height : film.GetVideoResolutionY();
}

void AddLadder(const VideoMetaData& film, const CmafWishes& wishes,
               std::vector<CmafRendition>& renditions) {
  if (!PlaysCodec(CodecsOf(wishes), "avc1")) {
    return;
  }
  const unsigned own = std::max(2U, ShownHeight(film) / 2 * 2);
  size_t count = 0;
  unsigned last = 0;  // the height of the rung above
  for (const Rung& rung : kLadder) {
    // The largest picture of a small film is its own.
    const unsigned height = last == 0 ? std::min(own, rung.height) : rung.height;
    const bool isUseful = last == 0 ? own > rung.height / 2 : height < last;
    if (count < kMostRungs && isUseful && IsWithin(wishes, height, rung.rate) &&
        (wishes.maxEncoded == 0 || height <= wishes.maxEncoded)) {
      renditions.push_back(EncodedPictures(film, rung, height));
      last = height;
      ++count;
    }
  }
  if (count == 0) {
    renditions.push_back(
        EncodedPictures(film, kLadder.back(), std::min(own, kLadder.back().height)));
  }
}

// --- Sound ---

std::string Layout(unsigned channels) {
  constexpr std::array kNames = {"", "mono", "stereo", "2.1", "4.0", "5.0", "5.1", "6.1", "7.1"};
  return channels < kNames.size() ? kNames[channels] : std::to_string(channels) + " channels";
}

bool IsLanguage(const std::string& text) {
  const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
  return text.size() >= 2 && text.size() <= 3 && std::all_of(text.begin(), text.end(), isLetter);
}

class SoundList {
 public:
  SoundList(const CmafWishes& wishes, std::vector<CmafRendition>& renditions)
      : wishes_(wishes), renditions_(renditions) {}

  void Add(const Json::Value& track, int position, bool isDefault, bool mayCopy) {
    CmafRendition sound;
    sound.track = TrackOf(track);
    sound.language = IsLanguage(TextOf(track, "language")) ? TextOf(track, "language") : "";
    sound.channels = track["channel"].isInt() ? track["channel"].asUInt() : 0;
    const std::string title = PlainText(TextOf(track, "title"));
    const std::string name = !title.empty()           ? title
                             : sound.language.empty() ? "Track " + std::to_string(position + 1)
                                                      : sound.language;
    const std::string number = std::to_string(position);
    const std::string codec = mayCopy ? SoundCodec(track) : "";
    const bool copies = PlaysCodec(CodecsOf(wishes_), codec);
    if (copies) {
      sound.codec = codec;
      sound.bandwidth = track["bitrate"].isUInt() ? track["bitrate"].asUInt() : 0;
      Push(sound, "copy-audio-" + number, "sound", name + ", " + Layout(sound.channels), isDefault);
    }
    sound.codec = kAac;
    sound.bandwidth = kAacRate;
    sound.channels = 2;
    Push(sound, "stereo-" + number, "stereo", name + ", stereo (AAC)", isDefault && !copies);
    Push(sound, "night-" + number, "night", name + ", night", false);
  }

 private:
  void Push(CmafRendition sound, const std::string& name, const char* treatment,
            const std::string& label, bool isDefault) {
    const int count = ++labels_[label];
    sound.name = name;
    sound.treatment = treatment;
    sound.label = count == 1 ? label : label + " " + std::to_string(count);
    sound.isDefault = isDefault;
    renditions_.push_back(std::move(sound));
  }

  const CmafWishes& wishes_;
  std::vector<CmafRendition>& renditions_;
  std::map<std::string, int> labels_;
};

// Sound is copied from containers that state its times and its configuration.
bool MayCopySound(const VideoMetaData& film) {
  const std::string container = film.GetContainer();
  constexpr std::array kContainers = {"matroska", "mp4", "mpegts", "flv"};
  return std::any_of(kContainers.begin(), kContainers.end(),
                     [&](const char* name) { return container.find(name) != std::string::npos; });
}

size_t DefaultTrack(const Json::Value& tracks, const std::string& audioId) {
  for (Json::ArrayIndex i = 0; i < tracks.size(); ++i) {
    if (!audioId.empty() && TextOf(tracks[i], "id") == audioId) {
      return i;
    }
  }
  for (Json::ArrayIndex i = 0; audioId.empty() && i < tracks.size(); ++i) {
    if (tracks[i]["is_default"] == true) {
      return i;
    }
  }
  return 0;
}

void AddSound(const VideoMetaData& film, const CmafWishes& wishes,
              std::vector<CmafRendition>& renditions) {
  Json::Value videos;
  Json::Value audios(Json::arrayValue);
  film.GetTrackInfo(videos, audios);
  const size_t chosen = DefaultTrack(audios, wishes.audioId);
  SoundList list(wishes, renditions);
  for (Json::ArrayIndex i = 0; i < audios.size(); ++i) {
    list.Add(audios[i], static_cast<int>(i), i == chosen, MayCopySound(film));
  }
}

}  // namespace

std::string WhyNotCopied(const VideoMetaData& film, const CmafWishes& wishes) {
  const std::string codec = PictureCodec(film);
  if (codec.empty() || !PlaysCodec(CodecsOf(wishes), codec)) {
    return "The client does not play this film's video without conversion.";
  }
  if (wishes.copying == orvo::kCmafOpenGroups) {
    return "A player cannot start at the key frames of this film: they need pictures before them.";
  }
  if (wishes.copying == orvo::kCmafChanging) {
    return "The pictures of this film change their size or coding.";
  }
  if (wishes.copying != orvo::kCmafCopied) {
    return "The file has no usable index of its key frames, and the background analysis had not "
           "found them when the film was opened.";
  }
  if (wishes.dynamicRange != orvo::kCmafStandardRange && !wishes.showsHdr) {
    return "The client does not show this film's high dynamic range.";
  }
  if (!IsWithin(wishes, ShownHeight(film), film.GetBitrate())) {
    return "The film's own picture is larger than the client wants.";
  }
  return "";
}

std::vector<CmafRendition> ListCmafRenditions(const VideoMetaData& film, const CmafWishes& wishes) {
  std::vector<CmafRendition> renditions;
  if (HasPicture(film, wishes)) {
    if (WhyNotCopied(film, wishes).empty()) {
      renditions.push_back(CopiedPictures(film));
    }
    AddLadder(film, wishes, renditions);
  }
  AddSound(film, wishes, renditions);
  return renditions;
}

std::vector<std::string> CmafArguments(const CmafRendition& rendition) {
  std::vector<std::string> arguments = {rendition.treatment, "-track",
                                        std::to_string(rendition.track)};
  if (rendition.IsEncodedPicture()) {
    const std::string size =
        std::to_string(rendition.width) + "x" + std::to_string(rendition.height);
    for (const std::string& more :
         {std::string("-s"), size, std::string("-vb"), std::to_string(rendition.bandwidth)}) {
      arguments.push_back(more);
    }
  }
  if (rendition.treatment == "sound" && rendition.codec.rfind("mp4a.40", 0) == 0) {
    arguments.insert(arguments.end(), {"-aac", "1"});
  }
  return arguments;
}

}  // namespace LibOrvoQMX
