#include "transcoder/cmaf_command.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "liborvoqmx/util/media_formats.h"
#include "transcoder/filters.h"

namespace orvo::transcoder {
namespace {

using Strings = std::vector<std::string>;

constexpr int kSoundRate = 48000;
constexpr int kAacFrame = 1024;
// Encoded sound needs some frames before it is right.
constexpr int64_t kLeadFrames = 4;
// A run is entered this much before its sound, so that no stored order of packets loses any.
constexpr double kSoundEntry = 1.0;
constexpr double kPictureEntry = 0.001;
// A film without an index is entered between two key frames, and the pictures up to the next one
// are lost. A copy is entered just before the key frame of its cut.
constexpr double kUnindexedEntry = -6.0;
constexpr double kUnindexedCopyEntry = -1.0;
// Key frames are forced a little early, because FFmpeg compares rounded times.
constexpr double kForceEarly = 0.002;
// The command line has room for so many times. A run ends behind the last of them.
constexpr int kForcedCuts = 2000;

struct Level {
  int lines;
  int frames;  // a second
  const char* name;
};
constexpr auto kLevels = std::to_array<Level>({
    {480, 30, "3.0"},
    {480, 61, "3.1"},
    {720, 30, "3.1"},
    {720, 61, "3.2"},
    {1088, 30, "4.0"},
    {1088, 61, "4.2"},
});
constexpr char kHighestLevel[] = "5.1";

void Append(Strings& out, std::initializer_list<std::string> more) {
  out.insert(out.end(), more.begin(), more.end());
}

std::string Seconds(double seconds) {
  std::array<char, 32> text;
  snprintf(text.data(), text.size(), "%.6f", seconds);
  return text.data();
}

double InSeconds(int64_t ticks) {
  return static_cast<double>(ticks) / static_cast<double>(kPlanClock);
}

const char* LevelOf(const CmafRequest& request, const CmafPlan& plan) {
  const int64_t rate = plan.rate / plan.scale;
  for (const Level& level : kLevels) {
    if (request.size.height <= level.lines && rate <= level.frames) {
      return level.name;
    }
  }
  return kHighestLevel;
}

// Pictures of encoded renditions stand on a grid that begins with the film, whatever the run.
double FirstPicture(const CmafPlan& plan, int number) {
  const auto picture = static_cast<double>(plan.PictureAt(plan.Start(number)));
  return picture * static_cast<double>(plan.scale) / static_cast<double>(plan.rate);
}

std::string PictureFilters(const CmafRequest& request, const CmafPlan& plan,
                           const std::string& toneMapping) {
  const std::string rate = std::to_string(plan.rate) + "/" + std::to_string(plan.scale);
  const std::string start = Seconds(FirstPicture(plan, request.number));
  const std::string size =
      std::to_string(request.size.width) + ":" + std::to_string(request.size.height);
  const std::string scaled = JoinFilters("fps=" + rate + ":start_time=" + start, "scale=" + size);
  return JoinFilters(JoinFilters(scaled, toneMapping),
                     "format=yuv420p,setsar=1,tpad=stop=-1:stop_mode=clone");
}

std::string ForcedTimes(const CmafPlan& plan, int first) {
  std::string times;
  const int end = std::min(plan.Count(), first + kForcedCuts);
  for (int number = first; number < end; ++number) {
    const double time = FirstPicture(plan, number) - kForceEarly;
    times.append(times.empty() ? "" : ",").append(Seconds(std::max(time, 0.0)));
  }
  return times;
}

Strings H264Options(const CmafRequest& request, const CmafPlan& plan,
                    const CmafSurroundings& surroundings) {
  const std::string rate = std::to_string(request.rate);
  Strings out = {"-vf", PictureFilters(request, plan, surroundings.toneMapping)};
  Append(out, {"-c:v", "libx264", "-preset", "superfast", "-profile:v", "high", "-bf", "0"});
  Append(out, {"-level", LevelOf(request, plan), "-crf", "23", "-maxrate", rate});
  Append(out, {"-bufsize", std::to_string(2 * request.rate), "-rc-lookahead", "0"});
  Append(out, {"-sc_threshold", "0", "-g", "100000", "-fps_mode", "passthrough"});
  Append(out, {"-force_key_frames", ForcedTimes(plan, request.number)});
  Append(out, {"-enc_time_base", "1:" + std::to_string(kPlanClock)});
  return out;
}

// The first sample of a run, on the grid of all runs.
int64_t FirstSample(const CmafPlan& plan, int number) {
  const int64_t frame = plan.Start(number) * kSoundRate / kPlanClock / kAacFrame;
  return std::max<int64_t>(frame - kLeadFrames, 0) * kAacFrame;
}

Strings AacOptions(const CmafRequest& request, const CmafPlan& plan) {
  const std::string start = std::to_string(FirstSample(plan, request.number));
  const std::string rate = std::to_string(kSoundRate);
  const std::string grid =
      "aresample=" + rate + ",aresample=async=1:first_pts=" + start + ",atrim=start_pts=" + start;
  const std::string mix = StereoMix(request.treatment == Treatment::kNight);
  return {"-af",  JoinFilters(JoinFilters(grid, mix), "apad"),
          "-c:a", "aac",
          "-b:a", "160k",
          "-ac",  "2",
          "-ar",  rate};
}

// FFmpeg takes AAC of a transport stream out of its frames by itself, but not with "delay_moov". It
// leaves other AAC as it is.
Strings CopyOptions(const CmafRequest& request) {
  Strings out = {"-c", "copy"};
  if (request.isAac) {
    out.insert(out.end(), {"-bsf:a", "aac_adtstoasc"});
  }
  return out;
}

Strings EncoderOptions(const CmafRequest& request, const CmafPlan& plan,
                       const CmafSurroundings& surroundings) {
  switch (request.treatment) {
    case Treatment::kH264:
      return H264Options(request, plan, surroundings);
    case Treatment::kStereo:
    case Treatment::kNight:
      return AacOptions(request, plan);
    default:
      return CopyOptions(request);
  }
}

double PictureEntry(const CmafRequest& request, bool lacksIndex) {
  return !lacksIndex ? kPictureEntry : request.IsCopy() ? kUnindexedCopyEntry : kUnindexedEntry;
}

// Where the film is entered, in seconds; 0 for its start, which is not sought.
double Entry(const CmafRequest& request, const CmafPlan& plan, bool lacksIndex) {
  const double start = InSeconds(plan.Start(request.number));
  if (request.number == 0) {
    return 0;
  }
  return std::max(
      0.0, request.IsSound() ? start - kSoundEntry : start + PictureEntry(request, lacksIndex));
}

// Times count from the film's start, whichever track is read. FFmpeg corrects an offset of exactly
// the film's start to that of the tracks in use; one of a microsecond less it leaves alone.
Strings ClockOptions(const CmafSurroundings& surroundings) {
  if (!surroundings.clockStart) {
    return {"-copyts", "-start_at_zero"};
  }
  constexpr double kMicroseconds = 1e6;
  return {"-copyts", "-itsoffset",
          Seconds(static_cast<double>(1 - *surroundings.clockStart) / kMicroseconds)};
}

void Append(Strings& out, const Strings& more) {
  out.insert(out.end(), more.begin(), more.end());
}

}  // namespace

std::vector<std::string> CmafCommand(const CmafRequest& request, const CmafPlan& plan,
                                     const CmafSurroundings& surroundings) {
  Strings out = {surroundings.executable,
                 "-nostdin",
                 "-hide_banner",
                 "-loglevel",
                 "warning",
                 "-nostats",
                 "-y"};
  if (surroundings.progressFd >= 0) {
    Append(out,
           {"-progress", "pipe:" + std::to_string(surroundings.progressFd), "-stats_period", "2"});
  }
  const double entry = Entry(request, plan, surroundings.lacksIndex);
  if (entry > 0) {
    Append(out, {"-noaccurate_seek", "-ss", Seconds(entry)});
  }
  Append(out, ClockOptions(surroundings));
  Append(out, {"-protocol_whitelist", "file,pipe,fd", "-format_whitelist", kSelfContainedFormats,
               "-i", "file:" + request.film});
  Append(out, {"-map", "0:" + std::to_string(request.track), "-map_metadata", "-1"});
  Append(out, {"-map_chapters", "-1"});
  Append(out, EncoderOptions(request, plan, surroundings));
  if (request.isHeaderOnly) {
    Append(out, {"-frames", "1"});
  }
  Append(out, {"-strict", "-2", "-f", "mp4", "-use_editlist", "0", "-video_track_timescale"});
  Append(out, {std::to_string(kPlanClock), "-avoid_negative_ts", "disabled"});
  Append(out, {"-output_ts_offset", std::to_string(kCmafLead), "-flush_packets", "1", "-movflags"});
  Append(out, {"empty_moov+delay_moov+default_base_moof+frag_every_frame+frag_discont", "pipe:1"});
  return out;
}

}  // namespace orvo::transcoder
