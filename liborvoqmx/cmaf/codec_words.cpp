#include "cmaf/codec_words.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "util/qmxutils.h"

namespace LibOrvoQMX {
namespace {

struct Word {
  const char* name;
  const char* word;
};

constexpr std::array kAvcProfiles = {
    Word{"Constrained Baseline", "42e0"},
    Word{"Baseline", "4200"},
    Word{"Main", "4d00"},
    Word{"High", "6400"},
};
constexpr std::array kHevcProfiles = {
    Word{"Main", "1.6"},
    Word{"Main 10", "2.4"},
    Word{"Main Still Picture", "3.E"},
};
constexpr std::array kSoundCodecs = {
    Word{"aac", "mp4a.40.2"}, Word{"ac3", "ac-3"},  Word{"eac3", "ec-3"},
    Word{"opus", "opus"},     Word{"flac", "flac"}, Word{"mp3", "mp4a.6B"},
};

template <size_t kCount>
std::string Find(const std::array<Word, kCount>& words, const std::string& name) {
  for (const Word& row : words) {
    if (name == row.name) {
      return row.word;
    }
  }
  return "";
}

template <typename... Values>
std::string Formatted(const char* format, Values... values) {
  std::array<char, 40> text;
  snprintf(text.data(), text.size(), format, values...);
  return text.data();
}

std::string AvcCodec(const VideoMetaData& film) {
  const std::string profile = Find(kAvcProfiles, film.GetVideoProfile());
  const unsigned level = film.GetVideoLevel();
  const bool isKnown =
      !profile.empty() && level > 0 && film.GetVideoPixFmt().find("420p") != std::string::npos;
  return isKnown ? "avc1." + profile + Formatted("%02x", level) : "";
}

std::string HevcCodec(const VideoMetaData& film) {
  const std::string profile = Find(kHevcProfiles, film.GetVideoProfile());
  const unsigned level = film.GetVideoLevel();
  return profile.empty() || level == 0 ? "" : Formatted("hvc1.%s.L%u.90", profile.c_str(), level);
}

unsigned BitsOf(const VideoMetaData& film) {
  constexpr unsigned kDeep = 10;
  constexpr unsigned kUsual = 8;
  return film.GetVideoPixFmt().find("10") != std::string::npos ? kDeep : kUsual;
}

bool IsPlain420(const VideoMetaData& film) {
  return film.GetVideoPixFmt().rfind("yuv420p", 0) == 0;
}

std::string Av1Codec(const VideoMetaData& film) {
  return IsPlain420(film) ? Formatted("av01.0.%02uM.%02u", film.GetVideoLevel(), BitsOf(film)) : "";
}

// VP9 rarely states its level, so the picture's size tells it.
std::string Vp9Codec(const VideoMetaData& film) {
  struct Size {
    unsigned lines;
    unsigned level;
  };
  constexpr std::array kSizes = {Size{480, 30}, Size{720, 31}, Size{1088, 41}, Size{2176, 51}};
  constexpr unsigned kHighest = 62;
  unsigned level = kHighest;
  for (auto row = kSizes.rbegin(); row != kSizes.rend(); ++row) {
    level = film.GetVideoResolutionY() <= row->lines ? row->level : level;
  }
  const unsigned bits = BitsOf(film);
  return IsPlain420(film) ? Formatted("vp09.%02u.%u.%02u", bits > 8 ? 2 : 0, level, bits) : "";
}

// The family of a name: what is before its first dot. Other names of the same codec count as one.
std::string FamilyOf(const std::string& codec) {
  const std::string family = codec.substr(0, codec.find('.'));
  constexpr std::array kSame = {
      Word{"avc3", "avc1"}, Word{"hev1", "hvc1"}, Word{"Opus", "opus"},
      Word{"fLaC", "flac"}, Word{"vp9", "vp09"},  Word{"av1", "av01"},
  };
  const std::string same = Find(kSame, family);
  if (codec == "mp4a.6B" || codec == "mp4a.69" || codec == "mp4a.40.34" || codec == "mp3") {
    return "mp3";
  }
  return same.empty() ? family : same;
}

// Profile and level of a full name.
struct Bound {
  long profile = 0;
  long level = 0;
};

Bound AvcBound(const std::string& codec) {
  constexpr size_t kDigits = 11;
  if (codec.size() != kDigits) {
    return {};
  }
  return {std::strtol(codec.substr(5, 2).c_str(), nullptr, 16),
          std::strtol(codec.substr(9, 2).c_str(), nullptr, 16)};
}

Bound HevcBound(const std::string& codec) {
  const std::vector<std::string> parts = StringExplode(codec, ".");
  if (parts.size() < 4 || parts[3].size() < 2) {
    return {};
  }
  return {std::strtol(parts[1].c_str(), nullptr, 10),
          std::strtol(parts[3].c_str() + 1, nullptr, 10)};
}

bool IsWithin(const Bound& bound, const Bound& film) {
  return bound.level == 0 || (film.profile <= bound.profile && film.level <= bound.level);
}

bool Covers(const std::string& client, const std::string& codec) {
  const std::string family = FamilyOf(codec);
  if (FamilyOf(client) != family) {
    return false;
  }
  if (client.find('.') == std::string::npos) {
    return true;
  }
  return family == "avc1"   ? IsWithin(AvcBound(client), AvcBound(codec))
         : family == "hvc1" ? IsWithin(HevcBound(client), HevcBound(codec))
                            : true;
}

}  // namespace

std::string PictureCodec(const VideoMetaData& film) {
  const std::string name = film.GetVideoCodecName();
  const std::string raw = film.GetFirstVideoMemberString("codec_raw");
  return name == "h264"                  ? AvcCodec(film)
         : name == "hevc"                ? HevcCodec(film)
         : name == "vp9" || raw == "vp9" ? Vp9Codec(film)
         : name == "av1" || raw == "av1" ? Av1Codec(film)
                                         : "";
}

std::string SoundCodec(const Json::Value& track) {
  const auto text = [&](const char* key) {
    return track[key].isString() ? track[key].asString() : "";
  };
  const std::string name = text("codec").empty() ? text("codec_raw") : text("codec");
  // The clock of HE-AAC depends on who looks at it.
  const bool isPlain = name != "aac" || text("profile") == "LC";
  return isPlain ? Find(kSoundCodecs, name) : "";
}

bool PlaysCodec(const std::string& codecs, const std::string& codec) {
  for (const std::string& client : StringExplode(codecs, ", ")) {
    if (!codec.empty() && Covers(client, codec)) {
      return true;
    }
  }
  return false;
}

}  // namespace LibOrvoQMX
