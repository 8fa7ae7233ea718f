#include "webapi/choice/speed_measurement.h"

#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/plat.h"
#include "transcoder/filters.h"
#include "util/system_files.h"
#include "webapi/choice/machine_speed.h"

namespace webapi {
namespace {

using Clock = std::chrono::steady_clock;
using Strings = std::vector<std::string>;

constexpr char kFfmpeg[] = "/usr/bin/ffmpeg";
// A machine that takes longer makes no films in time anyway.
constexpr auto kTimeLimit = std::chrono::minutes(30);
constexpr double kMostProcessorSeconds = 60;
// Cheaper than this is what cannot be told from noise.
constexpr double kLeastCost = 1e-5;

// A size with its number of pictures, which makes the work long enough to be told from noise, and
// with the rate of films that have it.
struct Size {
  unsigned width;
  unsigned height;
  int pictures;
  const char* rate;
  std::string Text() const { return std::to_string(width) + "x" + std::to_string(height); }
};
constexpr Size kSmall = {640, 360, 96, "1M"};
constexpr Size kFull = {1920, 1080, 16, "6M"};

// How films are made for the decoders. The first encoder that FFmpeg has is used.
struct Source {
  const char* codec;
  const char* options;
};
constexpr auto kSources = std::to_array<Source>({
    {"h264", "-c:v libx264 -preset superfast"},
    {"hevc", "-c:v libx265 -preset ultrafast -x265-params log-level=none"},
    {"vp9", "-c:v libvpx-vp9 -deadline realtime -cpu-used 8 -row-mt 1"},
    {"av1", "-c:v libsvtav1 -preset 12"},
});

// The encoders of the profiles, as "-vcodec" and "-preset" name them.
struct Target {
  const char* encoder;
  const char* options;
  const char* size;
};
constexpr auto kTargets = std::to_array<Target>({
    {"libx264 superfast", "-c:v libx264 -preset superfast", "854x480"},
    {"libx264 superfast", "-c:v libx264 -preset superfast", "1280x720"},
    {"libx264 superfast", "-c:v libx264 -preset superfast", "1920x1080"},
    {"libx264 veryfast", "-c:v libx264 -preset veryfast", "854x480"},
    {"libx264 veryfast", "-c:v libx264 -preset veryfast", "1280x720"},
    {"libx264 veryfast", "-c:v libx264 -preset veryfast", "1920x1080"},
    {"libvpx", "-c:v libvpx -deadline realtime -cpu-used -6 -threads 1", "854x480"},
    {"libvpx-vp9", "-c:v libvpx-vp9 -deadline realtime -cpu-used 7 -row-mt 1", "854x480"},
});

Strings Words(const std::string& text) {
  Strings words;
  size_t start = 0;
  for (size_t end = 0; start < text.size(); start = end + 1) {
    end = std::min(text.find(' ', start), text.size());
    words.push_back(text.substr(start, end - start));
  }
  return words;
}

double ChildrensTime() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// A folder that is removed with all in it. What a measurement that was killed has left there is
// removed by the next one.
class WorkFolder {
 public:
  WorkFolder() {
    Remove();
    isMade_ = libmrv::critical::orvosdk::ORVOFSMkdirPMirevo(path_, 0700);
  }
  ~WorkFolder() { Remove(); }
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;

  bool IsMade() const { return isMade_; }
  std::string Film(const std::string& codec, const Size& size) const {
    return path_ + "/" + codec + size.Text() + ".mkv";
  }

 private:
  void Remove() const {
    std::error_code none;
    std::filesystem::remove_all(path_, none);
  }

