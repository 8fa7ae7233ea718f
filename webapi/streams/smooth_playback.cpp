#include "webapi/streams/smooth_playback.h"

#include <unistd.h>

#include <chrono>
#include <optional>
#include <string_view>

#include "policy/profile_traits.h"
#include "stream/smooth_stream.h"
#include "stream/stream_watch.h"
#include "util/qmxutils.h"
#include "webapi/http/number.h"
#include "webapi/http/send_file.h"
#include "webapi/streams/adapt_playback.h"

namespace webapi {
namespace {

using Clock = std::chrono::steady_clock;
using LibOrvoQMX::SmoothStream;
using std::chrono::milliseconds;

constexpr char kManifestType[] = "application/vnd.ms-sstr+xml";
// Next to the manifest's own address: players put it behind that up to the last slash.
constexpr char kFragmentAddress[] = "fragment.mp4";

constexpr int64_t kTicksPerSecond = 10000000;
constexpr int64_t kFragmentTicks = 5 * kTicksPerSecond;
constexpr milliseconds kVideoComesFirst(1000);
// A viewer whose last request is further away has gone elsewhere, in fragments.
constexpr int64_t kElsewhere = 10;
constexpr int kAttempts = 2;

struct Fragment {
  std::string id;       // as the client spells it
  std::string videoId;  // that of the picture of the same time
  bool isVideo = false;
  int64_t start = 0;  // in ticks

  int64_t Number() const { return start / kFragmentTicks; }
};

// Takes `token` off the front of `text`.
bool Skip(std::string_view& text, std::string_view token) {
  if (text.substr(0, token.size()) != token) {
    return false;
  }
  text.remove_prefix(token.size());
  return true;
}

bool SkipNumber(std::string_view& text, int64_t& number) {
  const auto taken = TakeNumber(text);
  number = taken.value_or(0);
  return taken.has_value();
}

// The bit rates that the stream's manifest names.
bool FindRates(const SmoothStream& stream, const std::string& profile, std::string& video,
               std::string& audio) {
  std::string width;
  std::string height;
  std::string sampling;
  std::string privateData;
  return LibOrvoQMX::ProfileTraits::Of(profile).hardware
             ? stream.ParseHWTransParameter(width, height, video, audio, sampling, privateData)
             : stream.ParseTransParameter(width, height, video, audio, sampling, privateData);
}

// "QualityLevels(RATE)/Fragments(TYPE=START)" with a rate of the manifest; nothing else.
std::optional<Fragment> ParseFragment(const std::string& id, const std::string& videoRate,
                                      const std::string& audioRate) {
  Fragment fragment;
  fragment.id = id;
  std::string_view rest(id);
  int64_t rate = 0;
  if (!Skip(rest, "QualityLevels(") || !SkipNumber(rest, rate) || !Skip(rest, ")/Fragments(")) {
    return std::nullopt;
  }
  fragment.isVideo = Skip(rest, "video=");
  const bool isKnown = fragment.isVideo || Skip(rest, "audio=");
  if (!isKnown || !SkipNumber(rest, fragment.start) || rest != ")" ||
      std::to_string(rate) != (fragment.isVideo ? videoRate : audioRate)) {
    return std::nullopt;
  }
  fragment.videoId =
      "QualityLevels(" + videoRate + ")/Fragments(video=" + std::to_string(fragment.start) + ")";
  return fragment;
}

bool Exists(const std::string& path) {
  return access(path.c_str(), R_OK) == 0;
}

bool IsThere(const SmoothStream& stream, const Fragment& fragment) {
  return Exists(stream.GetQMXFileFullPath("smooth/" + fragment.id));
}

// Does a transcoder have to begin at this fragment, because none will come by?
bool NeedsStart(const SmoothStream& stream, const Fragment& fragment) {
  return stream.IsNeedToSeek(fragment.videoId) ||
         (!stream.IsFFmpegRun() && !IsThere(stream, fragment));
}

// Players ask for sound and picture of the same time at about the same time. It is the picture's
// request that moves the transcoder; that of a player which takes the sound alone does when no
// other came.
void LetVideoComeFirst(const SmoothStream& stream, const Fragment& fragment) {
  const auto end = Clock::now() + kVideoComesFirst;
  const LibOrvoQMX::StreamWatch watch(stream.GetQMXFileFullPath(""));
  while (NeedsStart(stream, fragment)) {
    const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
    if (left.count() <= 0) {
      return;
    }
    watch.Wait({}, static_cast<int>(left.count()));
  }
}

// Sees to it that a transcoder comes by the fragment. The library takes one for granted that would
// begin up to 50 seconds before it, whether it runs or not.
bool StartTranscoder(SmoothStream& stream, const Fragment& fragment) {
  // Of several requests one starts it, and the others find it started.
  const auto ticket = HeldTicket::Take(stream.GetStreamID());
  if (!ticket) {
    return false;
  }
  const bool isForgotten = NeedsStart(stream, fragment) && !stream.IsNeedToSeek(fragment.videoId);
  return isForgotten ? stream.Restart(fragment.videoId) : stream.Transcoding(fragment.videoId);
}

bool HasGoneElsewhere(const SmoothStream& stream, const Fragment& fragment) {
  return std::abs(LastAskedFor(stream) - fragment.Number()) > kElsewhere;
}

// Waits for the complete fragment: its path, or "".
std::string Fetch(SmoothStream& stream, const Fragment& fragment) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (!fragment.isVideo && NeedsStart(stream, fragment)) {
      LetVideoComeFirst(stream, fragment);
    }
    if ((fragment.isVideo || NeedsStart(stream, fragment)) && !StartTranscoder(stream, fragment)) {
      return "";
    }
    const std::string path = stream.ReadFragment(fragment.id);
    // A transcoder that ended, or began elsewhere meanwhile, leaves a name without a file.
    if (path.empty() || Exists(path)) {
      return path;
    }
    if (HasGoneElsewhere(stream, fragment)) {
      return "";
    }
  }
  return "";
}

