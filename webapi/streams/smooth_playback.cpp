#include "webapi/streams/smooth_playback.h"

#include <optional>

#include "contract/fragments.h"
#include "policy/profile_traits.h"
#include "stream/fetched_piece.h"
#include "stream/smooth_stream.h"
#include "webapi/http/send_file.h"
#include "webapi/streams/adapt_playback.h"

namespace webapi {
namespace {

using LibOrvoQMX::FetchedPiece;
using LibOrvoQMX::SmoothStream;
using orvo::FragmentId;

constexpr char kManifestType[] = "application/vnd.ms-sstr+xml";
// A relative address: players replace the part of the manifest's address after the last slash by
// it.
constexpr char kFragmentAddress[] = "fragment.mp4";

// The bit rates in the stream's manifest.
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

// Reads an id whose bit rate is in the manifest. Returns nothing for any other text.
std::optional<FragmentId> ParseFragment(const std::string& text, const std::string& videoRate,
                                        const std::string& audioRate) {
  const auto id = FragmentId::Parse(text);
  const bool isKnown = id && id->rate == (id->track == orvo::Track::kVideo ? videoRate : audioRate);
  return isKnown ? id : std::nullopt;
}

Answer SendFragment(const Request& request, const Ticket& ticket, SmoothStream& stream) {
  std::string videoRate;
  std::string audioRate;
  if (!FindRates(stream, ticket.ProfileValue(), videoRate, audioRate)) {
    return Answer::Failure(kInternal);
  }
  const auto fragment = ParseFragment(request.Text("fragment_id"), videoRate, audioRate);
  if (!fragment) {
    return Answer::Failure(kBadRequest, "The fragment_id must be in the manifest.");
  }
  if (fragment->start % orvo::kTicksPerFragment != 0 ||
      fragment->start >= int64_t{ticket.Duration()} * orvo::kTicksPerSecond) {
    return Answer::Failure(kNotFound, "The film has no fragment at this time.");
  }
  const std::string type = fragment->track == orvo::Track::kVideo ? "video/mp4" : "audio/mp4";
  if (request.Method() == "HEAD") {
    SendFileHeaders(type);
    return Answer::Sent();
  }
  StartTimes times;
  ticket.Directory().AskFor(fragment->Number());
  const FetchedPiece piece = stream.Fetch(*fragment);
  if (piece.state == FetchedPiece::State::kComplete &&
      SendPiece(request, ticket, piece.path, type, times)) {
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
    ticket.Directory().MarkAccess();
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

void StartSmooth(const Ticket& ticket, double second, Json::Value& /*data*/) {
  (void)SmoothStream(ticket.StreamId()).StartAhead(second);
}

void CloseSmooth(const std::string& streamId) {
  SmoothStream(streamId).Close();
}

}  // namespace webapi
