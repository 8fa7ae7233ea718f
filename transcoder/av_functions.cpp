#include "transcoder/av_functions.h"

#include <unistd.h>

#include "liborvoqmx/util/lazy_library.h"
#include "platform/log.h"
#include "platform/run_as.h"

namespace orvo::transcoder {
namespace {

// The release that this was compiled against: structures are read directly, so no other will do.
constexpr char kFormatLibrary[] = "libavformat.so." AV_STRINGIFY(LIBAVFORMAT_VERSION_MAJOR);
constexpr char kCodecLibrary[] = "libavcodec.so." AV_STRINGIFY(LIBAVCODEC_VERSION_MAJOR);
constexpr char kUtilLibrary[] = "libavutil.so." AV_STRINGIFY(LIBAVUTIL_VERSION_MAJOR);

bool Load(AvFunctions& functions) {
  const LazyLibrary format(kFormatLibrary);
  const LazyLibrary codec(kCodecLibrary);
  const LazyLibrary util(kUtilLibrary);
  bool found = true;
#define ORVO_FIND_IN(library, name) found = (library).Find(#name, functions.name) && found;
#define ORVO_FIND_FORMAT(name) ORVO_FIND_IN(format, name)
#define ORVO_FIND_CODEC(name) ORVO_FIND_IN(codec, name)
#define ORVO_FIND_UTIL(name) ORVO_FIND_IN(util, name)
  ORVO_AV_FORMAT_FUNCTIONS(ORVO_FIND_FORMAT)
  ORVO_AV_CODEC_FUNCTIONS(ORVO_FIND_CODEC)
  ORVO_AV_UTIL_FUNCTIONS(ORVO_FIND_UTIL)
  return found;
}

}  // namespace

const AvFunctions* AvFunctions::Get() {
  static AvFunctions functions;
  static const bool loaded = [] {
    bool success = false;
    // One of the libraries that they bring changes the process's ids for a moment as it is loaded,
    // which with root's effective id borrowed is for good.
    IF_RUN_AS(getuid(), getgid()) {
      success = Load(functions);
    }
    return success;
  }();
  if (!loaded) {
    const char* reason = dlerror();
    ORVO_LOG("cannot load libavformat: %s", reason != nullptr ? reason : "incomplete");
    return nullptr;
  }
  functions.av_log_set_level(AV_LOG_ERROR);
  return &functions;
}

}  // namespace orvo::transcoder
