#include "util/state_reading.h"

#include <cerrno>
#include <fstream>

#include "platform/io.h"
#include "platform/log.h"
#include "util/json_utils.h"

namespace orvo {

std::optional<std::string> ReadIfThere(const std::string& path, size_t maxBytes) {
  errno = 0;
  auto content = ReadOwnFile(path, maxBytes);
  const bool isAbsent = !content && errno == ENOENT;
  return isAbsent ? "" : std::move(content);
}

JsonReading ReadStateJson(const std::string& path, Json::Value& value) {
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  std::string text;
  if (!file.is_open()) {
    return errno == ENOENT ? JsonReading::kAbsent : JsonReading::kUnreadable;
  }
  if (!ReadAll(file, text)) {
    return JsonReading::kUnreadable;
  }
  if (!LibMirevo::ParseJson(text, value)) {
    ORVO_LOG("Failed to parse json file [%s]", path.c_str());
    return JsonReading::kNoJson;
  }
  return JsonReading::kRead;
}

}  // namespace orvo
