// A file in a folder that other users may change, opened once.
//
// A name that was checked can lead elsewhere when it is opened the next time. So a film, or a file
// beside one, is opened once, and this descriptor is read, sent, probed and passed to the programs
// that convert it. Only the descriptor tells which file it is; the path is for people and records.
#pragma once

#include <sys/stat.h>

#include <string>

#include "platform/export.h"
#include "platform/unique_fd.h"

namespace orvo {

class ORVO_API MediaFile {
 public:
  MediaFile() = default;  // not open

  // Opens a regular file for reading. Anything else (a pipe, a device, a folder) is not opened, not
  // even for a moment. On failure the result is not open and errno is set; errno is EINVAL if the
  // file is not a regular one.
  static MediaFile Open(const std::string& path);
  // The same for a file below `root`, or for `root` itself. Both paths are real paths, without
  // links. A link anywhere below `root` is a failure, even if it was put there a moment ago.
  static MediaFile OpenBeneath(const std::string& root, const std::string& path);
  // Takes an open descriptor that another process or function has opened in one of these ways.
  static MediaFile Take(UniqueFd file, const std::string& path);

  bool IsOpen() const { return file_.IsOpen(); }
  int Get() const { return file_.Get(); }  // borrowed
  const std::string& Path() const { return path_; }
  const struct stat& Status() const { return status_; }  // when it was opened

  // A name that leads to exactly this file, in this process and in those that have the descriptor.
  std::string Address() const;

  // "device inode": tells whether a file that is opened later is the same one.
  std::string Identity() const;

 private:
  UniqueFd file_;
  std::string path_;
  struct stat status_ {};
};

// Opens for reading what FindBeneath has found, if it is a regular file; see MediaFile::Open.
ORVO_API UniqueFd OpenFound(const UniqueFd& found);

}  // namespace orvo
