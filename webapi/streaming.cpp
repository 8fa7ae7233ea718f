#include "webapi/streaming.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string>

#include "platform/io.h"
#include "platform/plat.h"
#include "policy/argument_helper.h"
#include "policy/profile_traits.h"
#include "policy/trans_loading.h"
#include "stream/http_stream.h"
#include "util/md5.h"
#include "util/qmxutils.h"
#include "util/random_string.h"
#include "webapi/guardian.h"
#include "webapi/media_library.h"
#include "webapi/profiles.h"
#include "webapi/ticket.h"

namespace webapi {
namespace {

using LibOrvoQMX::HttpStream;
using LibOrvoQMX::QMXInitArgument;
using LibOrvoQMX::QMXMetaData;
using LibOrvoQMX::QMXStream;
using LibOrvoQMX::VideoMetaData;

constexpr char kKind[] = "HTTP";
constexpr char kFormat[] = "http";
constexpr char kBinFolder[] = "/var/packages/Mirevo/target/bin/";
constexpr char kNoFilm[] = "TransVideoNotSupported";
constexpr int kOwnerLength = 16;
constexpr int64_t kMaxStart = 7 * 24 * 3600;  // no film lasts a week
constexpr size_t kChunk = 65536;
constexpr time_t kAbandonedSeconds = 900;
constexpr time_t kTicketSeconds = 24 * 3600;

std::string TranscoderOf(const Profile& profile) {
  const LibOrvoQMX::ProfileTraits traits = LibOrvoQMX::ProfileTraits::Of(profile.value);
  const char* const name = traits.gstreamer ? "orvo-gst" : traits.vaapi ? "ffmpeg_vaapi" : "ffmpeg";
  return orvo::SystemPath(kBinFolder + std::string(name));
}

Profile ProfileIn(const QMXMetaData& record) {
  return {record.GetProfileKey(), record.GetProfileValue()};
}

std::string AddressOf(const Request& request, const std::string& streamId) {
  return request.Scheme() + "://" + request.Authority() +
         "/webapi/entry.cgi?api=ORVO.Mirevo2.Streaming&version=1&method=stream&format=" + kFormat +
         "&stream_id=" + streamId;
}

Answer CheckFormat(const Request& request) {
  const std::string format = request.Text("format");
  if (format == kFormat) {
    return Answer::Sent();
  }
  return Answer::Failure(kBadRequest,
                         format.empty() ? "The parameter format is missing."
                                        : "This server does not stream the format " + format + ".");
}

// The stream id of the newer or the older spelling; "" and a refusal when there is none of its
// form.
std::string StreamIdOf(const Request& request, Answer& refusal) {
  const std::string id = request.Text(request.Has("stream_id") ? "stream_id" : "id");
  if (IsStreamId(id)) {
    return id;
  }
  refusal = Answer::Failure(kBadRequest, "This is not the id of a stream.");
  return "";
}

// The profile that the request names, or the one to choose for it.
std::optional<Profile> ProfileFor(const Request& request, const VideoMetaData& film,
                                  Answer& refusal) {
  const std::string key = request.Text("profile");
  if (key.empty()) {
    const auto chosen = ChooseProfile(kFormat, film);
    if (!chosen) {
      refusal = Answer::Failure(kNoFilm);
    }
    return chosen;
  }
  const std::vector<Profile> profiles = ProfilesOf(kFormat);
  const auto found = std::find_if(profiles.begin(), profiles.end(),
                                  [&](const Profile& profile) { return profile.key == key; });
  if (found == profiles.end()) {
    refusal = Answer::Failure(kBadRequest, "There is no profile of this name.");
    return std::nullopt;
  }
  const Verdict verdict = Judge(*found, film);
  if (verdict.method == "refused") {
    refusal = Answer::Failure(verdict.refusal, verdict.why);
    return std::nullopt;
  }
  return *found;
}

bool HasAudioTrack(const VideoMetaData& film, const std::string& id) {
  return id.empty() || !LibOrvoQMX::ArgumentHelper(film).GetAudioTrackInfoByID(id).isNull();
}

bool IsBusy(const Profile& profile) {
  return !LibMirevo::TransLoading().TransEnable(
      LibOrvoQMX::ProfileTraits::Of(profile.value).hardware);
}

// The id of a stream that the request wants to join; "" for a new one.
bool JoinsStream(const Request& request, const std::string& path, std::string& streamId,
                 Answer& refusal) {
  if (!request.Has("stream_id")) {
    return true;
  }
  streamId = StreamIdOf(request, refusal);
  if (streamId.empty() || streamId.rfind(LibMirevo::GetMD5(path) + "_", 0) != 0) {
    refusal = Answer::Failure(kBadRequest, "This is not the id of a stream of this film.");
    return false;
  }
  return true;
}

// Ends the transcoder of the request before; the stream's directory stays.
void StopTranscoder(const HttpStream& stream) {
  const std::string file = stream.GetQMXFileFullPath("monitor.pid");
  const int pid = static_cast<int>(std::strtol(LibOrvoQMX::ReadFile(file).c_str(), nullptr, 10));
  if (pid > 0) {
    LibOrvoQMX::KillProcess(pid);
    LibMirevo::TransLoading().RemoveTransPIDLock(pid);
    unlink(file.c_str());
  }
}

// What the owner of a stream does when it ends: closes it, unless a newer request plays it now.
void CloseIfMine(const std::string& streamId, const std::string& owner) {
  auto ticket = Ticket::Take(streamId);
  if (!ticket || ticket->Owner() != owner) {
    return;
  }
  HttpStream(streamId).Close();
  ticket->SetOwner("", -1, ticket->StartSeconds());
}

// Sees to it that the stream has its directory. False when it was never opened, or closed.
bool ReviveStream(const std::string& streamId) {
  const auto ticket = Ticket::Take(streamId);
  return ticket && ticket->Kind() == kKind && ticket->Revive();
}

// Makes this request the one that plays the stream; an older one gives way. Fills in the audio
// track that the stream was opened for.
bool TakeOver(const std::string& streamId, int start, std::string& audioId) {
  const std::string owner = libmrv::util::RandomString("", kOwnerLength);
  // Before the lock is held: a child would hold it too, and longer.
  if (!WatchOverMe([&] { CloseIfMine(streamId, owner); })) {
    return false;
  }
  auto ticket = Ticket::Take(streamId);
  if (!ticket || !ticket->Revive()) {
    return false;
  }
  StopTranscoder(HttpStream(streamId));
  audioId = ticket->AudioId();
  return ticket->SetOwner(owner, getpid(), start);
}

void SendHeaders(const std::string& contentType, int64_t predictedSize) {
  std::string headers = "Status: 200 OK\r\nContent-Type: " + contentType + "\r\n";
  headers += "Cache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n";
  if (predictedSize > 0) {
    headers += "X-Predicted-Size: " + std::to_string(predictedSize) + "\r\n";
  }
  orvo::WriteAll(STDOUT_FILENO, headers + "\r\n");
}

// The second of the film at which the request wants to begin: its start, or what its byte range
// stands for.
std::optional<int> StartOf(const Request& request, unsigned duration, HttpStream& stream) {
  if (request.Has("start")) {
    const auto start = request.Number("start", duration);
    return start ? std::optional<int>(static_cast<int>(*start)) : std::nullopt;
  }
  const int second = stream.ConvertByteRangeToTimeRange(request.RangeStart().value_or(0));
  return std::clamp(second, 0, static_cast<int>(duration));
}

// Copies the stream to the client until either ends.
Answer Pump(HttpStream& stream, const std::string& contentType) {
  std::array<char, kChunk> buffer{};
  int count = stream.Read(buffer.data(), buffer.size());
  if (count < 0) {
    return Answer::Failure(kInternal, "The transcoder ended without a picture.");
  }
  SendHeaders(contentType, stream.QMX_HTTP_PredictTransFileSize());
  while (count > 0 && orvo::WriteAll(STDOUT_FILENO, {buffer.data(), static_cast<size_t>(count)})) {
    count = stream.Read(buffer.data(), buffer.size());
  }
  return Answer::Sent();
}

}  // namespace

Answer OpenStream(const Request& request) {
  Answer refusal = CheckFormat(request);
  if (refusal.IsFailure()) {
    return refusal;
  }
  const auto path = ResolveFilm(request.Text("path"), refusal);
  std::string streamId;
  if (!path || !JoinsStream(request, *path, streamId, refusal)) {
    return refusal;
  }
  // The film is judged before anything is made for it, so that a refusal leaves nothing behind.
  VideoMetaData film;
  if (!film.LoadFile(*path)) {
    return Answer::Failure(kNoFilm, "This file is not a film that can be played.");
  }
  const auto profile = ProfileFor(request, film, refusal);
  if (!profile) {
    return refusal;
  }
  const std::string audioId = request.Text("audio_id");
  if (!HasAudioTrack(film, audioId)) {
    return Answer::Failure(kBadRequest, "The film has no audio track of this id.");
  }
  // A stream that is joined has its place already.
  if (streamId.empty() && IsBusy(*profile)) {
    return Answer::Failure("TransEnable");
  }
  SweepStreams();
  QMXInitArgument argument(*path, kKind, ProfileFile(), profile->key);
  argument.device = request.Text("device");
  if (!streamId.empty()) {
    argument.args["stream_id"] = streamId;
  }
  const std::string opened = QMXStream::QMX_Init(argument);
  if (opened == "TransSapceNotEnough") {
    return Answer::Failure(opened);
  }
  if (opened.empty() || !Ticket::Create(opened, kKind, audioId)) {
    return Answer::Failure(kInternal);
  }
  Json::Value data(Json::objectValue);
  data["stream_id"] = opened;
  data["format"] = kFormat;
  data["profile"] = profile->key;
  data["duration"] = film.GetDuration();
  data["url"] = AddressOf(request, opened);
  data["content_type"] = ContentTypeOf(*profile);
  data["size"] = static_cast<Json::Int64>(HttpStream(opened).QMX_HTTP_PredictTransFileSize());
  return Answer::Success(data);
}

Answer PlayStream(const Request& request) {
  Answer refusal = CheckFormat(request);
  if (refusal.IsFailure()) {
    return refusal;
  }
  const std::string streamId = StreamIdOf(request, refusal);
  if (streamId.empty()) {
    return refusal;
  }
  if (!ReviveStream(streamId)) {
    return Answer::Failure(kNotFound, "This stream has been closed. Open the film again.");
  }
  QMXMetaData record(streamId, kKind);
  record.LoadMetaData();
  HttpStream stream(streamId);
  const auto start = StartOf(request, record.GetDuration(), stream);
  if (!start) {
    return Answer::Failure(kBadRequest, "The start must be a whole second of the film.");
  }
  const Profile profile = ProfileIn(record);
  if (request.Method() == "HEAD") {
    SendHeaders(ContentTypeOf(profile), stream.QMX_HTTP_PredictTransFileSize());
    return Answer::Sent();
  }
  std::string audioId;
  if (!TakeOver(streamId, *start, audioId)) {
    return Answer::Failure(kInternal);
  }
  if (!stream.Init(audioId)) {
    return Answer::Failure(stream.GetErrorString());
  }
  const pid_t me = getpid();
  if (!stream.Transcoding(TranscoderOf(profile), *start)) {
    if (getpid() != me) {
      // A launch that failed in the detached process came back here. The connection is not its own.
      _exit(1);
    }
    return Answer::Failure(kInternal, "The transcoder could not be started.");
  }
  return Pump(stream, ContentTypeOf(profile));
}

Answer CloseStream(const Request& request) {
  Answer refusal = CheckFormat(request);
  if (refusal.IsFailure()) {
    return refusal;
  }
  const std::string streamId = StreamIdOf(request, refusal);
  if (streamId.empty()) {
    return refusal;
  }
  auto ticket = Ticket::Take(streamId);
  if (ticket) {
    ticket->Remove();
  }
  HttpStream(streamId).Close();
  return Answer::Success(Json::Value(Json::objectValue));
}

void SweepStreams() {
  const time_t now = time(nullptr);
  for (const std::string& id : Ticket::All()) {
    auto ticket = Ticket::Take(id);
    if (!ticket || PlatProcAlive(ticket->OwnerPid())) {
      continue;
    }
    const time_t idle = now - ticket->LastUse();
    if (idle > kAbandonedSeconds) {
      HttpStream(id).Close();
    }
    if (idle > kTicketSeconds) {
      ticket->Remove();
    }
  }
}

void CloseAllStreams() {
  for (const std::string& id : Ticket::All()) {
    if (auto ticket = Ticket::Take(id)) {
      ticket->Remove();
    }
  }
  std::error_code failure;
  const std::string folder = orvo::SystemPath(std::string("/tmp/Mirevo/") + kKind);
  for (const auto& entry : std::filesystem::directory_iterator(folder, failure)) {
    HttpStream(entry.path().filename().string()).Close();
  }
}

}  // namespace webapi
