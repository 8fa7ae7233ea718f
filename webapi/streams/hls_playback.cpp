#include "webapi/streams/hls_playback.h"

#include <unistd.h>

#include <optional>

#include "state/stream_lock.h"
#include "stream/fetched_piece.h"
#include "stream/http_live_stream.h"
#include "webapi/access/pass.h"
#include "webapi/choice/engine_rows.h"
#include "webapi/cluster/balancer_client.h"
#include "webapi/cluster/cluster_keys.h"
#include "webapi/http/send_file.h"
#include "webapi/streams/adapt_playback.h"
#include "webapi/streams/client_report.h"
#include "webapi/streams/warm_runs.h"

namespace webapi {
namespace {

using LibOrvoQMX::FetchedPiece;
using LibOrvoQMX::HttpLiveStream;

constexpr char kPlaylistType[] = "application/vnd.apple.mpegurl";
constexpr char kSegmentType[] = "video/mp2t";
constexpr int64_t kMaxFragment = 9999999;
constexpr int kTries = 3;

// Names behind the request program's address, for players that judge a segment by its ending.
constexpr char kSegmentName[] = "/segment.ts";
constexpr char kSubtitleName[] = "/subtitle.vtt";

// The parameters of the subtitles' addresses; without "subtitle_id" if the stream has no subtitles.
Json::Value SubtitleOptions(const Ticket& ticket) {
  Json::Value options(Json::objectValue);
  const std::string subtitleId = ticket.Parameter("subtitle_id");
  if (!subtitleId.empty()) {
    options["url"] = EntryPath() + kSubtitleName;
    options["id"] = ticket.StreamId();
    options["subtitle_id"] = subtitleId;
    options["uid"] = 0U;
    options["subtitle_codepage"] = ticket.Parameter("subtitle_codepage");
    options["api"] = "ORVO.Mirevo2.Subtitle";
    options["version"] = "1";
    options["method"] = "get";
    AddLink(ticket, options);
  }
  return options;
}

Answer SendPlaylist(const Request& request, HttpLiveStream& stream) {
  const std::string type = request.Text("playlist_type");
  const std::string path = stream.GetMainfest(type, request.Text("subtitle_id"));
  if (path.empty() || !SendFile(request, path, kPlaylistType)) {
    return Answer::Failure(kNotFound, "This stream has no such playlist.");
  }
  return Answer::Sent();
}

bool HasSegment(HttpLiveStream& stream, const Ticket& ticket, int number) {
  const int start = stream.CalculateSeekTime(number);
  return start >= 0 && start < int64_t{ticket.Duration()} * 1000;
}

std::string AddressOf(const Ticket& ticket, int number) {
  return EntryPath() + kSegmentName + "?api=ORVO.Mirevo2.Streaming&version=1&method=stream" +
         "&format=hls&stream_id=" + ticket.StreamId() + "&fragment_id=" + std::to_string(number) +
         AddressEnd(ticket);
}

// Is there a segment that the viewer may still wait for? Where a box is down, the blocks of a
// viewer and the next ones go to the same box.
bool HasUnsent(const HttpLiveStream& stream, int viewer, int number) {
  while (viewer < number && access(stream.GetSegmentTsPath(viewer).c_str(), F_OK) != 0) {
    ++viewer;
  }
  return viewer < number;
}

// A new run removes the segments of the one before.
Answer WarmSegment(const Request& request, const Ticket& ticket, int number) {
  const auto viewer = static_cast<int>(request.Number("viewer", kMaxFragment).value_or(number));
  const auto start = [&] {
    HttpLiveStream stream(ticket.StreamId());
    return !HasUnsent(stream, viewer, number) && stream.StartWhenFinished(number);
  };
  return StartWarm({ticket.Directory(), number, NeedsTranscoder(ticket.ProfileValue()),
                    RunsOnHardware(ticket.ProfileValue()), start});
}

// Has the run ended for want of a place that is free by now?
bool HasFoundPlace(const FetchedPiece& piece, const Ticket& ticket) {
  const std::string profile = ticket.ProfileValue();
  return piece.state == FetchedPiece::State::kWillNotCome && NeedsTranscoder(profile) &&
         !LacksTranscoder(profile);
}

Answer SendSegment(const Request& request, const Ticket& ticket, HttpLiveStream& stream) {
  const auto number = request.Number("fragment_id", kMaxFragment);
  if (!number) {
    return Answer::Failure(kBadRequest, "The fragment_id must be the number of a segment.");
  }
  if (!HasSegment(stream, ticket, static_cast<int>(*number))) {
    return Answer::Failure(kNotFound, "The film ends before this segment.");
  }
  if (request.Method() == "HEAD") {
    SendFileHeaders(kSegmentType);
    return Answer::Sent();
  }
  if (IsWarmRequest(request)) {
    return WarmSegment(request, ticket, static_cast<int>(*number));
  }
  KeepClientReport(request, ticket);
  WarmNextBlocks(
      ticket.Directory(), static_cast<int>(*number),
      [&](int other) { return HasSegment(stream, ticket, other); },
      [&](int other) { return AddressOf(ticket, other); });
  StartTimes times;
  // A warm run that waits for this request begins when it is answered, and removes the segment. In
  // a cluster the answer is therefore this program's: the web server might open the file too late.
  const Sender sender = IsInCluster() ? Sender::kThisProgram : Sender::kWebServer;
  const LibOrvoQMX::SegmentHold hold(ticket.Directory().Path());
  ticket.Directory().AskFor(*number);
  // A request that restarts the stream may remove the segment before it is sent.
  for (int tries = 0; tries < kTries; ++tries) {
    const FetchedPiece piece = stream.Fetch(static_cast<int>(*number));
    if (piece.state == FetchedPiece::State::kNotStarted) {
      return Answer::Failure(kInternal, "The transcoder could not be started.");
    }
    if (tries == 0 && HasFoundPlace(piece, ticket)) {
      continue;
    }
    if (piece.state != FetchedPiece::State::kComplete) {
      return Answer::Failure(LacksTranscoder(ticket.ProfileValue()) ? "TransEnable" : "NotReady");
    }
    if (SendPiece(request, ticket, piece.path, kSegmentType, times, sender)) {
      LeavePass(request.MadeBy(), ticket);
      return Answer::Sent();
    }
  }
  return Answer::Failure("NotReady");
}

}  // namespace

Answer PrepareHls(const Ticket& ticket, Json::Value& data) {
  HttpLiveStream stream(ticket.StreamId());
  if (stream.Init(PieceRequest(ticket, EntryPath() + kSegmentName, "hls"), SubtitleOptions(ticket),
                  ticket.Parameter("audio_id"), ticket.Parameter("audio_format"))) {
    ticket.Directory().MarkAccess();
    data["content_type"] = kPlaylistType;
    return Answer::Sent();
  }
  stream.Close();
  return Answer::Failure(stream.GetErrorString());
}

Answer PlayHls(const Request& request, const Ticket& ticket) {
  HttpLiveStream stream(ticket.StreamId());
  return request.Has("fragment_id") ? SendSegment(request, ticket, stream)
                                    : SendPlaylist(request, stream);
}

void StartHls(const Ticket& ticket, double second, Json::Value& /*data*/) {
  HttpLiveStream stream(ticket.StreamId());
  const int boxes = CountBoxes();
  if (boxes < 2) {
    (void)stream.StartAhead(second);
    return;
  }
  // The box whose turn it is may be another one.
  WarmFirstBlocks(
      stream.SegmentAt(second), boxes,
      [&](int number) { return HasSegment(stream, ticket, number); },
      [&](int number) { return AddressOf(ticket, number); });
}

void CloseHls(const std::string& streamId) {
  HttpLiveStream(streamId).Close();
}

}  // namespace webapi
