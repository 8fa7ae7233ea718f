#include "webapi/choice/machine_speed.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>

#include "platform/io.h"
#include "platform/plat.h"
#include "util/file_state.h"
#include "util/json_utils.h"
#include "util/system_files.h"
#include "webapi/library/film_traits.h"

namespace webapi {
namespace {

constexpr char kFile[] = "/machine_speed.json";
constexpr char kFfmpeg[] = "/usr/bin/ffmpeg";
constexpr char kDriver[] = "/sys/class/drm/renderD128/device/driver";
constexpr int kVersion = 1;  // of the file's format

// The share of all cores that an encoder can use; the rest is waiting.
constexpr double kUsableShare = 0.85;
// A new experience counts for this much.
constexpr double kWeight = 0.5;
constexpr double kLeastCorrection = 0.2;
constexpr double kMostCorrection = 5;
constexpr double kSameCorrection = 0.1;

constexpr double kUsualRate = 25;  // pictures a second of a film that does not say

long Cores() {
  return std::max(1L, sysconf(_SC_NPROCESSORS_ONLN));
}

// Identifies what the costs depend on.
std::string MachineText() {
  std::error_code none;
  const auto ffmpeg = orvo::FileState::Of(kFfmpeg);
  return std::to_string(Cores()) + " cores, ffmpeg " + (ffmpeg ? ffmpeg->text : "missing") +
         ", driver " + std::filesystem::read_symlink(kDriver, none).filename().string();
}

std::string Folder() {
  return orvo::SystemPath(LibOrvoQMX::kCacheFolder);
}

// The object `name` of a file that anyone may have damaged.
Json::Value NumbersIn(const Json::Value& file, const char* name) {
  Json::Value numbers(Json::objectValue);
  if (file[name].isObject()) {
    for (const std::string& key : file[name].getMemberNames()) {
      const Json::Value& value = file[name][key];
      if (value.isDouble() && value.asDouble() > 0) {
        numbers[key] = value;
      }
    }
  }
  return numbers;
}

// The pixels in the size at a row's end: "decode h264 640x360".
double PixelsOf(const std::string& row) {
  const std::string size = row.substr(row.rfind(' ') + 1);
  char* rest = nullptr;
  const double width = std::strtod(size.c_str(), &rest);
  return *rest == 'x' ? width * std::strtod(rest + 1, nullptr) : 0;
}

std::string CorrectionKey(const Conversion& conversion) {
  return conversion.codec + (conversion.isHighRange ? " high " : " ") + conversion.encoder;
}

}  // namespace

Conversion ConversionFrom(const LibOrvoQMX::VideoMetaData& film) {
  Conversion conversion;
  conversion.codec = film.GetFirstVideoMemberString("codec_raw");
  conversion.width = film.GetVideoResolutionX();
  conversion.height = film.GetVideoResolutionY();
  conversion.rate = film.GetVideoFramerate() > 0 ? film.GetVideoFramerate() : kUsualRate;
  conversion.isHighRange = !HighRangeOf(film).empty();
  return conversion;
}

bool IsMachineSpeed(const std::string& name) {
  return "/" + name == kFile;
}

MachineSpeed MachineSpeed::Load() {
  MachineSpeed speed;
  Json::Value file;
  const bool isRead = LibMirevo::ReadJsonFromFileWithoutLock(Folder() + kFile, file);
  if (isRead && file.isObject() && file["version"] == kVersion &&
      file["machine"] == MachineText()) {
    speed.costs_ = NumbersIn(file, "costs");
    speed.corrections_ = NumbersIn(file, "corrections");
  }
  return speed;
}

// The row whose size is nearest, in proportion to its pixels.
double MachineSpeed::CostOf(const std::string& work, unsigned width, unsigned height) const {
  const double pixels = static_cast<double>(width) * height;
  double best = 0;
  double distance = 0;
  for (const std::string& row : costs_.getMemberNames()) {
    const double measured = PixelsOf(row);
    if (row.rfind(work + " ", 0) != 0 || measured <= 0 || pixels <= 0) {
      continue;
    }
    const double away = std::fabs(std::log(pixels / measured));
    if (best == 0 || away < distance) {
      best = costs_[row].asDouble() * pixels / measured;
      distance = away;
    }
  }
  return best;
}

double MachineSpeed::Correction(const Conversion& conversion) const {
  const Json::Value& kept = corrections_[CorrectionKey(conversion)];
  return kept.isDouble() ? std::clamp(kept.asDouble(), kLeastCorrection, kMostCorrection) : 1;
}

double MachineSpeed::Predicted(const Conversion& conversion) const {
  const double decoding = CostOf("decode " + conversion.codec, conversion.width, conversion.height);
  const double encoding =
      CostOf("encode " + conversion.encoder, conversion.outWidth, conversion.outHeight);
  const double mapping =
      conversion.isHighRange ? CostOf("tone", conversion.outWidth, conversion.outHeight) : 0;
  return decoding > 0 && encoding > 0 ? (decoding + encoding + mapping) * conversion.rate : 0;
}

double MachineSpeed::Of(const Conversion& conversion) const {
  const double cost = Predicted(conversion) * Correction(conversion);
  if (cost <= 0) {
    return 0;
  }
  const double whole = static_cast<double>(Cores()) * kUsableShare / cost;
  const double encoding =
      CostOf("encode " + conversion.encoder, conversion.outWidth, conversion.outHeight);
  return conversion.threads == 0
             ? whole
             : std::min(whole, conversion.threads / (encoding * conversion.rate));
}

bool MachineSpeed::Learn(const Conversion& conversion, double processorSeconds) {
  const double predicted = Predicted(conversion);
  if (predicted <= 0 || processorSeconds <= 0) {
    return false;
  }
  const double before = Correction(conversion);
  const double seen = std::clamp(processorSeconds / predicted, kLeastCorrection, kMostCorrection);
  if (std::fabs(seen / before - 1) < kSameCorrection) {
    return false;
  }
  corrections_[CorrectionKey(conversion)] = before * (1 - kWeight) + seen * kWeight;
  return true;
}

bool MachineSpeed::Save() const {
  Json::Value file(Json::objectValue);
  file["version"] = kVersion;
  file["machine"] = MachineText();
  file["costs"] = costs_;
  file["corrections"] = corrections_;
  return libmrv::critical::orvosdk::ORVOFSMkdirPMirevo(Folder(), 0755) &&
         orvo::ReplaceFile(Folder() + kFile, LibMirevo::FormatJson(file));
}

}  // namespace webapi
