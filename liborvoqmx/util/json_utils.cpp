// Json::Reader and Json::FastWriter fix the accepted input and the exact bytes written.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

#include "util/json_utils.h"

#include <fcntl.h>
#include <json/reader.h>
#include <json/writer.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

#include "platform/io.h"
#include "platform/log.h"
#include "platform/unique_fd.h"

namespace LibMirevo {
namespace {

// Holds the lock on a JSON file while it exists, if the lock could be taken.
class JsonFileLock {
 public:
  static JsonFileLock ForReading(const std::string& path) {
    return {open(path.c_str(), O_RDONLY | O_CLOEXEC), LOCK_SH};
  }
  static JsonFileLock ForWriting(const std::string& path) {
    return {open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0664), LOCK_EX};
  }
  JsonFileLock(const JsonFileLock&) = delete;
  JsonFileLock& operator=(const JsonFileLock&) = delete;
  ~JsonFileLock() {
    if (locked_) {
      flock(file_.Get(), LOCK_UN);
    }
  }

 private:
  JsonFileLock(int fd, int mode) : file_(fd) {
    while (file_.IsOpen() && !locked_) {
      locked_ = flock(file_.Get(), mode) == 0;
      if (!locked_ && errno != EINTR) {
        return;
      }
    }
  }

  orvo::UniqueFd file_;
  bool locked_ = false;
};

bool IsUsable(const std::string& path) {
  if (path.empty()) {
    ORVO_LOG("Bad parameter");
  }
  return !path.empty();
}

// One write replaces the old content, then the file is cut. A process that is killed between the
// two leaves the new value with old bytes after it. That still parses, and the file is never empty.
bool Overwrite(const std::string& path, const std::string& content) {
  const orvo::UniqueFd file(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666));
  if (!file.IsOpen()) {
    return false;
  }
  if (!orvo::WriteAll(file.Get(), content)) {
    return false;
  }
  // A device or a pipe cannot be cut, and need not be.
  return ftruncate(file.Get(), static_cast<off_t>(content.size())) == 0 || errno == EINVAL;
}

}  // namespace

bool ParseJson(const std::string& text, Json::Value& value) {
  try {
    return Json::Reader().parse(text, value, true);
  } catch (const Json::Exception&) {
    return false;
  }
}

std::string FormatJson(const Json::Value& value) {
  return Json::FastWriter().write(value);
}

bool IsJsonText(const std::string& text) {
  Json::Value copy;
  return ParseJson(FormatJson(Json::Value(text)), copy) && copy.asString() == text;
}

bool ReadJsonFromFile(const std::string& path, Json::Value& value) {
  if (!IsUsable(path)) {
    return false;
  }
  const JsonFileLock lock = JsonFileLock::ForReading(path);
  return ReadJsonFromFileWithoutLock(path, value);
}

bool ReadJsonFromFileWithoutLock(const std::string& path, Json::Value& value) {
  if (!IsUsable(path)) {
    return false;
  }
  std::ifstream file(path, std::ios::binary);
  if (!file.good()) {
    return false;
  }
  std::string text;
  if (!orvo::ReadAll(file, text)) {
    return false;
  }
  if (!ParseJson(text, value)) {
    ORVO_LOG("Failed to parse json file [%s]", path.c_str());
    return false;
  }
  return true;
}

bool WriteJsonToFile(const std::string& path, const Json::Value& value) {
  if (!IsUsable(path)) {
    return false;
  }
  const JsonFileLock lock = JsonFileLock::ForWriting(path);
  return WriteJsonToFileWithoutLock(path, value);
}

bool WriteJsonToFileWithoutLock(const std::string& path, const Json::Value& value) {
  if (!IsUsable(path)) {
    return false;
  }
  if (!Overwrite(path, FormatJson(value))) {
    ORVO_LOG("failed to write json file [%s]", path.c_str());
    return false;
  }
  return true;
}

}  // namespace LibMirevo
