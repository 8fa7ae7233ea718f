#include "convert/live_transcoders.h"

#include <json/value.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "platform/pidfd.h"
#include "platform/plat.h"
#include "policy/trans_loading.h"
#include "util/json_utils.h"
#include "util/system_files.h"

namespace convert {
namespace {

// A viewer who has asked comes within this time, or not at all.
constexpr std::chrono::seconds kPatience(30);
// A seek ends a transcoder and starts the next one. The time between is not the end.
constexpr std::chrono::seconds kQuiet(3);

bool IsConversion(const Json::Value& entry) {
  return entry["offline_conversion"].isBool() && entry["offline_conversion"].asBool();
}

bool IsLive(const Json::Value& entry) {
  return entry.isObject() && entry["PID"].isInt() && !IsConversion(entry) &&
         PlatProcAlive(entry["PID"].asInt());
}

bool HasLive(const Json::Value& entries) {
  return std::any_of(entries.begin(), entries.end(), IsLive);
}

}  // namespace

LiveTranscoders::LiveTranscoders() : changes_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  const LibMirevo::TransLoading made;  // the folder and the file
  const std::string path = orvo::SystemPath(LibOrvoQMX::kRegistryFile);
  inotify_add_watch(changes_.Get(), path.c_str(), IN_MODIFY | IN_CLOSE_WRITE);
}

void LiveTranscoders::Look() {
  std::array<char, 4096> events{};
  while (read(changes_.Get(), events.data(), events.size()) > 0) {
  }
  Json::Value entries;
  LibMirevo::ReadJsonFromFile(orvo::SystemPath(LibOrvoQMX::kRegistryFile), entries);
  processes_.clear();
  for (const Json::Value& entry : entries) {
    if (IsLive(entry)) {
      processes_.push_back(orvo::OpenProcess(entry["PID"].asInt()));
    }
  }
}

bool EnterConversion(const std::function<int()>& start) {
  LibMirevo::TransLoading registry;
  if (!registry.IsLockSucess() || HasLive(registry.GetEntries()) || !registry.TransEnable(false)) {
    return false;
  }
  const int pid = start();
  return pid > 0 && registry.SaveTransPID(pid, false, true);
}

void RemoveConversion(int pid) {
  LibMirevo::TransLoading().RemoveTransPIDLock(pid);
}

void RightOfWay::Yield(Clock::time_point now) {
  asked_ = now;
  until_ = now + kPatience;
  hasCome_ = false;
}

bool RightOfWay::MayRun(Clock::time_point now, bool isLive) {
  if (!asked_) {
    return true;
  }
  if (isLive) {
    hasCome_ = true;
    until_.reset();
    return false;
  }
  if (hasCome_ && !until_) {
    until_ = now + kQuiet;
  }
  if (now < *until_) {
    return false;
  }
  asked_.reset();
  until_.reset();
  return true;
}

}  // namespace convert