Answer SendFragment(const Request& request, const Ticket& ticket, SmoothStream& stream) {
  std::string videoRate;
  std::string audioRate;
  if (!FindRates(stream, ticket.ProfileValue(), videoRate, audioRate)) {
    return Answer::Failure(kInternal);
  }
  const auto fragment = ParseFragment(request.Text("fragment_id"), videoRate, audioRate);
  if (!fragment) {
    return Answer::Failure(kBadRequest, "The fragment_id must be one that the manifest names.");
  }
  if (fragment->start % kFragmentTicks != 0 ||
      fragment->start >= int64_t{ticket.Duration()} * kTicksPerSecond) {
    return Answer::Failure(kNotFound, "The film has no fragment at this time.");
  }
  const std::string type = fragment->isVideo ? "video/mp4" : "audio/mp4";
  if (request.Method() == "HEAD") {
    SendFileHeaders(type);
    return Answer::Sent();
  }
  AskFor(fragment->Number(), stream);
  const std::string path = Fetch(stream, *fragment);
  if (!path.empty() && SendFile(request, path, type, kKeepSegment)) {
    return Answer::Sent();
  }
  return Answer::Failure(LacksTranscoder(ticket.ProfileValue()) ? "TransEnable" : "NotReady");
}

Answer SendManifest(const Request& request, SmoothStream& stream) {
  const std::string path = stream.GetMainfest();
  if (path.empty() || !SendFile(request, path, kManifestType)) {
    return Answer::Failure(kNotFound, "This stream has no manifest.");
  }
  return Answer::Sent();
}

}  // namespace

Answer PrepareSmooth(const Ticket& ticket, Json::Value& data) {
  SmoothStream stream(ticket.StreamId());
  if (stream.Init(PieceRequest(ticket, kFragmentAddress, "ss"), Json::Value(Json::objectValue),
                  ticket.Parameter("audio_id"), ticket.Parameter("audio_format"))) {
    MarkAccess(stream);
    data["content_type"] = kManifestType;
    return Answer::Sent();
  }
  stream.Close();
  return Answer::Failure(stream.GetErrorString());
}

Answer PlaySmooth(const Request& request, const Ticket& ticket) {
  SmoothStream stream(ticket.StreamId());
  return request.Has("fragment_id") ? SendFragment(request, ticket, stream)
                                    : SendManifest(request, stream);
}

void CloseSmooth(const std::string& streamId) {
  SmoothStream(streamId).Close();
}

}  // namespace webapi
