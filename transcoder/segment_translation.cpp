#include "transcoder/segment_translation.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <string_view>

#include "transcoder/fragment_format.h"

namespace orvo::transcoder {
namespace {

using Strings = std::vector<std::string>;

// Encoders take sound in frames. Those of every run must start at the same samples, and this is a
// multiple of each frame length there is: 1024, 1152, 1536 and 2048.
constexpr long kSoundGrid = 18432;
constexpr long kSoundRate = 48000;

// Decoders and encoders of sound need some to get into step. Copied pictures are stored up to a few
// frames ahead of their time, and the sound that belongs beside them comes that much earlier too.
constexpr double kLead = 0.1;
constexpr double kLeadOfCopy = 0.5;

// A seek in a film without an index lands somewhere before; most broadcasts have a key frame more
// often than this.
constexpr double kLeadWithoutIndex = 3;

// Seeks are given in milliseconds; in steps of these they are whole samples at every usual rate.
constexpr long kSeekSteps = 25;  // a second

// Beyond that, cuts are only as good as the encoder's own key frames. A longer list would not fit
// into an argument.
constexpr double kLongestRun = 12 * 3600;

// Times of pictures are rounded on their way.
constexpr double kRounding = 0.00001;

constexpr double kFragmentLength = 5;  // seconds, where the command line does not say

// By how much the shape of a picture may be changed, as a part of it.
constexpr char kNearShape[] = "0.03";

double Number(const std::string& text, double otherwise = 0) {
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end != text.data() ? number : otherwise;
}

std::string Seconds(double seconds, int digits = 3) {
  std::array<char, 32> text;
  snprintf(text.data(), text.size(), "%.*f", digits, seconds);
  return text.data();
}

std::string Joined(const std::string& chain, const std::string& filter) {
  return chain.empty() ? filter : chain + "," + filter;
}

// Digits, or digits and "k".
std::string BitRate(const std::string& text) {
  long rate = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), rate);
  const std::string_view unit(end, static_cast<size_t>(text.data() + text.size() - end));
  const bool isValid = error == std::errc() && rate > 0 && (unit.empty() || unit == "k");
  return isValid ? std::to_string(unit.empty() ? rate : rate * 1000) : "";
}

double Start(const SegmentRequest& request) {
  return Number(request.start) / 1000;
}

double Length(const SegmentRequest& request) {
  return Number(request.length, 5);
}

long SoundRate(const SegmentRequest& request) {
  return std::max(1000L, std::lround(Number(request.soundRate, kSoundRate)));
}

Cuts CutsOf(const SegmentRequest& request) {
  if (!request.copiesPictures || !request.isSeekable) {
    return Cuts::kForced;
  }
  return request.cutsAnywhere == "1" ? Cuts::kAnywhere : Cuts::kKeyFrames;
}

// Every run's key frames stand where those of a run over the whole film do. Only a list of times
// can say so: an expression sees the time since the first picture, which is seldom exactly at the
// start.
std::string KeyFrames(const SegmentRequest& request, const SegmentEntry& entry) {
  const double length = std::max(1.0, Length(request));
  std::string times;
  for (double time = 0; time < kLongestRun; time += length) {
    times += times.empty() ? "" : ",";
    times += Seconds(std::max(0.0, entry.lead - kRounding + time), 5);
  }
  return times;
}

// The sound's clock counts samples from the film's start, through gaps in the film.
std::string SoundFilters(const SegmentRequest& request, const SegmentEntry& entry) {
  return Joined(request.soundFilters,
                "aresample=" + std::to_string(SoundRate(request)) +
                    ":async=1:first_pts=" + std::to_string(entry.firstSample));
}

void Append(Strings& out, std::initializer_list<std::string> more) {
  out.insert(out.end(), more.begin(), more.end());
}

}  // namespace

SegmentEntry EnterFilm(const SegmentRequest& request) {
  const double start = Start(request);
  if (!request.isSeekable) {
    return {start, 0, 0};
  }
  const long rate = SoundRate(request);
  const double lead = request.copiesPictures ? kLeadOfCopy : kLead;
  const long sample = static_cast<long>(std::max(0.0, start - lead) * static_cast<double>(rate)) /
                      kSoundGrid * kSoundGrid;
  const double earliest = static_cast<double>(sample) / static_cast<double>(rate) -
                          (request.lacksIndex ? kLeadWithoutIndex : 0);
  const double entry = request.clockJumps ? 0 : earliest;
  const long steps = std::max(0L, static_cast<long>(std::floor(entry * kSeekSteps)));
  const double seek = static_cast<double>(steps) / kSeekSteps;
  return {seek, start - seek, sample - steps * rate / kSeekSteps};
}

