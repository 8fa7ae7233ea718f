#include "util/film_previews.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <string_view>

#include "platform/io.h"
#include "platform/plat.h"
#include "platform/unique_fd.h"
#include "util/film_cache.h"
#include "util/kept_files.h"
#include "util/system_files.h"

namespace orvo {
namespace {

constexpr int64_t kMostPreviewBytes = int64_t{1} << 30;
constexpr int64_t kRoomForOne = 4 << 20;
constexpr time_t kLongUnused = 90 * 86400;
// Each use changes the file's time and so its tag, which costs the client its copy.
constexpr time_t kNoteEvery = 7 * 86400;

// The first bytes of a JPEG with a comment.
constexpr std::string_view kStart("\xff\xd8", 2);
constexpr std::string_view kComment("\xff\xd8\xff\xfe\0", 5);
constexpr char kLayout[] = "previews %dx%d columns %d count %d seconds %lf";
constexpr int kFields = 5;
constexpr int kMost = 1000;

std::string Folder() {
  return SystemPath(LibOrvoQMX::kCacheFolder) + "/previews";
}

std::string TextOf(const PreviewLayout& layout) {
  std::array<char, 128> text;
  snprintf(text.data(), text.size(), "previews %dx%d columns %d count %d seconds %.6f",
           layout.width, layout.height, layout.columns, layout.count, layout.seconds);
  return text.data();
}

bool IsPossible(const PreviewLayout& layout) {
  const auto isSmall = [](int number) { return number > 0 && number <= kMost; };
  return isSmall(layout.width) && isSmall(layout.height) && isSmall(layout.columns) &&
         isSmall(layout.count) && layout.seconds > 0;
}

// The layout in the first bytes of a file.
std::optional<PreviewLayout> LayoutIn(const std::string& bytes) {
  PreviewLayout layout;
  const bool isRead =
      std::string_view(bytes).starts_with(kComment) && bytes.size() > kComment.size() &&
      sscanf(bytes.c_str() + kComment.size() + 1, kLayout, &layout.width, &layout.height,
             &layout.columns, &layout.count, &layout.seconds) == kFields;
  return isRead && IsPossible(layout) ? std::optional(layout) : std::nullopt;
}

}  // namespace

std::string PreviewsPath(const MediaFile& film) {
  const std::filesystem::path path = CachePath(film, "previews 2", ".jpg");
  return Folder() + "/" + path.filename().string();
}

bool HavePreviews(const MediaFile& film) {
  return access(PreviewsPath(film).c_str(), F_OK) == 0;
}

bool IsRoomForPreviews() {
  return BytesNewerThan(Folder(), time(nullptr) - kLongUnused) + kRoomForOne <= kMostPreviewBytes;
}

bool KeepPreviews(const MediaFile& film, const std::string& jpeg, const PreviewLayout& layout) {
  std::string content;
  if (jpeg.starts_with(kStart) && IsPossible(layout)) {
    const std::string text = TextOf(layout);
    // The length contains its own two bytes.
    content = std::string(kComment) + static_cast<char>(text.size() + 2) + text +
              jpeg.substr(kStart.size());
  }
  return KeepInCache(PreviewsPath(film), content, kMostPreviewBytes);
}

std::optional<PreviewLayout> UsePreviews(const MediaFile& film) {
  const std::string path = PreviewsPath(film);
  const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  struct stat status {};
  std::string start(128, '\0');
  const ssize_t size =
      file.IsOpen() && fstat(file.Get(), &status) == 0 ? read(file.Get(), start.data(), 127) : 0;
  if (size <= 0) {
    return std::nullopt;
  }
  if (time(nullptr) - status.st_mtim.tv_sec > kNoteEvery) {
    TouchFile(path);
  }
  return LayoutIn(start);
}

}  // namespace orvo
