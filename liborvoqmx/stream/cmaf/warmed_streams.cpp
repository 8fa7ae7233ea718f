#include "stream/cmaf/warmed_streams.h"

#include <unistd.h>

#include <filesystem>

#include "platform/io.h"
#include "state/stream_directory.h"
#include "stream/cmaf/cmaf_runs.h"
#include "util/system_files.h"

namespace LibOrvoQMX {
namespace {

namespace fs = std::filesystem;

constexpr char kMark[] = "warmed";

std::string MarkOf(const std::string& streamId) {
  return IsPlainName(streamId) ? StreamDirectory(kCmafKind, streamId).FilePath(kMark) : "";
}

}  // namespace

bool MarkCmafWarmed(const std::string& streamId) {
  return orvo::ReplaceFile(MarkOf(streamId), "");
}

bool IsCmafWarmed(const std::string& streamId) {
  return access(MarkOf(streamId).c_str(), F_OK) == 0;
}

bool EndCmafWarming(const std::string& streamId) {
  return unlink(MarkOf(streamId).c_str()) == 0;
}

bool MakeWarmedCmafGiveWay() {
  bool hasEnded = false;
  std::error_code failure;
  for (fs::directory_iterator entry(StreamKindPath(kCmafKind), failure), end;
       !failure && entry != end; entry.increment(failure)) {
    const std::string streamId = entry->path().filename().string();
    hasEnded = (IsCmafWarmed(streamId) && StopCmafPictures(streamId)) || hasEnded;
  }
  return hasEnded;
}

}  // namespace LibOrvoQMX
