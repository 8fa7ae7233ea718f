#include "settings/limits.h"

#include "settings/settings_lock.h"

namespace settings {
namespace {

constexpr char kFile[] = "/var/packages/Mirevo/etc/limits";

}  // namespace

int ValueOf(const Limit& limit) {
  const Json::Value value = ReadSettings(kFile)[limit.name];
  const bool isGood = value.isInt() && value.asInt() >= limit.least && value.asInt() <= limit.most;
  return isGood ? value.asInt() : limit.usual;
}

Outcome Set(const Limit& limit, int value) {
  return ChangeSettings(kFile, [&](Json::Value& values) { values[limit.name] = value; });
}

}  // namespace settings
