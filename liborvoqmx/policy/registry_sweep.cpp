#include "policy/registry_sweep.h"

#include <sys/stat.h>

#include <string>

#include "platform/plat.h"
#include "policy/lock.h"
#include "util/json_utils.h"
#include "util/system_files.h"

namespace LibMirevo {
namespace {

bool IsAlive(const Json::Value& entry) {
  return entry.isObject() && entry["PID"].isInt() && PlatProcAlive(entry["PID"].asInt());
}

bool HasContent(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && status.st_size > 0;
}

}  // namespace

Json::Value LivingEntries(const Json::Value& stored) {
  Json::Value living(Json::arrayValue);
  if (!stored.isArray()) {
    return living;
  }
  for (const Json::Value& entry : stored) {
    if (IsAlive(entry)) {
      living.append(entry);
    }
  }
  return living;
}

bool StrikeDeadTranscoders() {
  const std::string path = orvo::SystemPath(LibOrvoQMX::kRegistryFile);
  if (!HasContent(path)) {
    return true;
  }
  const Lock lock(path, false);
  Json::Value stored;
  if (!lock.IsLockSucess()) {
    return false;
  }
  if (ReadJsonFromFileWithoutLock(path, stored)) {
    const Json::Value living = LivingEntries(stored);
    return living == stored || WriteJsonToFileWithoutLock(path, living);
  }
  return true;
}

}  // namespace LibMirevo