  std::string path_ = orvo::SystemPath(LibOrvoQMX::kCacheFolder) + "/measurement";
  bool isMade_ = false;
};

class Measurement {
 public:
  bool Finish() {
    MachineSpeed speed = MachineSpeed::Load();
    if (!folder_.IsMade() || !MeasureStart()) {
      return false;
    }
    // The encoders read a film of H.264.
    MeasureDecoder(kSources.front(), kFull);
    for (const Target& target : kTargets) {
      MeasureEncoder(target);
    }
    MeasureTones();
    MeasureDecoder(kSources.front(), kSmall);
    for (size_t i = 1; i < kSources.size(); ++i) {
      MeasureDecoder(kSources[i], kSmall);
      MeasureDecoder(kSources[i], kFull);
    }
    speed.SetCosts(costs_);
    return !costs_.empty() && speed.Save();
  }

 private:
  // The processor time of one run; nothing if it fails or there is no time left.
  std::optional<double> Run(const Strings& arguments) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline_ - Clock::now()).count();
    Strings command = {kFfmpeg, "-nostdin", "-v", "fatal", "-y"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const double before = ChildrensTime();
    const bool isDone = left > 0 && before < kMostProcessorSeconds &&
                        orvo::RunWithin(kFfmpeg, command, static_cast<int>(left)) == 0;
    return isDone ? std::optional(ChildrensTime() - before) : std::nullopt;
  }

  // What FFmpeg itself needs.
  bool MeasureStart() {
    const auto cost = Run(Words("-f lavfi -i color=s=16x16 -frames:v 1 -f null -"));
    start_ = cost.value_or(0);
    return cost.has_value();
  }

  // `cost`: of all pictures of the film that was read.
  void Keep(const std::string& work, const Size& read, double cost) {
    costs_[work] = std::max(cost / read.pictures, kLeastCost);
  }

  void MeasureDecoder(const Source& source, const Size& size) {
    const std::string film = folder_.Film(source.codec, size);
    const std::string picture =
        "testsrc2=s=" + size.Text() + ":r=24,noise=alls=8:allf=t,format=yuv420p";
    Strings make = {"-f",   "lavfi",  "-i", picture, "-frames:v", std::to_string(size.pictures),
                    "-b:v", size.rate};
    for (const std::string& word : Words(source.options)) {
      make.push_back(word);
    }
    make.push_back(film);
    const auto cost = Run(make) ? Run({"-i", film, "-f", "null", "-"}) : std::nullopt;
    if (cost) {
      Keep(std::string("decode ") + source.codec + " " + size.Text(), size, *cost - start_);
    }
  }

  // Reads the large film of H.264 and does something to its pictures. Returns the cost of that.
  std::optional<double> Convert(const std::string& filters, const std::string& options) {
    Strings arguments = {"-i", folder_.Film("h264", kFull), "-vf", filters};
    for (const std::string& word : Words(options)) {
      arguments.push_back(word);
    }
    const auto cost = Run(arguments);
    const double reading =
        start_ + costs_["decode h264 " + kFull.Text()].asDouble() * kFull.pictures;
    return cost ? std::optional(*cost - reading) : std::nullopt;
  }

  void MeasureEncoder(const Target& target) {
    std::string scaler = target.size;
    scaler[scaler.find('x')] = ':';
    const auto cost = Convert("scale=" + scaler, std::string(target.options) + " -f null -");
    if (cost) {
      Keep(std::string("encode ") + target.encoder + " " + target.size, kFull, *cost);
    }
  }

  void MeasureTones() {
    constexpr orvo::transcoder::HighRange kPq = {16, 9, 9, false};
    constexpr char kTagged[] =
        "scale=1280:720,setparams=color_primaries=bt2020:color_trc=smpte2084:colorspace=bt2020nc,";
    const auto cost = Convert(kTagged + orvo::transcoder::ToneMapping(kPq), "-f null -");
    if (cost) {
      Keep("tone 1280x720", kFull, *cost);
    }
  }

  Clock::time_point deadline_ = Clock::now() + kTimeLimit;
  WorkFolder folder_;
  double start_ = 0;
  Json::Value costs_{Json::objectValue};
};

}  // namespace

bool MeasureMachine() {
  return Measurement().Finish();
}

}  // namespace webapi
