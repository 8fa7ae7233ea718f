#include "webapi/library/dvd_subtitles.h"

#include <filesystem>
#include <utility>

#include "metadata/matroska_elements.h"
#include "webapi/http/number.h"
#include "webapi/library/beside.h"
#include "webapi/library/media_library.h"

namespace webapi {
namespace {

constexpr size_t kLargestIndex = 4 << 20;
constexpr size_t kMostTracks = 32;

std::string PathBeside(const std::string& film, const char* ending) {
  return std::filesystem::path(film).replace_extension(ending).string();
}

orvo::MediaFile Open(const std::string& film, const char* ending) {
  const std::string path = RealPath(PathBeside(film, ending));
  return path.empty() ? orvo::MediaFile() : OpenBeside(film, path);
}

// "en" of "id: en, index: 0".
std::string LanguageIn(std::string_view line) {
  const std::string_view name = line.substr(0, line.find(','));
  const bool isName =
      name.size() == 2 && name.find_first_not_of("abcdefghijklmnopqrstuvwxyz") == name.npos;
  return isName ? std::string(name) : "";
}

}  // namespace

std::optional<DvdSubtitles> DvdSubtitlesBeside(const std::string& film) {
  DvdSubtitles found{Open(film, ".idx"), Open(film, ".sub")};
  return found.index.IsOpen() && found.pictures.IsOpen() ? std::optional(std::move(found))
                                                         : std::nullopt;
}

std::vector<std::string> DvdLanguages(const orvo::MediaFile& index) {
  constexpr std::string_view kName = "\nid: ";
  const std::string text = std::string("\n").append(LibOrvoQMX::BytesAt(index, 0, kLargestIndex));
  std::vector<std::string> languages;
  for (size_t place = text.find(kName); place != text.npos && languages.size() < kMostTracks;
       place = text.find(kName, place + 1)) {
    const size_t begin = place + kName.size();
    languages.push_back(
        LanguageIn(std::string_view(text).substr(begin, text.find('\n', begin) - begin)));
  }
  return languages;
}

std::string DvdSubtitleId(const std::string& film, size_t track) {
  return PathBeside(film, ".idx") + "/" + std::to_string(track);
}

std::optional<size_t> DvdTrackOf(const std::string& film, const std::string& id) {
  const std::string prefix = PathBeside(film, ".idx") + "/";
  const auto track = id.starts_with(prefix) ? ParseNumber(id.substr(prefix.size())) : std::nullopt;
  const bool isTrack = track && *track >= 0 && *track < static_cast<int64_t>(kMostTracks);
  return isTrack ? std::optional(static_cast<size_t>(*track)) : std::nullopt;
}

}  // namespace webapi
