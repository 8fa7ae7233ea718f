#include "util/kept_files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <vector>

#include "platform/io.h"
#include "platform/unique_fd.h"

namespace orvo {
namespace {

namespace fs = std::filesystem;

constexpr int64_t kBlock = 512;  // the unit of st_blocks

struct KeptFile {
  std::string path;
  timespec age;
  int64_t bytes;
};

bool IsOlder(const KeptFile& left, const KeptFile& right) {
  return left.age.tv_sec != right.age.tv_sec ? left.age.tv_sec < right.age.tv_sec
                                             : left.age.tv_nsec < right.age.tv_nsec;
}

// The name is a checksum with an ending, or one that ReplaceFile makes from it. Other files have
// other makers, and may not be there a second time.
bool IsKept(const std::string& name) {
  constexpr size_t kChecksumLength = 32;
  return name.size() > kChecksumLength && name[kChecksumLength] == '.' &&
         name.find_first_not_of("0123456789abcdef") == kChecksumLength;
}

std::vector<KeptFile> FilesIn(const std::string& folder) {
  std::vector<KeptFile> files;
  std::error_code failure;
  for (fs::directory_iterator entry(folder, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    struct stat status {};
    const std::string name = entry->path().filename().string();
    if (IsKept(name) && lstat(entry->path().c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
      // An empty file needs some space too.
      const int64_t bytes = std::max<int64_t>(status.st_blocks, 1) * kBlock;
      files.push_back({entry->path().string(), status.st_mtim, bytes});
    }
  }
  return files;
}

int64_t SizeOf(const std::vector<KeptFile>& files) {
  int64_t bytes = 0;
  for (const KeptFile& file : files) {
    bytes += file.bytes;
  }
  return bytes;
}

// The lock for removing files of the folder. Not open if another process holds it.
UniqueFd TakeTurn(const std::string& folder) {
  UniqueFd lock(
      open((folder + "/.trim").c_str(), O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (lock.IsOpen() && flock(lock.Get(), LOCK_EX | LOCK_NB) != 0) {
    lock.Reset();
  }
  return lock;
}

}  // namespace

bool KeepFile(const std::string& path, std::string_view content, mode_t mode, int64_t maxBytes) {
  if (!ReplaceFile(path, content, mode)) {
    return false;
  }
  const std::string folder = fs::path(path).parent_path().string();
  // Only one process at a time removes files.
  const UniqueFd turn = TakeTurn(folder);
  if (turn.IsOpen() && SizeOf(FilesIn(folder)) > maxBytes) {
    // Trims to a little less, so that the next file does not trim again.
    TrimFolder(folder, maxBytes / 10 * 9);
  }
  return true;
}

int64_t BytesNewerThan(const std::string& folder, time_t time) {
  std::vector<KeptFile> files = FilesIn(folder);
  std::erase_if(files, [time](const KeptFile& file) { return file.age.tv_sec < time; });
  return SizeOf(files);
}

void TrimFolder(const std::string& folder, int64_t maxBytes) {
  std::vector<KeptFile> files = FilesIn(folder);
  std::sort(files.begin(), files.end(), IsOlder);
  int64_t bytes = SizeOf(files);
  for (const KeptFile& file : files) {
    if (bytes <= maxBytes) {
      return;
    }
    if (unlink(file.path.c_str()) == 0) {
      bytes -= file.bytes;
    }
  }
}

}  // namespace orvo
