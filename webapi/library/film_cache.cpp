#include "webapi/library/film_cache.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <vector>

#include "platform/io.h"
#include "platform/plat.h"
#include "policy/lock.h"
#include "util/md5.h"

namespace webapi {
namespace {

namespace fs = std::filesystem;

constexpr int64_t kMaxBytes = 256 << 20;
// So that not each new picture is one too many.
constexpr int64_t kTrimmedBytes = kMaxBytes / 10 * 9;
constexpr int64_t kBlock = 512;  // what st_blocks counts

struct KeptFile {
  std::string path;
  timespec age;
  int64_t bytes;
};

bool IsOlder(const KeptFile& left, const KeptFile& right) {
  return left.age.tv_sec != right.age.tv_sec ? left.age.tv_sec < right.age.tv_sec
                                             : left.age.tv_nsec < right.age.tv_nsec;
}

// The files whose names begin with a dot are locks, and hold nothing.
std::vector<KeptFile> FilesIn(const std::string& folder) {
  std::vector<KeptFile> files;
  std::error_code failure;
  for (fs::directory_iterator entry(folder, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    struct stat status {};
    const std::string name = entry->path().filename().string();
    if (name.front() != '.' && lstat(entry->path().c_str(), &status) == 0 &&
        S_ISREG(status.st_mode)) {
      // An empty file takes a little room, too.
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

}  // namespace

std::string CachePath(const std::string& film, const std::string& what, const std::string& ending) {
  struct stat status {};
  if (stat(film.c_str(), &status) != 0) {
    return "";
  }
  // A zero byte stands in no path, so that no two films look alike.
  const std::string key = film + '\0' + std::to_string(status.st_size) + ' ' +
                          std::to_string(status.st_mtim.tv_sec) + '.' +
                          std::to_string(status.st_mtim.tv_nsec) + ' ' + what;
  return orvo::SystemPath(kCacheFolder) + "/" + LibMirevo::GetMD5(key) + ending;
}

bool KeepInCache(const std::string& path, const std::string& content) {
  const std::string folder = fs::path(path).parent_path().string();
  if (!libmrv::critical::orvosdk::ORVOFSMkdirPMirevo(folder, 0755) ||
      !orvo::ReplaceFile(path, content)) {
    return false;
  }
  // One that trims is enough.
  const LibMirevo::Lock alone(folder + "/.trim", false);
  if (alone.IsLockSucess() && SizeOf(FilesIn(folder)) > kMaxBytes) {
    TrimFolder(folder, kTrimmedBytes);
  }
  return true;
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

}  // namespace webapi
