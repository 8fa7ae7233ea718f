#include "webapi/library/art.h"

#include <unistd.h>

#include <array>
#include <filesystem>
#include <initializer_list>
#include <string_view>
#include <vector>

#include "catalog/catalog.h"
#include "util/media_names.h"
#include "webapi/library/media_library.h"

namespace webapi {
namespace {

using catalog::CatalogReader;
using Names = std::vector<std::string_view>;

constexpr std::array kEndings = {".jpg", ".jpeg", ".png", ".webp"};
constexpr int64_t kLargestPicture = 32 << 20;

const Names& NamesOfFilm(Art art) {
  static const Names kPosters = {"-poster", "-thumb", "-cover", ""};
  static const Names kBackdrops = {"-fanart", "-backdrop"};
  return art == Art::kPoster ? kPosters : kBackdrops;
}

const Names& NamesOfFolder(Art art) {
  static const Names kPosters = {"/poster", "/folder", "/cover"};
  static const Names kBackdrops = {"/fanart", "/backdrop"};
  return art == Art::kPoster ? kPosters : kBackdrops;
}

orvo::MediaFile OpenOne(const std::string& stem, const Names& names) {
  for (const std::string_view name : names) {
    for (const char* ending : kEndings) {
      orvo::MediaFile file = OpenVisible(stem + std::string(name) + ending);
      if (file.IsOpen() && file.Status().st_size <= kLargestPicture) {
        return file;
      }
    }
  }
  return {};
}

bool IsAlone(const std::string& folder) {
  int films = 0;
  CatalogReader().ForEach(
      folder, [](bool isFolder, std::string_view) { return !isFolder; },
      [&](const catalog::Entry&) { ++films; });
  return films == 1;
}

// The first entries of a folder, folders first.
std::vector<catalog::Entry> EntriesOf(CatalogReader& reader, const std::string& folder) {
  constexpr int64_t kMany = 200;
  auto page = reader.Read(folder, 0, kMany);
  return page ? std::move(page->entries) : std::vector<catalog::Entry>();
}

std::string FirstFilm(const std::string& folder, const std::vector<catalog::Entry>& entries) {
  for (const catalog::Entry& entry : entries) {
    if (!entry.isFolder) {
      return catalog::PathIn(folder, entry.name);
    }
  }
  return "";
}

}  // namespace

orvo::MediaFile ArtBeside(const std::string& path, bool isFolder, Art art) {
  if (isFolder) {
    return OpenOne(path, NamesOfFolder(art));
  }
  const std::filesystem::path film(path);
  orvo::MediaFile own = OpenOne((film.parent_path() / film.stem()).string(), NamesOfFilm(art));
  if (own.IsOpen()) {
    return own;
  }
  orvo::MediaFile shared = OpenOne(film.parent_path().string(), NamesOfFolder(art));
  const bool counts = shared.IsOpen() && (orvo::IsMusicName(film.filename().string()) ||
                                          IsAlone(film.parent_path().string()));
  return counts ? std::move(shared) : orvo::MediaFile();
}

std::string PictureDemuxer(const orvo::MediaFile& picture) {
  std::array<char, 12> start{};
  const ssize_t size = pread(picture.Get(), start.data(), start.size(), 0);
  const std::string_view bytes(start.data(), size > 0 ? static_cast<size_t>(size) : 0);
  if (bytes.starts_with("\xff\xd8\xff")) {
    return "jpeg_pipe";
  }
  if (bytes.starts_with("\x89PNG")) {
    return "png_pipe";
  }
  return bytes.starts_with("RIFF") && bytes.size() == start.size() && bytes.substr(8) == "WEBP"
             ? "webp_pipe"
             : "";
}

std::string FilmForFolder(const std::string& folder) {
  CatalogReader reader;
  const auto entries = EntriesOf(reader, folder);
  std::string film = FirstFilm(folder, entries);
  for (const catalog::Entry& entry : entries) {
    if (film.empty() && entry.isFolder) {
      const std::string below = catalog::PathIn(folder, entry.name);
      film = FirstFilm(below, EntriesOf(reader, below));
    }
  }
  // A linked folder or film may lead out of the media roots.
  film = film.empty() ? "" : RealPath(film);
  return MaySee(film) ? film : "";
}

}  // namespace webapi
