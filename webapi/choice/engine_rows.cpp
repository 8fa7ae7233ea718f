#include "webapi/choice/engine_rows.h"

#include <algorithm>

#include "platform/plat.h"
#include "policy/argument_helper.h"
#include "policy/platform_utils.h"
#include "policy/profile_traits.h"
#include "transcoder/engines.h"
#include "util/json_utils.h"
#include "util/qmxutils.h"
#include "util/system_files.h"
#include "webapi/http/number.h"

namespace webapi {
namespace {

using libmrv::util::PlatformUtils;
using orvo::transcoder::EngineRecord;
using orvo::transcoder::kVaapiEncoder;

std::string ValueOf(const std::vector<std::string>& arguments, const std::string& option) {
  const auto found = std::find(arguments.begin(), arguments.end(), option);
  return found == arguments.end() || found + 1 == arguments.end() ? "" : *(found + 1);
}

// The height in "1280x720". Some profiles name only a height.
unsigned HeightIn(const std::string& size) {
  const size_t x = size.find('x');
  const std::string height = x == std::string::npos ? size : size.substr(x + 1);
  return static_cast<unsigned>(ParseNumber(height).value_or(0));
}

struct EngineRow {
  std::string encoder;  // "" for a profile that needs no engine
  int lines = 0;
};

EngineRow RowOf(const std::string& profileValue) {
  const auto arguments = LibOrvoQMX::StringExplode(profileValue, " \n");
  const bool isWrapped = LibOrvoQMX::ProfileTraits::Of(profileValue).gstreamer;
  const std::string encoder =
      isWrapped ? orvo::transcoder::kWrapper : ValueOf(arguments, "-vcodec");
  if (!orvo::transcoder::IsEngine(encoder)) {
    return {};
  }
  return {encoder, std::max(1, static_cast<int>(LinesOf(profileValue)))};
}

// The platforms' own question where they have one; the administrator's switch elsewhere.
bool IsWanted(const std::string& encoder) {
  const PlatformUtils& platform = PlatformUtils::GetInst();
  if (encoder == kVaapiEncoder) {
    return platform.IsVaapiFFmpegEnabled();
  }
  if (platform.IsSupportHWTranscode()) {
    return platform.IsHWSettingEnabled();
  }
  Json::Value settings;
  LibMirevo::ReadJsonFromFile(orvo::SystemPath(LibOrvoQMX::kAdvancedFile), settings);
  return !settings.isObject() || settings["hardware_transcode"] != false;
}

bool IsUsable(const EngineRow& row, const EngineRecord& record) {
  const auto engine = record.Serving(row.encoder);
  return IsWanted(row.encoder) && engine && engine->lines >= row.lines;
}

}  // namespace

unsigned LinesOf(const std::string& profileValue) {
  const auto arguments = LibOrvoQMX::StringExplode(profileValue, " \n");
  const std::string size = ValueOf(arguments, "-s") + ValueOf(arguments, "--size");
  unsigned width = 0;
  unsigned height = 0;
  LibOrvoQMX::ArgumentHelper::MapVideoSize(size, width, height);
  return height != 0 ? height : HeightIn(size);
}

std::vector<Profile> WithoutUnprovedEngines(std::vector<Profile> profiles) {
  const bool hasEngines = std::any_of(profiles.begin(), profiles.end(), [](const Profile& profile) {
    return !RowOf(profile.value).encoder.empty();
  });
  if (!hasEngines) {
    return profiles;  // the record takes a look at all drivers and devices
  }
  const EngineRecord record = EngineRecord::Load();
  const auto isUnproved = [&](const Profile& profile) {
    const EngineRow row = RowOf(profile.value);
    return !row.encoder.empty() && !IsUsable(row, record);
  };
  const bool hasOthers = std::any_of(profiles.begin(), profiles.end(), [&](const Profile& profile) {
    return RowOf(profile.value).encoder.empty() &&
           !LibOrvoQMX::ProfileTraits::Of(profile.value).remux &&
           profile.value.find("wmv2") == std::string::npos;
  });
  if (hasOthers) {
    std::erase_if(profiles, isUnproved);
  }
  return profiles;
}

bool RunsOnHardware(const std::string& profileValue) {
  const auto traits = LibOrvoQMX::ProfileTraits::Of(profileValue);
  const EngineRow row = RowOf(profileValue);
  return traits.hardware &&
         (row.encoder.empty() || EngineRecord::Load().Serving(row.encoder).has_value());
}

Json::Value DescribeEngines() {
  const EngineRecord record = EngineRecord::Load();
  Json::Value list(Json::arrayValue);
  for (const orvo::transcoder::Engine& engine : record.All()) {
    if (engine.node.empty()) {
      continue;
    }
    Json::Value& entry = list.append(Json::Value(Json::objectValue));
    entry["encoder"] = engine.encoder;
    entry["device"] = engine.node;
    entry["lines"] = engine.lines;
    entry["speed"] = engine.speed;
    entry["reason"] = engine.reason;
  }
  return list;
}

}  // namespace webapi
