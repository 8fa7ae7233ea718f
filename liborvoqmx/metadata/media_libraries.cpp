#include "metadata/media_libraries.h"

#include <unistd.h>

#include "platform/log.h"
#include "platform/run_as.h"
#include "util/lazy_library.h"

namespace LibOrvoQMX {
namespace {

// The release that this code was compiled against. It reads the structures directly, so no other
// release works.
constexpr char kFormatLibrary[] = "libavformat.so." AV_STRINGIFY(LIBAVFORMAT_VERSION_MAJOR);
constexpr char kCodecLibrary[] = "libavcodec.so." AV_STRINGIFY(LIBAVCODEC_VERSION_MAJOR);
constexpr char kUtilLibrary[] = "libavutil.so." AV_STRINGIFY(LIBAVUTIL_VERSION_MAJOR);

bool Load(MediaLibraries& media) {
  const orvo::LazyLibrary format(kFormatLibrary);
  const orvo::LazyLibrary codec(kCodecLibrary);
  const orvo::LazyLibrary util(kUtilLibrary);
  bool found = true;
#define ORVO_FIND_IN(library, name) found = (library).Find(#name, media.name) && found;
#define ORVO_FIND_FORMAT(name) ORVO_FIND_IN(format, name)
#define ORVO_FIND_CODEC(name) ORVO_FIND_IN(codec, name)
#define ORVO_FIND_UTIL(name) ORVO_FIND_IN(util, name)
  ORVO_FFMPEG_FORMAT_FUNCTIONS(ORVO_FIND_FORMAT)
  ORVO_FFMPEG_CODEC_FUNCTIONS(ORVO_FIND_CODEC)
  ORVO_FFMPEG_UTIL_FUNCTIONS(ORVO_FIND_UTIL)
  return found;
}

// The file that a function was loaded from; "" if unknown.
template <typename Function>
std::string FileOf(Function function) {
  Dl_info info{};
  const bool isKnown = dladdr(reinterpret_cast<const void*>(function), &info) != 0;
  return isKnown && info.dli_fname != nullptr ? info.dli_fname : "";
}

}  // namespace

const MediaLibraries* MediaLibraries::Get() {
  static MediaLibraries media;
  static const bool loaded = [] {
    bool success = false;
    // One of the libraries below these sets the process's ids to the real user's for a moment while
    // it is loaded. If the effective id is root's, that change would be permanent.
    IF_RUN_AS(getuid(), getgid()) {
      success = Load(media);
    }
    if (!success) {
      const char* reason = dlerror();
      ORVO_LOG("Failed to load the media libraries: %s", reason != nullptr ? reason : "incomplete");
    }
    return success;
  }();
  return loaded ? &media : nullptr;
}

std::vector<std::string> MediaLibraries::Files() {
  const MediaLibraries* const media = Get();
  if (media == nullptr) {
    return {};
  }
  return {FileOf(media->avformat_open_input), FileOf(media->avcodec_find_decoder),
          FileOf(media->av_dict_get), FileOf(&MediaLibraries::Get)};
}

}  // namespace LibOrvoQMX
