#include "webapi/choice/client_support.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

namespace webapi {
namespace {

using LibOrvoQMX::VideoMetaData;

enum class Family { kUnknown, kPlayer, kChromium, kFirefox, kSafari };

struct FamilyName {
  Family family;
  const char* name;  // in a sentence
};
constexpr std::array kFamilyNames = {
    FamilyName{Family::kUnknown, "an unknown player"},
    FamilyName{Family::kPlayer, "this player"},
    FamilyName{Family::kChromium, "this browser"},
    FamilyName{Family::kFirefox, "Firefox"},
    FamilyName{Family::kSafari, "Safari"},
};

// What a client's name has in it. Browsers name each other, so the first row that fits decides.
struct ClientRow {
  std::string_view token;  // in small letters
  Family family;
};
constexpr std::array kClients = {
    ClientRow{"vlc", Family::kPlayer},
    ClientRow{"mpv", Family::kPlayer},
    ClientRow{"lavf", Family::kPlayer},
    ClientRow{"ffmpeg", Family::kPlayer},
    ClientRow{"kodi", Family::kPlayer},
    // Every browser of such a device has the system's own engine.
    ClientRow{"iphone", Family::kSafari},
    ClientRow{"ipad", Family::kSafari},
    ClientRow{"applecoremedia", Family::kSafari},
    ClientRow{"appletv", Family::kSafari},
    ClientRow{"firefox", Family::kFirefox},
    ClientRow{"crkey", Family::kChromium},
    ClientRow{"chromecast", Family::kChromium},
    ClientRow{"chrome", Family::kChromium},
    ClientRow{"chromium", Family::kChromium},
    ClientRow{"safari", Family::kSafari},
};

// What a family plays: lists of words, each between blanks.
struct Support {
  Family family;
  std::string_view container;
  std::string_view videos;
  std::string_view audios;
};
constexpr std::array kSupport = {
    Support{Family::kChromium, "mp4", " h264 vp9 av1 ", " aac mp3 flac opus "},
    Support{Family::kChromium, "webm", " vp8 vp9 av1 ", " opus vorbis "},
    Support{Family::kChromium, "matroska", " h264 vp8 vp9 ", " aac mp3 flac opus vorbis "},
    Support{Family::kFirefox, "mp4", " h264 ", " aac mp3 flac opus "},
    Support{Family::kFirefox, "webm", " vp8 vp9 ", " opus vorbis "},
    Support{Family::kSafari, "mp4", " h264 ", " aac mp3 "},
    Support{Family::kUnknown, "mp4", " h264 ", " aac mp3 "},
};

struct MediaType {
  std::string_view container;
  const char* type;
};
constexpr std::array kMediaTypes = {
    MediaType{"mp4", "video/mp4"},
    MediaType{"webm", "video/webm"},
    MediaType{"matroska", "video/x-matroska"},
    MediaType{"mpegts", "video/mp2t"},
    MediaType{"mpeg", "video/mpeg"},
    MediaType{"avi", "video/x-msvideo"},
    MediaType{"flv", "video/x-flv"},
    MediaType{"asf", "video/x-ms-asf"},
    MediaType{"ogg", "video/ogg"},
};

std::string Lowered(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

bool Lists(std::string_view words, const std::string& word) {
  return words.find(" " + word + " ") != std::string_view::npos;
}

Family FamilyOf(const std::string& text) {
  const std::string name = Lowered(text);
  const auto found = std::find_if(kClients.begin(), kClients.end(), [&](const ClientRow& row) {
    return name.find(row.token) != std::string::npos;
  });
  return found == kClients.end() ? Family::kUnknown : found->family;
}

Family ClientOf(const std::string& userAgent, const std::string& device) {
  const Family named = FamilyOf(device);
  return named != Family::kUnknown ? named : FamilyOf(userAgent);
}

std::string NameOf(Family family) {
  return std::find_if(kFamilyNames.begin(), kFamilyNames.end(),
                      [&](const FamilyName& row) { return row.family == family; })
      ->name;
}

bool EndsWith(const std::string& text, std::string_view ending) {
  return text.size() >= ending.size() &&
         text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

// One word for the container. A demuxer may read several, which it names all.
std::string ContainerOf(const VideoMetaData& film) {
  const std::string demuxer = film.GetContainer();
  if (demuxer.find("mp4") != std::string::npos) {
    return "mp4";
  }
  if (demuxer.find("webm") != std::string::npos) {
    return EndsWith(Lowered(film.GetFilePath()), ".webm") ? "webm" : "matroska";
  }
  return demuxer;
}

std::string MediaTypeOf(const std::string& container) {
  const auto found = std::find_if(kMediaTypes.begin(), kMediaTypes.end(),
                                  [&](const MediaType& row) { return container == row.container; });
  return found == kMediaTypes.end() ? "application/octet-stream" : found->type;
}

// The sound that a player starts with: the default track, else the first. Null without any.
Json::Value FirstHeard(const VideoMetaData& film) {
  Json::Value videos;
  Json::Value audios;
  if (!film.GetTrackInfo(videos, audios) || audios.empty()) {
    return Json::Value::nullSingleton();
  }
  for (const Json::Value& track : audios) {
    if (track["is_default"] == true) {
      return track;
    }
  }
  return audios[0];
}

const Support* FindSupport(Family family, const std::string& container) {
  const auto found = std::find_if(kSupport.begin(), kSupport.end(), [&](const Support& row) {
    return row.family == family && container == row.container;
  });
  return found == kSupport.end() ? nullptr : found;
}

// "" when the client plays it, else why it does not.
std::string Objection(const VideoMetaData& film, Family family, const std::string& container) {
  const std::string client = NameOf(family);
  const Support* const support = FindSupport(family, container);
  if (support == nullptr) {
    return "The container " + container + " is not played by " + client + ".";
  }
  const std::string video = film.GetFirstVideoMemberString("codec_raw");
  if (!Lists(support->videos, video)) {
    return "The video codec " + video + " in the container " + container + " is not played by " +
           client + ".";
  }
  const std::string pixels = film.GetVideoPixFmt();
  if (!Lists(" yuv420p yuvj420p ", pixels)) {
    return "The pixel format " + pixels + " is not played by " + client + ".";
  }
  const Json::Value audio = FirstHeard(film);
  if (audio.isObject() && !Lists(support->audios, audio["codec_raw"].asString())) {
    return "The audio codec " + audio["codec_raw"].asString() + " in the container " + container +
           " is not played by " + client + ".";
  }
  return "";
}

}  // namespace

DirectVerdict JudgeDirect(const VideoMetaData& film, const std::string& userAgent,
                          const std::string& device) {
  const Family family = ClientOf(userAgent, device);
  const std::string container = ContainerOf(film);
  DirectVerdict verdict;
  verdict.contentType = MediaTypeOf(container);
  if (film.GetVideoResolutionX() == 0) {
    verdict.why = "This file holds no video.";
    return verdict;
  }
  if (family != Family::kPlayer) {
    verdict.why = Objection(film, family, container);
  }
  verdict.fits = verdict.why.empty();
  if (verdict.fits) {
    verdict.why = "The file is played as it is by " + NameOf(family) + ".";
  }
  return verdict;
}

}  // namespace webapi
