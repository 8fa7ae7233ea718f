#include "policy/platform_utils.h"

#include <json/value.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <memory>
#include <vector>

#include "platform/log.h"
#include "platform/plat.h"
#include "util/json_utils.h"
#include "util/number.h"
#include "util/system_files.h"

namespace libmrv::util {
namespace {

constexpr int kUniqueSize = 256;
constexpr int kCpuInfoLineSize = 128;

struct NameMapping {
  const char* from;
  const char* to;
};

constexpr std::array kDockerHosts = {
    NameMapping{"X64", "x86"},
    NameMapping{"AVOTON", "avoton"},
    NameMapping{"CEDARVIEW", "cedarview"},
    NameMapping{"BROMOLOW", "bromolow"},
};

// The platforms, and the names of the profiles that they use. For "alpine" models, evansport and
// containers the name alone does not decide.
constexpr std::array kProfileNames = {
    NameMapping{"cedarview", "cedarview"}, NameMapping{"kvmx64", "cedarview"},
    NameMapping{"bromolow", "bromolow"},   NameMapping{"broadwell", "bromolow"},
    NameMapping{"avoton", "avoton"},       NameMapping{"braswell", "braswell"},
    NameMapping{"monaco", "monaco"},       NameMapping{"apollolake", "braswell"},
};

template <size_t N>
std::string MapName(const std::array<NameMapping, N>& table, const std::string& name,
                    const char* otherwise) {
  for (const NameMapping& row : table) {
    if (name == row.from) {
      return row.to;
    }
  }
  return otherwise;
}

// Splits at each separator. Empty fields count; a separator at the end adds no field.
std::vector<std::string> SplitFields(const std::string& text, char separator) {
  std::vector<std::string> fields;
  size_t start = 0;
  while (start < text.size()) {
    const size_t end = text.find(separator, start);
    fields.push_back(text.substr(start, end - start));
    if (end == std::string::npos) {
      break;
    }
    start = end + 1;
  }
  return fields;
}

// A boolean member of a JSON file; `otherwise` if it cannot be read.
bool ReadSwitch(const char* path, const char* key, bool otherwise) {
  Json::Value settings;
  if (!LibMirevo::ReadJsonFromFile(orvo::SystemPath(path), settings) || !settings.isObject()) {
    return otherwise;
  }
  const Json::Value& value = settings[key];
  return value.isBool() ? value.asBool() : otherwise;
}

}  // namespace

PlatformUtils::PlatformUtils() {
  GetPlatformName();
}

PlatformUtils& PlatformUtils::GetInst() {
  static PlatformUtils instance;
  return instance;
}

bool PlatformUtils::IsEvansport() const {
  return m_platform == "evansport";
}
bool PlatformUtils::IsBraswell() const {
  return m_platform == "braswell";
}
bool PlatformUtils::IsMonaco() const {
  return m_platform == "monaco";
}
bool PlatformUtils::IsApolloLake() const {
  return m_platform == "apollolake";
}
bool PlatformUtils::IsSupportVaapi() const {
  return IsBraswell() || IsApolloLake();
}
bool PlatformUtils::IsSupportGstreamer() const {
  return IsSupportVaapi() || IsMonaco();
}
bool PlatformUtils::IsSupportHWTranscode() const {
  return IsSupportGstreamer() || IsEvansport();
}

bool PlatformUtils::IsHWSettingEnabled() const {
  if (IsMonaco()) {
    return true;
  }
  return IsSupportHWTranscode() &&
         ReadSwitch(LibOrvoQMX::kAdvancedFile, "hardware_transcode", true);
}

bool PlatformUtils::IsVaapiFFmpegEnabled() const {
  return IsBraswell() && IsHWSettingEnabled() &&
         ReadSwitch(LibOrvoQMX::kVaapiFile, "enable", false);
}

std::string PlatformUtils::GetHostPlatformName() const {
  std::ifstream file(orvo::SystemPath(LibOrvoQMX::kHostPlatformFile));
  std::string line;
  std::getline(file, line);
  return line;
}

std::string PlatformUtils::GetDockerHostPlatformName() {
  if (m_dockerHostPlatform.empty()) {
    m_dockerHostPlatform = MapName(kDockerHosts, GetHostPlatformName(), "x86");
  }
  return m_dockerHostPlatform;
}

std::string PlatformUtils::GetCPUInfo(const std::string& key) const {
  if (key.empty()) {
    ORVO_LOG("Bad parameter");
    return "";
  }
  const std::string path = orvo::SystemPath(LibOrvoQMX::kCpuInfoFile);
  const std::unique_ptr<FILE, decltype(&fclose)> file(fopen(path.c_str(), "re"), fclose);
  if (!file) {
    ORVO_LOG("Failed to open file [%s]", path.c_str());
    return "";
  }
  std::array<char, kCpuInfoLineSize> line{};
  while (fgets(line.data(), line.size(), file.get()) != nullptr) {
    const std::vector<std::string> fields = SplitFields(line.data(), ':');
    if (fields.size() == 2 && fields[0].find(key) != std::string::npos) {
      return fields[1];
    }
  }
  return "";
}

std::string PlatformUtils::GetTransPlatformName() {
  const bool isAlpine = m_platform.find("alpine") != std::string::npos;
  const bool isSingleCore = LibOrvoQMX::LeadingNumber(GetCPUInfo("cpu cores")) < 2;
  int level = isSingleCore && !IsMonaco() && !isAlpine && m_platform != "kvmx64" ? 1 : 2;

  std::string name;
  if (isAlpine) {
    name = "cedarview";
  } else if (IsEvansport()) {
    const bool useHardware = IsHWSettingEnabled();
    name = useHardware ? "evansport" : "x86";
    level = useHardware ? level : 1;
  } else if (m_platform == "dockerx64") {
    name = GetDockerHostPlatformName();
  } else {
    name = MapName(kProfileNames, m_platform, "x86");
  }
  return name + "_" + std::to_string(level);
}

bool PlatformUtils::ParsePlatform(const std::string& unique, std::string& platform) const {
  const std::vector<std::string> fields = SplitFields(unique, '_');
  if (fields.size() < 2) {
    return false;
  }
  platform = fields[1];
  return true;
}

void PlatformUtils::GetPlatformName() {
  std::array<char, kUniqueSize> unique{};
  if (PlatFileGetKeyValue(orvo::SystemPath(LibOrvoQMX::kApplianceFile), "unique", unique.data(),
                          kUniqueSize, 0) > 0) {
    ParsePlatform(unique.data(), m_platform);
  }
}

}  // namespace libmrv::util
