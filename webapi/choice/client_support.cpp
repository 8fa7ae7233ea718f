#include "webapi/choice/client_support.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

namespace webapi {
namespace {

using LibOrvoQMX::VideoMetaData;

enum class Family { kUnknown, kPlayer, kChromium, kFirefox, kSafari };

// The beginnings of sentences about a family.
struct FamilyWords {
  Family family;
  const char* can;
  const char* cannot;
};
constexpr std::array kFamilyWords = {
    FamilyWords{Family::kUnknown, "Every player can", "Not every player can"},
    FamilyWords{Family::kPlayer, "This player can", "This player cannot"},
    FamilyWords{Family::kChromium, "This browser can", "This browser cannot"},
    FamilyWords{Family::kFirefox, "Firefox can", "Firefox cannot"},
    FamilyWords{Family::kSafari, "Safari can", "Safari cannot"},
};

// Parts of the names of clients. Browsers include each other's names, so the first row that matches
// decides.
struct ClientRow {
  std::string_view token;  // in lower case
  Family family;
};
constexpr std::array kClients = {
    ClientRow{"vlc", Family::kPlayer},
    ClientRow{"mpv", Family::kPlayer},
    ClientRow{"lavf", Family::kPlayer},
    ClientRow{"ffmpeg", Family::kPlayer},
    ClientRow{"kodi", Family::kPlayer},
    // All browsers on such a device use the system's engine.
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

// The formats that a family plays, as lists of words between blanks.
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

const FamilyWords& WordsOf(Family family) {
  return *std::find_if(kFamilyWords.begin(), kFamilyWords.end(),
                       [&](const FamilyWords& row) { return row.family == family; });
}

bool EndsWith(const std::string& text, std::string_view ending) {
  return text.size() >= ending.size() &&
         text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

// One word for the container. A demuxer that reads several containers names them all.
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

// The audio track that a player starts with: the default track, else the first. Null if there is
// none.
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

// The reason why the client cannot play the film; "" if it can.
std::string Objection(const VideoMetaData& film, Family family, const std::string& container) {
  const std::string cannotPlay = WordsOf(family).cannot + std::string(" play the ");
  const Support* const support = FindSupport(family, container);
  if (support == nullptr) {
    return cannotPlay + "container " + container + ".";
  }
  const std::string video = film.GetFirstVideoMemberString("codec_raw");
  if (!Lists(support->videos, video)) {
    return cannotPlay + "video codec " + video + " in the container " + container + ".";
  }
  const std::string pixels = film.GetVideoPixFmt();
  if (!Lists(" yuv420p yuvj420p ", pixels)) {
    return cannotPlay + "pixel format " + pixels + ".";
  }
  const Json::Value audio = FirstHeard(film);
  if (audio.isObject() && !Lists(support->audios, audio["codec_raw"].asString())) {
    return cannotPlay + "audio codec " + audio["codec_raw"].asString() + " in the container " +
           container + ".";
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
    verdict.why = "This file has no video.";
    return verdict;
  }
  if (family != Family::kPlayer) {
    verdict.why = Objection(film, family, container);
  }
  verdict.fits = verdict.why.empty();
  if (verdict.fits) {
    verdict.why = WordsOf(family).can + std::string(" play this file without conversion.");
  }
  return verdict;
}

}  // namespace webapi
