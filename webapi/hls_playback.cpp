#include "webapi/hls_playback.h"

#include <fcntl.h>

#include <optional>

#include "platform/io.h"
#include "platform/unique_fd.h"
#include "policy/profile_traits.h"
#include "policy/trans_loading.h"
#include "stream/http_live_stream.h"
#include "util/qmxutils.h"
#include "webapi/send_file.h"

namespace webapi {
namespace {

using LibOrvoQMX::HttpLiveStream;
using LibOrvoQMX::QMXMetaData;

constexpr char kKind[] = "HLS";
constexpr char kPlaylistType[] = "application/vnd.apple.mpegurl";
constexpr char kSegmentType[] = "video/mp2t";
constexpr int64_t kMaxFragment = 9999999;
constexpr size_t kMaxDigits = 7;

// The request program, with a name behind it for players that judge a segment by its ending.
constexpr char kSegmentAddress[] = "/webapi/entry.cgi/segment.ts";
constexpr char kSubtitleAddress[] = "/webapi/entry.cgi/subtitle.vtt";

// What the segments' addresses repeat of a request.
Json::Value StreamRequest(const Ticket& ticket) {
  Json::Value request(Json::objectValue);
  request["url"] = kSegmentAddress;
  request["format"] = "hls";
  request["api"] = "ORVO.Mirevo2.Streaming";
  request["version"] = 1;
  request["method"] = "stream";
  request["force_open_qmx"] = ticket.Parameter("force_open_qmx") == "true";
  return request;
}

// What the subtitles' addresses consist of; without "subtitle_id" for a stream without subtitles.
Json::Value SubtitleOptions(const Ticket& ticket) {
  Json::Value options(Json::objectValue);
  const std::string subtitleId = ticket.Parameter("subtitle_id");
  if (!subtitleId.empty()) {
    options["url"] = kSubtitleAddress;
    options["id"] = ticket.StreamId();
    options["subtitle_id"] = subtitleId;
    options["uid"] = 0U;
    options["subtitle_codepage"] = ticket.Parameter("subtitle_codepage");
    options["api"] = "ORVO.Mirevo2.Subtitle";
    options["version"] = "1";
    options["method"] = "get";
  }
  return options;
}

// Tells the monitor that somebody is still watching.
void MarkAccess(const HttpLiveStream& stream) {
  orvo::TouchFile(stream.GetQMXFileFullPath("access_status"));
}

Answer SendPlaylist(const Request& request, HttpLiveStream& stream) {
  const std::string type = request.Text("playlist_type");
  const std::string path = stream.GetMainfest(type, request.Text("subtitle_id"));
  if (path.empty() || !SendFile(request, path, kPlaylistType)) {
    return Answer::Failure(kNotFound, "This stream has no such playlist.");
  }
  return Answer::Sent();
}

// Is there a place for the transcoder that this stream needs?
bool IsBusy(const std::string& profileValue) {
  const auto traits = LibOrvoQMX::ProfileTraits::Of(profileValue);
  return !traits.remux && !LibMirevo::TransLoading().TransEnable(traits.hardware);
}

// Says which segment is wanted, which limits how far the transcoder runs ahead. In a fixed width:
// the number is written over the older one at once, with nothing to cut off and no disk to wait
// for.
void AskFor(int64_t number, const HttpLiveStream& stream) {
  const std::string path = stream.GetQMXFileFullPath("requested");
  std::string text = std::to_string(number);
  text.insert(0, kMaxDigits - text.size(), '0');
  const orvo::UniqueFd file(open(path.c_str(), O_WRONLY | O_CLOEXEC));
  if (!file.IsOpen() || !orvo::WriteAll(file.Get(), text)) {
    orvo::ReplaceFile(path, text);
  }
}

Answer SendSegment(const Request& request, HttpLiveStream& stream) {
  QMXMetaData record(stream.GetStreamID(), kKind);
  record.LoadMetaData();
  const auto number = request.Number("fragment_id", kMaxFragment);
  if (!number) {
    return Answer::Failure(kBadRequest, "The fragment_id must be the number of a segment.");
  }
  const int start = stream.CalculateSeekTime(static_cast<int>(*number));
  if (start < 0 || start >= static_cast<int64_t>(record.GetDuration()) * 1000) {
    return Answer::Failure(kNotFound, "The film ends before this segment.");
  }
  const std::string fragment = std::to_string(*number);
  if (request.Method() == "HEAD") {
    SendFileHeaders(kSegmentType);
    return Answer::Sent();
  }
  AskFor(*number, stream);
  if (!stream.Transcoding(fragment)) {
    return Answer::Failure(kInternal, "The transcoder could not be started.");
  }
  const std::string path = stream.ReadFragment(fragment);
  if (path.empty()) {
    return Answer::Failure(IsBusy(record.GetProfileValue()) ? "TransEnable" : "NotReady");
  }
  return SendFile(request, path, kSegmentType, kKeepSegment) ? Answer::Sent()
                                                             : Answer::Failure("NotReady");
}

}  // namespace

Answer PrepareHls(const Ticket& ticket, Json::Value& data) {
  HttpLiveStream stream(ticket.StreamId());
  if (stream.Init(StreamRequest(ticket), SubtitleOptions(ticket), ticket.Parameter("audio_id"),
                  ticket.Parameter("audio_format"))) {
    MarkAccess(stream);
    data["content_type"] = kPlaylistType;
    return Answer::Sent();
  }
  stream.Close();
  return Answer::Failure(stream.GetErrorString());
}

Answer ReviveHls(const Ticket& ticket) {
  if (ticket.HasDirectory()) {
    return Answer::Sent();
  }
  Json::Value ignored;
  return ticket.Revive() ? PrepareHls(ticket, ignored) : Answer::Failure("TransSapceNotEnough");
}

Answer PlayHls(const Request& request, const std::string& streamId) {
  auto ticket = Ticket::Take(streamId);
  if (!ticket || ticket->Kind() != kKind) {
    return Answer::Failure(kNotFound, kStreamClosed);
  }
  const Answer revived = ReviveHls(*ticket);
  if (revived.IsFailure()) {
    return revived;
  }
  // The ticket's lock is not to be held while a segment is waited for.
  ticket.reset();
  HttpLiveStream stream(streamId);
  MarkAccess(stream);
  return request.Has("fragment_id") ? SendSegment(request, stream) : SendPlaylist(request, stream);
}

void CloseHls(const std::string& streamId) {
  HttpLiveStream(streamId).Close();
}

}  // namespace webapi
