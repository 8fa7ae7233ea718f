// These functions log under the source file of the stream base class.
#define ORVO_LOG_SOURCE "liborvoqmx.cpp"

#include "state/stream_room.h"

#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "platform/log.h"
#include "platform/plat.h"
#include "platform/run_as.h"
#include "util/qmxutils.h"
#include "util/system_files.h"

namespace LibOrvoQMX {
namespace {

using libmrv::critical::orvosdk::ORVOFSMkdirPMirevo;

constexpr mode_t kDirectoryMode = 0777;

constexpr int kErrorNotWritable = 0x2900;
constexpr int kErrorNoVolume = 0x8300;
constexpr int kErrorNoRoom = 0xDD00;

int ErrorOf(unsigned volumeFlags) {
  if ((volumeFlags & kVolumeNoneWritable) != 0) {
    return kErrorNotWritable;
  }
  return (volumeFlags & kVolumeExists) == 0 ? kErrorNoVolume : kErrorNoRoom;
}

bool IsOwn(const std::string& directory) {
  struct stat status {};
  return lstat(directory.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
         (status.st_uid == geteuid() || status.st_uid == 0);
}

// Does the link have the form of those that this system makes? Another one may have been put there
// to have its target removed.
bool IsStreamOf(const std::string& link, const std::string& target) {
  const size_t kindStart = link.rfind('/', link.rfind('/') - 1);
  const std::string end = kVolumeTempRoot + link.substr(kindStart);
  struct stat status {};
  const bool isOurs = lstat(link.c_str(), &status) == 0 &&
                      (status.st_uid == geteuid() || status.st_uid == 0) && IsOwn(target) &&
                      target.ends_with(end);
  if (!isOurs) {
    ORVO_LOG("[%s] leads to [%s], which is no stream of this system. It stays.", link.c_str(),
             target.c_str());
  }
  return isOurs;
}

void RemoveIfThere(const std::string& directory) {
  if (!directory.empty() && VerifyFileExist(directory, 0)) {
    IF_RUN_AS(0, 0) {
      PlatExec("/bin/rm", "-rf", directory);
    }
  }
}

}  // namespace

bool MakeVolumeDirectory(uint64_t space, const std::string& kind, const std::string& streamId,
                         std::string& directory) {
  if (kind.empty() || streamId.empty()) {
    ORVO_LOG("Bad parameter");
    return false;
  }
  directory.clear();
  std::string volume;
  unsigned flags = 0;
  const int found = VolumeAvailGet(space, volume, flags);
  if (found < 0) {
    ORVO_LOG("VolumeAvailGet() failed!! orvoerr=[0x%04X]", static_cast<unsigned>(PlatErrGet()));
    return false;
  }
  if (found == 0) {
    PlatErrSet(ErrorOf(flags));
    return false;
  }
  directory = volume + kVolumeTempRoot + "/" + kind + "/" + streamId;
  return ORVOFSMkdirPMirevo(directory, kDirectoryMode) && IsOwn(directory);
}

bool MakeLinkedDirectory(uint64_t space, const std::string& kind, const std::string& streamId) {
  std::string directory;
  if (!MakeVolumeDirectory(space, kind, streamId, directory)) {
    ORVO_LOG("There are not enough volume space for streaming %s. Need space [%llu bytes]",
             kind.c_str(), static_cast<unsigned long long>(space));
    return false;
  }
  const std::string link = StreamPath(kind, streamId);
  unlink(link.c_str());
  return symlink(directory.c_str(), link.c_str()) == 0;
}

bool MakeKindDirectory(const std::string& kind) {
  return ORVOFSMkdirPMirevo(StreamKindPath(kind), kDirectoryMode);
}

bool MakePlainDirectory(const std::string& kind, const std::string& streamId) {
  return ORVOFSMkdirPMirevo(StreamPath(kind, streamId), kDirectoryMode);
}

// A transcoder that is still ending may write a file into the directory while it is being emptied.
// It finds the directory by the link, so the second removal meets nothing new.
void RemoveLinkedDirectory(const std::string& link) {
  const std::string named = LinkTarget(link);
  const std::string target = !named.empty() && IsStreamOf(link, named) ? named : "";
  RemoveIfThere(target);
  unlink(link.c_str());
  RemoveIfThere(target);
}

}  // namespace LibOrvoQMX
