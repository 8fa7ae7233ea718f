#include "metadata/media_libraries.h"

#include <dlfcn.h>

#include "platform/log.h"

namespace LibOrvoQMX {
namespace {

// The release that this was compiled against: structures are read directly, so no other will do.
constexpr char kFormatLibrary[] = "libavformat.so." AV_STRINGIFY(LIBAVFORMAT_VERSION_MAJOR);
constexpr char kCodecLibrary[] = "libavcodec.so." AV_STRINGIFY(LIBAVCODEC_VERSION_MAJOR);
constexpr char kUtilLibrary[] = "libavutil.so." AV_STRINGIFY(LIBAVUTIL_VERSION_MAJOR);

template <typename Function>
bool Find(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(library, name));
  return function != nullptr;
}

bool Load(MediaLibraries& media) {
  void* const format = dlopen(kFormatLibrary, RTLD_NOW | RTLD_LOCAL);
  void* const codec = dlopen(kCodecLibrary, RTLD_NOW | RTLD_LOCAL);
  void* const util = dlopen(kUtilLibrary, RTLD_NOW | RTLD_LOCAL);
  if (format == nullptr || codec == nullptr || util == nullptr) {
    return false;
  }
  bool found = true;
#define ORVO_FIND(name) found = Find(library, #name, media.name) && found;
  void* library = format;
  ORVO_FFMPEG_FORMAT_FUNCTIONS(ORVO_FIND)
  library = codec;
  ORVO_FFMPEG_CODEC_FUNCTIONS(ORVO_FIND)
  library = util;
  ORVO_FFMPEG_UTIL_FUNCTIONS(ORVO_FIND)
#undef ORVO_FIND
  return found;
}

}  // namespace

const MediaLibraries* MediaLibraries::Get() {
  static MediaLibraries media;
  static const bool loaded = [] {
    const bool success = Load(media);
    if (!success) {
      const char* reason = dlerror();
      ORVO_LOG("Failed to load the media libraries: %s", reason != nullptr ? reason : "incomplete");
    }
    return success;
  }();
  return loaded ? &media : nullptr;
}

}  // namespace LibOrvoQMX
