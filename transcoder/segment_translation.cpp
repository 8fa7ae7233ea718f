#include "transcoder/segment_translation.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <string_view>

#include "transcoder/option_values.h"
#include "transcoder/stream_input.h"
#include "transcoder/transport_stream.h"

namespace orvo::transcoder {
namespace {

using Strings = std::vector<std::string>;

// Encoders take sound in frames. Those of every run must start at the same samples, and this is a
// multiple of each frame length there is: 1024, 1152, 1536 and 2048.
constexpr long kSoundGrid = 18432;

// Decoders and encoders of sound need some to get into step. Copied pictures are stored up to a few
// frames ahead of their time, and the sound that belongs beside them comes that much earlier too.
constexpr double kLead = 0.1;
constexpr double kLeadOfCopy = 0.5;

// A seek in a film without an index lands somewhere before; most broadcasts have a key frame more
// often than this.
constexpr double kLeadWithoutIndex = 3;

// Seeks are given in milliseconds; in steps of these they are whole samples at every usual rate.
constexpr long kSeekSteps = 25;  // a second

// A list of key frames beyond that would not fit into an argument.
constexpr size_t kLongestList = 120'000;  // bytes

// Times of pictures carry marks in ticks that are finer than any output's.
constexpr long kMarkRate = 4L * kTransportClockRate;

// Times of pictures are rounded on their way.
constexpr double kRounding = 0.00001;

// The clock of a film may tick coarser than the seeks: a picture that starts a segment may come
// half of a tick early. The cutters forgive a little more than this.
constexpr double kEarlyPicture = 0.000045;

// By how much the shape of a picture may be changed, as a part of it.
constexpr char kNearShape[] = "0.03";

std::string Seconds(double seconds, int digits = 3) {
  std::array<char, 32> text;
  snprintf(text.data(), text.size(), "%.*f", digits, seconds);
  return text.data();
}

std::string Joined(const std::string& chain, const std::string& filter) {
  return chain.empty() || filter.empty() ? chain + filter : chain + "," + filter;
}

std::string BitRate(long bits) {
  return bits > 0 ? std::to_string(bits) : "";
}

Cuts CutsOf(const SegmentRequest& request) {
  if (!request.copiesPictures || !request.isSeekable) {
    return Cuts::kForced;
  }
  return request.cutsAnywhere ? Cuts::kAnywhere : Cuts::kKeyFrames;
}

// Every run's key frames stand where those of a run over the whole film do. FFmpeg's expressions
// see the time since the first picture, which is seldom exactly at the start; so the filters find
// the pictures and mark them, and an expression finds the marks: the first picture has one, and
// another marked one is a whole number of the output's ticks away from it.
constexpr char kMarkedPictures[] = "expr:not(mod(round(t*360000),4))";
static_assert(kMarkRate == 360000);

// For encoders that cannot see marks: where segments start, as far as an argument takes it.
std::string KeyFrameList(const SegmentRequest& request, const SegmentEntry& entry) {
  std::string times;
  for (long number = 0; times.size() < kLongestList; ++number) {
    const double time = entry.lead - kRounding + static_cast<double>(number) * request.length;
    times += times.empty() ? "" : ",";
    times += Seconds(std::max(0.0, time), 5);
  }
  return times;
}

// The sound's clock counts samples from the film's start, through gaps in the film.
std::string SoundFilters(const SegmentRequest& request, const SegmentEntry& entry) {
  return Joined(request.soundFilters,
                "aresample=" + std::to_string(request.soundRate) +
                    ":async=1:first_pts=" + std::to_string(entry.firstSample));
}

void Append(Strings& out, std::initializer_list<std::string> more) {
  out.insert(out.end(), more.begin(), more.end());
}

}  // namespace

SegmentEntry EnterFilm(const SegmentRequest& request) {
  const double start = request.start;
  if (!request.isSeekable) {
    return {start, 0, 0};
  }
  const long rate = request.soundRate;
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
  plan.firstNumber = request.number;
  plan.length = request.length;
  plan.start = request.start;
  plan.cuts = CutsOf(request);
  // Whoever sends a film through a pipe from the middle begins its sound at the start, and its
  // pictures a little later.
  plan.startsAtOnce = request.isSeekable ? entry.lead <= 0 : request.start <= 0;
  return plan;
}

double FragmentStart(double start, double length) {
  return std::ceil(start / length - kRounding) * length;
}

FragmentPlan PlanFragments(const SegmentRequest& request, const std::string& folder) {
  FragmentPlan plan;
  plan.folder = folder;
  plan.videoRate = BitRate(request.pictureBits);
  plan.audioRate = BitRate(request.soundBits);
  plan.length = FragmentTicks(request.length);
  plan.firstNumber = static_cast<int>(std::lround(request.start / request.length));
  return plan;
}

std::string Fitted(const std::string& filters, const std::string& size) {
  const auto fixed = ParseSize(size);
  if (!fixed) {
    return filters;
  }
  const std::string width = std::to_string(fixed->width);
  const std::string height = std::to_string(fixed->height);
  const std::string shape = "dar*" + height + "/" + width;
  const std::string isNear = "lt(abs(" + shape + "-1)," + kNearShape + ")";
  return Joined(filters, "scale=w='if(" + isNear + "," + width + ",max(2,min(" + width +
                             ",2*round(" + height + "*dar/2))))':h='if(" + isNear + "," + height +
                             ",max(2,min(" + height + ",2*round(" + width +
                             "/dar/2))))',setsar=1,pad=" + width + ":" + height +
                             ":-1:-1,setsar=0");
}

std::string WithPixelShape(const std::string& filters) {
  return Joined("setsar=sar=sar:max=65535", filters);
}

std::string Marked(const std::string& filters, const SegmentRequest& request,
                   const SegmentEntry& entry) {
  if (!request.takesFineClock || request.isStream) {
    return filters;
  }
  // Register 0 holds the newest segment with a mark, 1 the time, 2 the segment and 3 the mark.
  const std::string segment = "1+floor((ld(1)/90000-" + Seconds(entry.lead - kEarlyPicture, 6) +
                              ")/" + Seconds(request.length, 7) + ")";
  return Joined(filters, "settb=1/360000,setpts='st(1,round(PTS/4));st(2,max(1," + segment +
                             "));st(3,gt(ld(2),ld(0)));st(0,max(ld(0),ld(2)));4*ld(1)+ld(3)'");
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

// Packets that this process puts into containers. Pictures are stored in the order in which they
// are shown. The manifest of fragments was written before them, and the header of a stream that
// another run continues was, too: each key frame says what its pictures need.
Strings PacketStream(const SegmentEntry& entry) {
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
  if (!request.copiesPictures && !request.isStream) {
    const bool seesMarks = request.takesFineClock;
    Append(out, {"-force_key_frames", seesMarks ? kMarkedPictures : KeyFrameList(request, entry)});
  }
  if (!request.copiesPictures && request.takesFineClock) {
    Append(out, {"-enc_time_base:v", "1:360000"});
  }
  if (request.isSilent) {
    Append(out, {"-an"});
  } else if (!request.copiesSound) {
    Append(out, {"-ar", std::to_string(request.soundRate), "-af", SoundFilters(request, entry)});
  }
  const bool arePackets = request.areFragments || request.isStream;
  const Strings stream = arePackets ? PacketStream(entry) : TransportStream(entry);
  out.insert(out.end(), stream.begin(), stream.end());
  return out;
}

}  // namespace orvo::transcoder
