#include "policy/trans_loading.h"

#include <sys/stat.h>

#include <cstdlib>

#include "platform/log.h"
#include "platform/plat.h"
#include "policy/platform_utils.h"
#include "policy/registry_sweep.h"
#include "util/json_utils.h"
#include "util/state_reading.h"
#include "util/system_files.h"

namespace LibMirevo {
namespace {

using libmrv::util::PlatformUtils;

constexpr char kPid[] = "PID";
constexpr char kHardware[] = "hardware_transcode";
constexpr char kOffline[] = "offline_conversion";

constexpr double kRemuxBogoMips = 1500.0;

struct Limits {
  unsigned software;
  unsigned hardware;
};

Limits PlatformLimits() {
  const PlatformUtils& platform = PlatformUtils::GetInst();
  if (platform.IsMonaco()) {
    return {0, 1};
  }
  if (platform.IsSupportVaapi()) {
    return {1, 100};
  }
  return platform.IsEvansport() ? Limits{1, 1} : Limits{1, 0};
}

std::string RegistryPath() {
  return orvo::SystemPath(LibOrvoQMX::kRegistryFile);
}

bool HasFlag(const Json::Value& entry, const char* key, bool value) {
  return entry.isObject() && entry[key].isBool() && entry[key].asBool() == value;
}

bool HasPid(const Json::Value& entry) {
  return entry.isObject() && entry[kPid].isInt();
}

}  // namespace

TransLoading::TransLoading()
    : Lock(RegistryPath(), true),
      m_softwareLimit(PlatformLimits().software),
      m_hardwareLimit(PlatformLimits().hardware) {
  if (!IsLockSucess()) {
    ORVO_LOG("TransLoading lock file failed");
  } else if (!ReadAndCheckAlive()) {
    ORVO_LOG("ReadAndCheckAlive failed");
  }
}

TransLoading::~TransLoading() {
  if (!IsLockSucess()) {
    return;
  }
  if (!WriteJsonToFileWithoutLock(m_path, m_entries)) {
    ORVO_LOG("QMX - Failed to write json file [%s].", m_path.c_str());
  }
  // The streams of all users register here.
  fchmod(m_fd, 0777);
}

bool TransLoading::ReadAndCheckAlive() {
  m_entries = Json::Value(Json::arrayValue);
  struct stat status {};
  if (stat(m_path.c_str(), &status) != 0) {
    return false;
  }
  if (status.st_size == 0) {
    return true;
  }
  Json::Value stored;
  const auto reading = orvo::ReadStateJson(m_path, stored);
  if (reading == orvo::JsonReading::kUnreadable) {
    // Without the lock, nothing is admitted, and no empty register is written over the entries.
    UnlockFile();
  }
  if (reading != orvo::JsonReading::kRead) {
    return false;
  }
  m_entries = LivingEntries(stored);
  return true;
}

bool TransLoading::TransEnable(bool hardware) {
  if (!HasLock()) {
    return false;
  }
  if (hardware && !PlatformUtils::GetInst().IsSupportHWTranscode()) {
    return false;
  }
  if (m_entries.empty()) {
    return true;
  }
  return hardware ? HardwareTransEnable() : SoftwareTransEnable();
}

bool TransLoading::SoftwareTransEnable() const {
  return CheckTransEnable(false);
}

bool TransLoading::HardwareTransEnable() const {
  return PlatformUtils::GetInst().IsSupportHWTranscode() && CheckTransEnable(true);
}

bool TransLoading::CheckTransEnable(bool hardware) const {
  unsigned count = 0;
  for (const Json::Value& entry : m_entries) {
    count += HasFlag(entry, kHardware, hardware) ? 1 : 0;
  }
  return count < GetLimit(hardware);
}

bool TransLoading::IsOffineConverting() const {
  if (!HasLock()) {
    return false;
  }
  for (const Json::Value& entry : m_entries) {
    if (HasFlag(entry, kOffline, true)) {
      return true;
    }
  }
  return false;
}

bool TransLoading::SaveTransPID(int pid, bool hardware, bool offline) {
  if (!HasLock()) {
    return false;
  }
  Json::Value entry(Json::objectValue);
  entry[kPid] = pid;
  entry[kHardware] = hardware;
  entry[kOffline] = offline;
  m_entries.append(entry);
  return true;
}

bool TransLoading::RemoveTransPIDLock(int pid) {
  if (!HasLock()) {
    return false;
  }
  Json::Value kept(Json::arrayValue);
  for (const Json::Value& entry : m_entries) {
    if (HasPid(entry) && entry[kPid].asInt() != pid) {
      kept.append(entry);
    }
  }
  m_entries = kept;
  return true;
}

const Json::Value& TransLoading::GetEntries() const {
  return m_entries;
}

unsigned TransLoading::GetLimit(bool hardware) const {
  return hardware ? m_hardwareLimit : m_softwareLimit;
}

bool TransLoading::HasLock() const {
  if (!IsLockSucess()) {
    ORVO_LOG("TransEnable need to lock file");
  }
  return IsLockSucess();
}

void GetMachineTranscodeAndRemux(bool& transcode, bool& remux, bool& hardware) {
  const PlatformUtils& platform = PlatformUtils::GetInst();
  transcode = false;
  hardware = platform.IsSupportHWTranscode();
  const std::string bogoMips = platform.GetCPUInfo("BogoMIPS");
  remux = !bogoMips.empty() && std::strtod(bogoMips.c_str(), nullptr) >= kRemuxBogoMips;
}

bool ForceFFmpegTranscoding(const std::string& container, const std::string& codec,
                            const std::string& profile) {
  const PlatformUtils& platform = PlatformUtils::GetInst();
  if (!platform.IsSupportVaapi()) {
    return !platform.IsMonaco();
  }
  if (platform.IsVaapiFFmpegEnabled() || !platform.IsHWSettingEnabled() || container == "swf" ||
      container == "rm") {
    return true;
  }
  return codec == "vp9" || codec == "dvvideo" || (codec == "hevc" && profile == "Main 10") ||
         (codec == "h264" && profile == "High 10");
}

}  // namespace LibMirevo
