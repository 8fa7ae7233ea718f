#include "transcoder/places.h"

#include "platform/plat.h"

namespace orvo::transcoder {
namespace {

constexpr char kCacheFolder[] = "/tmp/Mirevo";
constexpr mode_t kCacheFolderMode = 0777;  // the request programs' folder, whoever makes it first

}  // namespace

std::string CacheFile(const std::string& name) {
  const std::string folder = SystemPath(kCacheFolder);
  libmrv::critical::orvosdk::ORVOFSMkdirPMirevo(folder, kCacheFolderMode);
  return folder + name;
}

}  // namespace orvo::transcoder
