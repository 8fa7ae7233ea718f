#include "util/system_files.h"

#include <json/value.h>
#include <unistd.h>

#include <array>
#include <climits>

#include "platform/plat.h"
#include "util/file_state.h"
#include "util/json_utils.h"

namespace LibOrvoQMX {

std::string StreamKindPath(const std::string& kind) {
  return orvo::SystemPath(std::string(kTempRoot) + "/" + kind);
}

std::string StreamPath(const std::string& kind, const std::string& streamId) {
  return StreamKindPath(kind) + "/" + streamId;
}

std::string LinkTarget(const std::string& path) {
  std::array<char, PATH_MAX> target{};
  const ssize_t length = readlink(path.c_str(), target.data(), target.size() - 1);
  return length > 0 ? std::string(target.data(), static_cast<size_t>(length)) : "";
}

bool IsPlainName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

const Json::Value& ReadProfiles(const std::string& profilePath) {
  static struct {
    std::string path;
    std::string state;  // "" if a change would not show
    Json::Value content;
  } last;
  const auto state = orvo::FileState::Of(profilePath);
  if (last.path == profilePath && !last.state.empty() && state && state->text == last.state) {
    return last.content;
  }
  last = {profilePath, state && state->isSettled ? state->text : "", Json::Value()};
  if (!LibMirevo::ReadJsonFromFile(profilePath, last.content)) {
    last.content = Json::Value();
  }
  return last.content;
}

bool ReadProfileValue(const std::string& profilePath, const std::string& profileKey,
                      std::string& value) {
  if (profilePath.empty() || profileKey.empty()) {
    return false;
  }
  const Json::Value& profiles = ReadProfiles(profilePath);
  if (!profiles.isObject() || !profiles.isMember(profileKey)) {
    return false;
  }
  const Json::Value& found = profiles[profileKey];
  value = found.isConvertibleTo(Json::stringValue) ? found.asString() : "";
  return true;
}

}  // namespace LibOrvoQMX
