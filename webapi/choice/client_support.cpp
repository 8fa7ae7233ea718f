#include "webapi/choice/client_support.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "util/lower_case.h"
#include "webapi/library/film_traits.h"

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
    // Containers of music.
    Support{Family::kChromium, "mp3", "", " mp3 "},
    Support{Family::kChromium, "flac", "", " flac "},
    Support{Family::kChromium, "ogg", "", " opus vorbis flac "},
    Support{Family::kChromium, "wav", "", " pcm_s16le "},
    Support{Family::kChromium, "aac", "", " aac "},
    Support{Family::kFirefox, "mp3", "", " mp3 "},
    Support{Family::kFirefox, "flac", "", " flac "},
    Support{Family::kFirefox, "ogg", "", " opus vorbis flac "},
    Support{Family::kFirefox, "wav", "", " pcm_s16le "},
    Support{Family::kSafari, "mp3", "", " mp3 "},
    Support{Family::kSafari, "flac", "", " flac "},
    Support{Family::kSafari, "wav", "", " pcm_s16le "},
    Support{Family::kUnknown, "mp3", "", " mp3 "},
};

struct MediaType {
  std::string_view container;
  const char* film;
  const char* music;
};
constexpr std::array kMediaTypes = {
    MediaType{"mp4", "video/mp4", "audio/mp4"},
    MediaType{"webm", "video/webm", "audio/webm"},
    MediaType{"matroska", "video/x-matroska", "audio/x-matroska"},
    MediaType{"mpegts", "video/mp2t", "video/mp2t"},
    MediaType{"mpeg", "video/mpeg", "video/mpeg"},
    MediaType{"avi", "video/x-msvideo", "video/x-msvideo"},
    MediaType{"flv", "video/x-flv", "video/x-flv"},
    MediaType{"asf", "video/x-ms-asf", "audio/x-ms-wma"},
    MediaType{"ogg", "video/ogg", "audio/ogg"},
    MediaType{"mp3", "audio/mpeg", "audio/mpeg"},
    MediaType{"flac", "audio/flac", "audio/flac"},
    MediaType{"wav", "audio/wav", "audio/wav"},
    MediaType{"aac", "audio/aac", "audio/aac"},
};

bool Lists(std::string_view words, const std::string& word) {
  return words.find(" " + word + " ") != std::string_view::npos;
}

Family FamilyOf(const std::string& text) {
  const std::string name = orvo::LowerCase(text);
  const auto found = std::find_if(kClients.begin(), kClients.end(), [&](const ClientRow& row) {
    return name.find(row.token) != std::string::npos;
  });
  return found == kClients.end() ? Family::kUnknown : found->family;
}

Family FamilyOf(const Client& client) {
  const Family named = FamilyOf(client.device);
  return named != Family::kUnknown ? named : FamilyOf(client.userAgent);
}

const FamilyWords& WordsOf(Family family) {
  return *std::find_if(kFamilyWords.begin(), kFamilyWords.end(),
                       [&](const FamilyWords& row) { return row.family == family; });
}

// One word for the container. A demuxer that reads several containers names them all.
std::string ContainerOf(const VideoMetaData& film) {
  const std::string demuxer = film.GetContainer();
  if (demuxer.find("mp4") != std::string::npos) {
    return "mp4";
  }
  if (demuxer.find("webm") != std::string::npos) {
    return orvo::LowerCase(film.GetFilePath()).ends_with(".webm") ? "webm" : "matroska";
  }
  return demuxer;
}

std::string MediaTypeOf(const std::string& container, bool isMusic) {
  const auto found = std::find_if(kMediaTypes.begin(), kMediaTypes.end(),
                                  [&](const MediaType& row) { return container == row.container; });
  if (found == kMediaTypes.end()) {
    return "application/octet-stream";
  }
  return isMusic ? found->music : found->film;
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

// What is judged, with the words for it.
struct Case {
  const VideoMetaData& film;
  const Client& client;
  Family family;
  std::string container;

  std::string CannotPlay(const std::string& what) const {
    return WordsOf(family).cannot + std::string(" play the ") + what + ".";
  }
  std::string InContainer(const std::string& what) const {
    return what + " in the container " + container;
  }
};

bool PlaysPixels(const Case& judged, const std::string& video, const std::string& pixels) {
  return Lists(" yuv420p yuvj420p ", pixels) ||
         (pixels == "yuv420p10le" && NamesTenBits(judged.client, video));
}

std::string ObjectionToPicture(const Case& judged, const Support& support) {
  const std::string video = judged.film.GetFirstVideoMemberString("codec_raw");
  if (!Lists(support.videos, video) && !NamesCodec(judged.client, video)) {
    return judged.CannotPlay(judged.InContainer("video codec " + video));
  }
  const std::string pixels = judged.film.GetVideoPixFmt();
  if (!PlaysPixels(judged, video, pixels)) {
    return judged.CannotPlay("pixel format " + pixels);
  }
  const std::string range = HighRangeOf(judged.film);
  if (!range.empty() && !judged.client.showsHighRange) {
    return "The film is in " + range +
           ", and the player did not say that its screen shows a high dynamic range.";
  }
  return "";
}

std::string ObjectionToSound(const Case& judged, const Support& support) {
  const Json::Value audio = FirstHeard(judged.film);
  const std::string codec = audio.isObject() ? audio["codec_raw"].asString() : "";
  return codec.empty() || Lists(support.audios, codec) || NamesCodec(judged.client, codec)
             ? ""
             : judged.CannotPlay(judged.InContainer("audio codec " + codec));
}

// The reason why the client cannot play the film; "" if it can.
std::string Objection(const Case& judged) {
  const Support* const support = FindSupport(judged.family, judged.container);
  if (support == nullptr) {
    return judged.CannotPlay("container " + judged.container);
  }
  const std::string picture = HasPictures(judged.film) ? ObjectionToPicture(judged, *support) : "";
  return picture.empty() ? ObjectionToSound(judged, *support) : picture;
}

}  // namespace

DirectVerdict JudgeDirect(const VideoMetaData& film, const Client& client) {
  const Case judged{film, client, FamilyOf(client), ContainerOf(film)};
  DirectVerdict verdict;
  verdict.contentType = MediaTypeOf(judged.container, IsMusic(film));
  if (!HasPictures(film) && !HasSound(film)) {
    verdict.why = "This file has neither pictures nor sound.";
    return verdict;
  }
  if (judged.family != Family::kPlayer) {
    verdict.why = Objection(judged);
  }
  verdict.fits = verdict.why.empty();
  if (verdict.fits) {
    verdict.why = WordsOf(judged.family).can + std::string(" play this file without conversion.");
  }
  return verdict;
}

}  // namespace webapi
