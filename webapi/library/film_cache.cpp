#include "webapi/library/film_cache.h"

#include <cstdint>
#include <filesystem>

#include "platform/plat.h"
#include "util/kept_files.h"
#include "util/md5.h"

namespace webapi {
namespace {

constexpr int64_t kMaxBytes = 256 << 20;

}  // namespace

std::string CachePath(const orvo::MediaFile& film, const std::string& what,
                      const std::string& ending) {
  const struct stat& status = film.Status();
  // No path contains a zero byte, so two films never have the same key.
  const std::string key = film.Path() + '\0' + std::to_string(status.st_size) + ' ' +
                          std::to_string(status.st_mtim.tv_sec) + '.' +
                          std::to_string(status.st_mtim.tv_nsec) + ' ' + what;
  return orvo::SystemPath(kCacheFolder) + "/" + LibMirevo::GetMD5(key) + ending;
}

bool KeepInCache(const std::string& path, const std::string& content) {
  const std::string folder = std::filesystem::path(path).parent_path().string();
  return libmrv::critical::orvosdk::ORVOFSMkdirPMirevo(folder, 0755) &&
         orvo::KeepFile(path, content, 0644, kMaxBytes);
}

}  // namespace webapi
