#include "serve/machine_setup.h"

#include <json/value.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <string_view>
#include <vector>

#include "platform/io.h"
#include "platform/plat.h"
#include "settings/hardware.h"
#include "util/qmxutils.h"
#include "util/system_files.h"

namespace serve {
namespace {

using orvo::transcoder::EngineRecord;

constexpr int kProofMilliseconds = 300000;
constexpr char kKey[] = "unique";
constexpr char kDetected[] = "detected";
constexpr char kOwn[] = "own";
constexpr char kFolder[] = "/etc.defaults";
constexpr char kVaapiPlatform[] = "braswell";      // whose rules let VA-API be switched on
constexpr char kWrapperPlatform[] = "apollolake";  // whose engines GStreamer drives
constexpr char kPlainPlatform[] = "x86";
constexpr char kArmPlatform[] = "alpine";

constexpr auto kPlatforms = std::to_array<std::string_view>(
    {"alpine", "apollolake", "avoton", "braswell", "broadwell", "bromolow", "cedarview",
     "dockerx64", "evansport", "kvmx64", "monaco", "x86"});

bool IsKeysLine(const std::string& line) {
  const size_t start = line.find_first_not_of(" \t");
  return start != std::string::npos && line.compare(start, sizeof kKey - 1, kKey) == 0;
}

// All other lines stay. A file that cannot be read stays as it is.
bool WriteEntry(const std::string& name, const char* origin) {
  const std::string path = orvo::SystemPath(LibOrvoQMX::kApplianceFile);
  errno = 0;
  std::ifstream file(path);
  if (!file.is_open() && errno != ENOENT) {
    return false;
  }
  std::string text;
  for (std::string line; std::getline(file, line);) {
    text += IsKeysLine(line) ? "" : line + "\n";
  }
  return !file.bad() &&
         orvo::ReplaceFile(path, text + kKey + "=\"orvo_" + name + "_" + origin + "\"\n");
}

}  // namespace

EngineRecord ProveEngines() {
  const std::string program = orvo::SystemPath(LibOrvoQMX::kTranscoder);
  return orvo::RunWithin(program, {program, "--prove"}, kProofMilliseconds) == 0
             ? EngineRecord::Load()
             : EngineRecord();
}

PlatformEntry ReadPlatformEntry() {
  std::array<char, 256> value{};
  const int length = PlatFileGetKeyValue(orvo::SystemPath(LibOrvoQMX::kApplianceFile), kKey,
                                         value.data(), static_cast<int>(value.size()), 0);
  const auto fields =
      LibOrvoQMX::StringExplode(length > 0 ? std::string(value.data()) : std::string(), "_");
  PlatformEntry entry;
  entry.name = fields.size() > 1 ? fields[1] : "";
  entry.isDetected = fields.size() > 2 && fields[2] == kDetected;
  return entry;
}

bool IsPlatformName(const std::string& name) {
  return std::find(kPlatforms.begin(), kPlatforms.end(), name) != kPlatforms.end();
}

std::string PlatformNames() {
  std::string names;
  for (const std::string_view name : kPlatforms) {
    names.append(names.empty() ? "" : ", ").append(name);
  }
  return names;
}

bool NamePlatform(const std::string& name) {
  libmrv::critical::orvosdk::ORVOFSMkdirPMirevo(orvo::SystemPath(kFolder), 0755);
  return WriteEntry(name, kOwn);
}

std::string DetectedPlatform(const EngineRecord& engines) {
  if (engines.Serving(orvo::transcoder::kVaapiEncoder)) {
    return kVaapiPlatform;
  }
  if (engines.Proved(orvo::transcoder::kWrapper)) {
    return kWrapperPlatform;
  }
  utsname system{};
  uname(&system);
  const std::string_view machine = system.machine;
  return machine.starts_with("arm") || machine.starts_with("aarch") ? kArmPlatform : kPlainPlatform;
}

bool DetectMachine(const EngineRecord& engines) {
  const PlatformEntry entry = ReadPlatformEntry();
  const bool isOwners = !entry.name.empty() && !entry.isDetected;
  if (isOwners || access(orvo::SystemPath(kFolder).c_str(), F_OK) != 0) {
    return true;
  }
  const std::string name = DetectedPlatform(engines);
  const bool isWritten = name == entry.name || WriteEntry(name, kDetected);
  const auto outcome = settings::DetectVaapi(name == kVaapiPlatform);
  return outcome == settings::Outcome::kDone && isWritten;
}

}  // namespace serve
