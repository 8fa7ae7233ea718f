#include "util/media_names.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "util/lower_case.h"

namespace orvo {
namespace {

constexpr std::array<std::string_view, 36> kFilmEndings = {
    "3g2",  "3gp", "amv", "asf", "avi",  "divx", "dv",  "f4v",  "flv", "ifo",  "m1v", "m2t",
    "m2ts", "m2v", "m4v", "mkv", "mov",  "mp4",  "mpe", "mpeg", "mpg", "mts",  "mxf", "nut",
    "ogm",  "ogv", "qt",  "rm",  "rmvb", "tp",   "trp", "ts",   "vob", "webm", "wmv", "wtv"};

constexpr std::array<std::string_view, 15> kMusicEndings = {"aac",  "aif", "aiff", "alac", "ape",
                                                            "flac", "m4a", "m4b",  "mka",  "mp3",
                                                            "oga",  "ogg", "opus", "wav",  "wma"};

// In lower case, because some of these file systems ignore the case of names.
constexpr std::array<std::string_view, 4> kSystemFolders = {
    "#recycle", "$recycle.bin", "lost+found", "system volume information"};

template <typename Names>
bool Contains(const Names& names, const std::string& name) {
  return std::find(names.begin(), names.end(), LowerCase(name)) != names.end();
}

// FNV-1a over the names.
template <typename Names>
constexpr uint32_t Digest(const Names& names, uint32_t digest) {
  for (const std::string_view name : names) {
    for (const char c : name) {
      digest = (digest ^ static_cast<unsigned char>(c)) * 16777619U;
    }
    digest = (digest ^ '\n') * 16777619U;
  }
  return digest;
}
constexpr uint32_t kVersion =
    Digest(kSystemFolders, Digest(kMusicEndings, Digest(kFilmEndings, 2166136261U)));

// A hidden file has no ending.
template <typename Endings>
bool HasEnding(const std::string& name, const Endings& endings) {
  const auto dot = name.rfind('.');
  return dot != std::string::npos && name.front() != '.' && Contains(endings, name.substr(dot + 1));
}

}  // namespace

bool IsFilmName(const std::string& name) {
  return HasEnding(name, kFilmEndings);
}

bool IsMusicName(const std::string& name) {
  return HasEnding(name, kMusicEndings);
}

bool IsPlayableName(const std::string& name) {
  return IsFilmName(name) || IsMusicName(name);
}

bool IsSystemFolderName(const std::string& name) {
  return name.empty() || name.front() == '.' || name.front() == '@' ||
         Contains(kSystemFolders, name);
}

uint32_t VersionOfNames() {
  return kVersion;
}

}  // namespace orvo
