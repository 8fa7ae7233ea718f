#include "film_previews.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string_view>

#include "film_analysis.h"
#include "platform/confined_call.h"
#include "platform/media_file.h"
#include "preview_sheet.h"
#include "util/film_memory.h"
#include "util/film_previews.h"

namespace orvo::analyze {
namespace {

constexpr size_t kLongestSheet = 8 << 20;
constexpr std::string_view kEndOfJpeg("\xff\xd9", 2);
// Another process may analyse the same film for so long.
constexpr int kPatienceMilliseconds = 60000;

// The web API knows films by their real paths.
MediaFile OpenReal(const std::string& film) {
  std::error_code failure;
  const std::string path = std::filesystem::canonical(film, failure).string();
  return failure ? MediaFile() : MediaFile::Open(path);
}

// The layout as it is in memory, and the JPEG.
std::string Make(const MediaFile& film) {
  PreviewLayout layout;
  const std::string jpeg = MakePreviewSheet(film.Address(), layout);
  return std::string(reinterpret_cast<const char*>(&layout), sizeof(layout)) + jpeg;
}

}  // namespace

bool LacksPreviews(const std::string& film) {
  const MediaFile file = OpenReal(film);
  return file.IsOpen() && !HavePreviews(file) && IsRoomForPreviews();
}

void MakePreviews(const std::string& film) {
  const MediaFile file = OpenReal(film);
  const auto memory =
      file.IsOpen() ? FilmMemory::Take(file, Job::kAnalysis, kPatienceMilliseconds) : std::nullopt;
  if (!memory) {
    return;
  }
  const auto bytes = CallConfined(Job::kAnalysis, {.files = {file.Get()}}, kLongestSheet,
                                  [&file] { return Make(file); });
  if (!bytes && errno != ETIMEDOUT && errno != EFBIG) {
    return;  // it never ran
  }
  PreviewLayout layout;
  const std::string whole = bytes.value_or("");
  // One that died has told a part of it.
  const bool isMade = whole.size() > sizeof(layout) && whole.ends_with(kEndOfJpeg);
  if (isMade) {
    std::memcpy(&layout, whole.data(), sizeof(layout));
  }
  const Uninterrupted writing;
  KeepPreviews(file, isMade ? whole.substr(sizeof(layout)) : "", layout);
}

}  // namespace orvo::analyze
