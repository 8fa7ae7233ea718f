#include "util/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/interruption.h"

namespace orvo {
namespace {

constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;

// Makes one of the two lock calls. `call` waits if its argument is true; signals interrupt it.
template <typename Call>
bool LockWithin(int milliseconds, Call call) {
  const bool isFree = call(false) == 0;
  if (isFree || milliseconds <= 0) {
    return isFree;
  }
  const Interruption interruption(milliseconds);
  int result = -1;
  do {
    result = call(true);
  } while (result != 0 && errno == EINTR && !interruption.IsDue());
  return result == 0;
}

int LockWhole(const UniqueFd& file, bool wait) {
  return flock(file.Get(), wait ? LOCK_EX : LOCK_EX | LOCK_NB);
}

// `type`: F_WRLCK or F_UNLCK.
int SetByte(const UniqueFd& file, int64_t byte, short type, bool wait) {
  struct flock wish {};
  wish.l_type = type;
  wish.l_whence = SEEK_SET;
  wish.l_start = byte;
  wish.l_len = 1;
  return fcntl(file.Get(), wait ? F_OFD_SETLKW : F_OFD_SETLK, &wish);
}

// Opens the file of a lock. `access` is as for open().
UniqueFd Open(const std::string& path, int access) {
  constexpr int kFlags = O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK;
  UniqueFd file(open(path.c_str(), access | kFlags, kOwnerOnly));
  struct stat status {};
  // Every user can open the files that earlier versions made.
  if (file.IsOpen() && fstat(file.Get(), &status) == 0 && status.st_uid == geteuid() &&
      (status.st_mode & ACCESSPERMS) != kOwnerOnly) {
    fchmod(file.Get(), kOwnerOnly);
  }
  return file;
}

// For a lock on a whole file. Network storage wants write access for an exclusive lock. The
// kernel's own file systems do without, and a file of another user may allow no more.
UniqueFd OpenWhole(const std::string& path) {
  UniqueFd file = Open(path, O_RDWR);
  return file.IsOpen() || errno != EACCES ? std::move(file) : Open(path, O_RDONLY);
}

// The byte for a name, one of 2^62, by FNV-1a. Two names with the same byte wait for each other,
// which does no harm.
int64_t PlaceOf(const std::string& name) {
  uint64_t hash = 0xcbf29ce484222325;
  for (const unsigned char byte : name) {
    hash = (hash ^ byte) * 0x100000001b3;
  }
  return static_cast<int64_t>(hash >> 2);
}

}  // namespace

FileLock FileLock::Wait(const std::string& path, int milliseconds) {
  UniqueFd file = OpenWhole(path);
  if (file.IsOpen() &&
      !LockWithin(milliseconds, [&](bool wait) { return LockWhole(file, wait); })) {
    file.Reset();
  }
  return FileLock(std::move(file));
}

FileLock FileLock::Try(const std::string& path) {
  return Wait(path, 0);
}

FileLock FileLock::WaitFor(const std::string& name, const std::string& path, int milliseconds) {
  UniqueFd file = OpenLockFile(path);
  if (file.IsOpen() && !LockByte(file, PlaceOf(name), milliseconds)) {
    file.Reset();
  }
  return FileLock(std::move(file));
}

UniqueFd OpenLockFile(const std::string& path) {
  return Open(path, O_RDWR);
}

bool LockByte(const UniqueFd& file, int64_t byte, int milliseconds) {
  return LockWithin(milliseconds, [&](bool wait) { return SetByte(file, byte, F_WRLCK, wait); });
}

void UnlockByte(const UniqueFd& file, int64_t byte) {
  SetByte(file, byte, F_UNLCK, false);
}

}  // namespace orvo
