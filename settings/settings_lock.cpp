#include "settings/settings_lock.h"

#include <unistd.h>

#include <cerrno>
#include <optional>
#include <utility>

#include "accounts/ownership.h"
#include "platform/io.h"
#include "platform/log.h"
#include "platform/plat.h"
#include "util/json_utils.h"
#include "util/state_reading.h"

namespace settings {
namespace {

// Empty without the file. Nothing if it cannot be read or is no object.
std::optional<Json::Value> ReadObject(const char* path) {
  Json::Value content(Json::objectValue);
  const auto reading = orvo::ReadStateJson(orvo::SystemPath(path), content);
  const bool isKnown = reading == orvo::JsonReading::kRead || reading == orvo::JsonReading::kAbsent;
  return isKnown && content.isObject() ? std::optional(std::move(content)) : std::nullopt;
}

}  // namespace

orvo::FileLock HoldSettings() {
  const std::string folder = orvo::SystemPath(kFolder);
  PlatFSMkdirP(folder, 0, 1, geteuid(), getegid(), 0755);
  const std::string path = folder + "/settings.lock";
  auto lock = orvo::FileLock::Wait(path);
  accounts::LeaveToFolderOwner(path);
  return lock;
}

Json::Value ReadSettings(const char* path) {
  return ReadObject(path).value_or(Json::Value(Json::objectValue));
}

Outcome ChangeSettings(const char* path, const std::function<void(Json::Value& settings)>& change,
                       mode_t mode) {
  const auto lock = HoldSettings();
  if (!lock.IsHeld()) {
    errno = EACCES;
    return Outcome::kFailed;
  }
  const auto stored = ReadObject(path);
  if (!stored) {
    ORVO_LOG("The settings in [%s] cannot be read; they stay as they are",
             orvo::SystemPath(path).c_str());
    return Outcome::kDamaged;
  }
  Json::Value settings = *stored;
  change(settings);
  return settings == *stored || WriteSettings(path, settings, mode) ? Outcome::kDone
                                                                    : Outcome::kFailed;
}

bool WriteSettings(const char* path, const Json::Value& settings, mode_t mode) {
  const std::string file = orvo::SystemPath(path);
  const bool isWritten = orvo::ReplaceFile(file, LibMirevo::FormatJson(settings), mode);
  if (isWritten) {
    accounts::LeaveToFolderOwner(file);
  }
  return isWritten;
}

const char* Describe(Outcome outcome) {
  switch (outcome) {
    case Outcome::kDone:
      return "Done.";
    case Outcome::kDamaged:
      return "A file of the settings is damaged. The log of the service names it. Repair or remove "
             "it.";
    case Outcome::kFailed:
      break;
  }
  return "The setting could not be written.";
}

}  // namespace settings
