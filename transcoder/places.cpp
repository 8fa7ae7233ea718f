#include "transcoder/places.h"

#include "platform/plat.h"

namespace orvo::transcoder {
namespace {

constexpr char kCacheFolder[] = "/tmp/Mirevo";
constexpr mode_t kCacheFolderMode = 0777;  // the request programs' folder, whoever makes it first

}  // namespace

std::string CachePath(const std::string& name) {
  return SystemPath(kCacheFolder) + name;
}

std::string CacheFile(const std::string& name) {
  libmrv::critical::orvosdk::ORVOFSMkdirPMirevo(SystemPath(kCacheFolder), kCacheFolderMode);
  return CachePath(name);
}

}  // namespace orvo::transcoder
