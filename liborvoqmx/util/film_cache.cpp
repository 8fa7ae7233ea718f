#include "util/film_cache.h"

#include <filesystem>

#include "platform/plat.h"
#include "util/kept_files.h"
#include "util/md5.h"
#include "util/system_files.h"

namespace orvo {
namespace {

namespace fs = std::filesystem;

constexpr size_t kChecksumLength = 32;

// Names that the cache gives: a checksum and an ending. Other files have other makers.
bool IsCached(const fs::path& file) {
  const std::string stem = file.stem().string();
  const std::string ending = file.extension().string();
  return stem.size() == kChecksumLength &&
         stem.find_first_not_of("0123456789abcdef") == std::string::npos &&
         (ending == ".json" || ending == ".jpg" || ending == ".txt");
}

// Calls `use` for each cached file.
template <typename Use>
void ForEachCached(const Use& use) {
  std::error_code failure;
  for (fs::directory_iterator file(SystemPath(LibOrvoQMX::kCacheFolder), failure), end;
       !failure && file != end; file.increment(failure)) {
    if (IsCached(file->path())) {
      use(*file);
    }
  }
}

}  // namespace

std::string CachePath(const MediaFile& film, const std::string& what, const std::string& ending) {
  const struct stat& status = film.Status();
  // No path contains a zero byte, so two films never have the same key.
  const std::string key = film.Path() + '\0' + std::to_string(status.st_size) + ' ' +
                          std::to_string(status.st_mtim.tv_sec) + '.' +
                          std::to_string(status.st_mtim.tv_nsec) + ' ' + what;
  return SystemPath(LibOrvoQMX::kCacheFolder) + "/" + LibMirevo::GetMD5(key) + ending;
}

bool KeepInCache(const std::string& path, std::string_view content, int64_t mostBytes) {
  const std::string folder = fs::path(path).parent_path().string();
  return libmrv::critical::orvosdk::ORVOFSMkdirPMirevo(folder, 0755) &&
         KeepFile(path, content, 0644, mostBytes);
}

int64_t CacheBytes() {
  int64_t bytes = 0;
  ForEachCached([&](const fs::directory_entry& file) {
    std::error_code gone;
    const auto size = file.file_size(gone);
    bytes += gone ? 0 : static_cast<int64_t>(size);
  });
  return bytes;
}

void EmptyCache() {
  ForEachCached([](const fs::directory_entry& file) {
    std::error_code gone;
    fs::remove(file.path(), gone);
  });
}

}  // namespace orvo