SegmentPlan PlanSegments(const SegmentRequest& request, const SegmentEntry& entry,
                         const std::string& pattern) {
  SegmentPlan plan;
  plan.pattern = pattern;
  plan.firstNumber = static_cast<int>(Number(request.number));
  plan.length = Length(request);
  plan.start = Start(request);
  plan.cuts = CutsOf(request);
  plan.startsAtOnce = entry.lead <= 0;
  return plan;
}

std::string FragmentStart(const std::string& start, const std::string& length) {
  const double seconds = std::max(1.0, Number(length, kFragmentLength));
  return std::to_string(std::lround(std::ceil(Number(start) / seconds) * seconds * 1000));
}

FragmentPlan PlanFragments(const SegmentRequest& request, const std::string& folder) {
  FragmentPlan plan;
  plan.folder = folder;
  plan.videoRate = BitRate(request.pictureBits);
  plan.audioRate = BitRate(request.soundBits);
  plan.length = static_cast<int>(Length(request));
  plan.firstNumber = static_cast<int>(std::lround(Start(request) / plan.length));
  return plan;
}

std::string Fitted(const std::string& filters, const std::string& size) {
  const size_t cross = size.find('x');
  if (cross == std::string::npos) {
    return filters;
  }
  const std::string width = size.substr(0, cross);
  const std::string height = size.substr(cross + 1);
  const std::string shape = "dar*" + height + "/" + width;
  const std::string isNear = "lt(abs(" + shape + "-1)," + kNearShape + ")";
  return Joined(filters, "scale=w='if(" + isNear + "," + width + ",max(2,min(" + width +
                             ",2*round(" + height + "*dar/2))))':h='if(" + isNear + "," + height +
                             ",max(2,min(" + height + ",2*round(" + width +
                             "/dar/2))))',setsar=1,pad=" + width + ":" + height +
                             ":-1:-1,setsar=0");
}

std::string WithoutLead(const std::string& filters, const SegmentEntry& entry) {
  return entry.lead > 0 ? Joined(filters, "trim=start=" + Seconds(entry.lead - kRounding, 5))
                        : filters;
}

// Parameter sets come only with some key frames, and not at all with other pictures.
std::string Decodable(const std::string& filters, const SegmentRequest& request) {
  const bool anywhere = CutsOf(request) == Cuts::kAnywhere;
  return Joined(filters, anywhere ? "dump_extra=freq=all" : "dump_extra=freq=keyframe");
}

namespace {

// Frames of sound travel one by one: a bundle of them would cross the cuts.
Strings TransportStream(const SegmentEntry& entry) {
  return {"-output_ts_offset",
          Seconds(entry.seek),
          "-avoid_negative_ts",
          "disabled",
          "-pes_payload_size",
          "0",
          "-flush_packets",
          "1",
          "-f",
          "mpegts",
          "pipe:1"};
}

// A fragment's pictures are decoded without those of the one before, and in the order they are
// stored in. The manifest was written before them: each key frame says what they need.
Strings FragmentStream(const SegmentEntry& entry) {
  return {"-bf",
          "0",
          "-output_ts_offset",
          Seconds(entry.seek + kStreamDelay),
          "-avoid_negative_ts",
          "disabled",
          "-flush_packets",
          "1",
          "-f",
          "nut",
          "pipe:1"};
}

}  // namespace

Strings SegmentOptions(const SegmentRequest& request, const SegmentEntry& entry) {
  Strings out;
  if (!request.copiesPictures) {
    Append(out, {"-force_key_frames", KeyFrames(request, entry)});
    if (request.takesFineClock) {
      Append(out, {"-enc_time_base:v", "1:90000"});
    }
  }
  if (!request.copiesSound) {
    Append(out, {"-ar", std::to_string(SoundRate(request)), "-af", SoundFilters(request, entry)});
  }
  const Strings stream = request.areFragments ? FragmentStream(entry) : TransportStream(entry);
  out.insert(out.end(), stream.begin(), stream.end());
  return out;
}

}  // namespace orvo::transcoder
