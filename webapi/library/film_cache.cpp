#include "webapi/library/film_cache.h"

#include <cstdint>

#include "settings/limits.h"
#include "util/film_cache.h"

namespace webapi {

constexpr int64_t kMebibyte = 1 << 20;

bool KeepInCache(const std::string& path, std::string_view content) {
  return orvo::KeepInCache(path, content, settings::ValueOf(settings::kCacheMegabytes) * kMebibyte);
}

}  // namespace webapi
