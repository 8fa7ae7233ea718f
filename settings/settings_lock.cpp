#include "settings/settings_lock.h"

#include <unistd.h>

#include "accounts/ownership.h"
#include "platform/io.h"
#include "platform/plat.h"
#include "util/json_utils.h"

namespace settings {

orvo::FileLock HoldSettings() {
  const std::string folder = orvo::SystemPath(kFolder);
  PlatFSMkdirP(folder, 0, 1, geteuid(), getegid(), 0755);
  const std::string path = folder + "/settings.lock";
  auto lock = orvo::FileLock::Wait(path);
  accounts::LeaveToFolderOwner(path);
  return lock;
}

Json::Value ReadSettings(const char* path) {
  Json::Value settings;
  LibMirevo::ReadJsonFromFile(orvo::SystemPath(path), settings);
  return settings.isObject() ? settings : Json::Value(Json::objectValue);
}

bool WriteSettings(const char* path, const Json::Value& settings) {
  const std::string file = orvo::SystemPath(path);
  const bool isWritten = orvo::ReplaceFile(file, LibMirevo::FormatJson(settings));
  if (isWritten) {
    accounts::LeaveToFolderOwner(file);
  }
  return isWritten;
}

}  // namespace settings
