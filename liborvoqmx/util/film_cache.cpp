#include "util/film_cache.h"

#include <filesystem>

#include "platform/plat.h"
#include "util/kept_files.h"
#include "util/md5.h"
#include "util/system_files.h"

namespace orvo {

std::string CachePath(const MediaFile& film, const std::string& what, const std::string& ending) {
  const struct stat& status = film.Status();
  // No path contains a zero byte, so two films never have the same key.
  const std::string key = film.Path() + '\0' + std::to_string(status.st_size) + ' ' +
                          std::to_string(status.st_mtim.tv_sec) + '.' +
                          std::to_string(status.st_mtim.tv_nsec) + ' ' + what;
  return SystemPath(LibOrvoQMX::kCacheFolder) + "/" + LibMirevo::GetMD5(key) + ending;
}

bool KeepInCache(const std::string& path, std::string_view content, int64_t mostBytes) {
  const std::string folder = std::filesystem::path(path).parent_path().string();
  return libmrv::critical::orvosdk::ORVOFSMkdirPMirevo(folder, 0755) &&
         KeepFile(path, content, 0644, mostBytes);
}

}  // namespace orvo
