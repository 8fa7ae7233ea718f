#include "transcoder/cmaf_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <utility>

#include "contract/cmaf.h"
#include "platform/io.h"

namespace orvo::transcoder {
namespace {

constexpr mode_t kMode = 0644;

bool Exists(const std::string& path) {
  return access(path.c_str(), F_OK) == 0;
}

// A new file, also where an older one is still being read.
UniqueFd Create(const std::string& path) {
  unlink(path.c_str());
  return UniqueFd(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, kMode));
}

}  // namespace

CmafFiles::CmafFiles(std::string folder) : folder_(std::move(folder) + "/") {}

CmafFiles::~CmafFiles() {
  if (file_.IsOpen()) {
    unlink((folder_ + name_ + kUnfinished).c_str());
  }
}

bool CmafFiles::Begin(int number) {
  name_ = CmafSegmentName(number);
  if (!ReplaceFile(folder_ + kCmafPositionFile, std::to_string(number))) {
    return false;
  }
  if (Exists(folder_ + name_)) {
    name_.clear();
    return true;
  }
  file_ = Create(folder_ + name_ + kUnfinished);
  return file_.IsOpen();
}

bool CmafFiles::Write(const std::string& bytes) {
  return name_.empty() || WriteAll(file_.Get(), bytes);
}

bool CmafFiles::End() {
  if (name_.empty()) {
    return true;
  }
  const std::string path = folder_ + std::exchange(name_, "");
  file_.Reset();
  return rename((path + kUnfinished).c_str(), path.c_str()) == 0;
}

bool CmafFiles::WriteHeader(const std::string& bytes) const {
  const std::string path = folder_ + kCmafHeaderFile;
  if (Exists(path)) {
    return true;
  }
  const std::string aside = path + "." + std::to_string(getpid());
  const UniqueFd file = Create(aside);
  return file.IsOpen() && WriteAll(file.Get(), bytes) && rename(aside.c_str(), path.c_str()) == 0;
}

}  // namespace orvo::transcoder
