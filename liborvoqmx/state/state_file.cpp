#include "state/state_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/io.h"
#include "util/number.h"
#include "util/qmxutils.h"

namespace LibOrvoQMX {
namespace {

constexpr mode_t kLockedFileMode = 0666;

}  // namespace

StateFile::StateFile(std::string path) : path_(std::move(path)) {}

std::string StateFile::Read() const {
  return ReadFile(path_);
}

std::optional<std::string> StateFile::TryRead() const {
  errno = 0;  // of an empty file
  std::string text = Read();
  const bool isKnown = !text.empty() || errno == 0 || errno == ENOENT || errno == ENOTDIR;
  return isKnown ? std::optional(std::move(text)) : std::nullopt;
}

std::optional<int64_t> StateFile::Number() const {
  const std::string text = Read();
  return text.empty() ? std::nullopt : std::optional(LeadingNumber(text));
}

bool StateFile::Write(const std::string& text) const {
  return SaveFile(path_, text);
}

bool StateFile::Write(int64_t number) const {
  return Write(std::to_string(number));
}

bool StateFile::Replace(const std::string& text) const {
  return orvo::ReplaceFile(path_, text);
}

bool StateFile::Replace(int64_t number) const {
  return Replace(std::to_string(number));
}

void StateFile::Clear() const {
  (void)!truncate(path_.c_str(), 0);
}

void StateFile::Remove() const {
  unlink(path_.c_str());
}

std::optional<timespec> StateFile::Written() const {
  struct stat status {};
  return stat(path_.c_str(), &status) == 0 ? std::optional(status.st_mtim) : std::nullopt;
}

StreamLock StateFile::Lock() const {
  return StreamLock(path_, kLockedFileMode);
}

bool StateFile::IsLocked() const {
  return IsStreamLocked(path_);
}

}  // namespace LibOrvoQMX
