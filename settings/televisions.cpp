#include "settings/televisions.h"

#include <fstream>

#include "accounts/secrets.h"
#include "settings/settings_lock.h"

namespace settings {
namespace {

constexpr char kOn[] = "on";
constexpr char kAccount[] = "account";
constexpr char kDevice[] = "device";
constexpr char kKey[] = "key";
constexpr char kWord[] = "word";
constexpr mode_t kMode = 0600;
constexpr size_t kDeviceLength = 36;

std::string TextIn(const Json::Value& settings, const char* name) {
  return settings[name].isString() ? settings[name].asString() : "";
}

bool IsDevice(const std::string& text) {
  return text.size() == kDeviceLength &&
         text.find_first_not_of("0123456789abcdef-") == std::string::npos;
}

// "" without the kernel's file.
std::string NewDevice() {
  std::ifstream file("/proc/sys/kernel/random/uuid");
  std::string device;
  std::getline(file, device);
  return device;
}

void MakeSecret(Json::Value& settings, const char* name) {
  if (!accounts::IsSecret(TextIn(settings, name))) {
    settings[name] = accounts::NewSecret();
  }
}

}  // namespace

Televisions ReadTelevisions() {
  const Json::Value settings = ReadSettings(kTelevisionsFile);
  Televisions televisions{settings[kOn] == true, TextIn(settings, kAccount),
                          TextIn(settings, kDevice), TextIn(settings, kKey),
                          TextIn(settings, kWord)};
  televisions.areLetIn = televisions.areLetIn && IsDevice(televisions.device) &&
                         accounts::IsSecret(televisions.key) &&
                         accounts::IsSecret(televisions.word);
  return televisions;
}

Outcome LetTelevisionsIn(const std::string& account) {
  const auto change = [&](Json::Value& settings) {
    settings[kOn] = true;
    settings[kAccount] = account;
    if (!IsDevice(TextIn(settings, kDevice))) {
      settings[kDevice] = NewDevice();
    }
    MakeSecret(settings, kKey);
    MakeSecret(settings, kWord);
  };
  return ChangeSettings(kTelevisionsFile, change, kMode);
}

Outcome KeepTelevisionsOut() {
  return ChangeSettings(
      kTelevisionsFile, [](Json::Value& settings) { settings[kOn] = false; }, kMode);
}

}  // namespace settings
