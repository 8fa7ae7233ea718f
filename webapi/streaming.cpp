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
#include "util/json_utils.h"
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

// Records are JSON, which can hold no other bytes.
bool IsUtf8(const std::string& text) {
  Json::Value copy;
  return LibMirevo::ParseJson(LibMirevo::FormatJson(Json::Value(text)), copy) &&
         copy.asString() == text;
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

// Which part of the film a request is for.
struct Part {
  int second = 0;          // where the film begins
  int64_t offset = 0;      // the byte of the announced resource that this second stands for
  int64_t size = 0;        // the size that is announced; 0 for none
  bool isPartial = false;  // the answer to a byte range
};

// Clients that take "bytes 0-99/*", a range of something of unknown size, for what it is. Others
// read it as an empty resource.
constexpr std::array kOpenSizeClients = {"Mozilla/", "VLC/"};

bool TakesOpenSize(const Request& request) {
  const std::string client = request.Header("USER_AGENT");
  return std::any_of(kOpenSizeClients.begin(), kOpenSizeClients.end(),
                     [&](const char* name) { return client.find(name) != std::string::npos; });
}

// The whole size is never announced as exact: the real one differs, and browsers would fetch the
// resource in pieces, each of which would be a new transcoder.
void SendHeaders(const std::string& contentType, const Part& part) {
  std::string headers = part.isPartial ? "Status: 206 Partial Content\r\nContent-Range: bytes " +
                                             std::to_string(part.offset) + "-" +
                                             std::to_string(part.size - 1) + "/*\r\n"
                                       : "Status: 200 OK\r\n";
  headers += "Content-Type: " + contentType + "\r\n";
  headers += "Cache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n\r\n";
  orvo::WriteAll(STDOUT_FILENO, headers);
}

// The part that a request asks for: from its start, if any, and from there the second that its byte
// range stands for.
std::optional<Part> FindPart(const Request& request, HttpStream& stream, unsigned duration,
                             Answer& refusal) {
  Part part;
  if (request.Has("start")) {
    const auto start = request.Number("start", duration);
    if (!start) {
      refusal = Answer::Failure(kBadRequest, "The start must be a whole second of the film.");
      return std::nullopt;
    }
    part.second = static_cast<int>(*start);
  }
  const auto offset = request.RangeStart();
  const int ahead = stream.ConvertByteRangeToTimeRange(offset.value_or(0));
  if (!offset || ahead < 0) {
    return part;
  }
  const int64_t bytesPerSecond = stream.GetTransBitRate() / 8;
  part.size = stream.QMX_HTTP_PredictTransFileSize() - part.second * bytesPerSecond;
  if (*offset > 0 && *offset >= part.size) {
    refusal = Answer::Failure(kRangeNotSatisfiable);
    return std::nullopt;
  }
  part.offset = *offset;
  part.second += ahead;
  part.isPartial = part.size > 0 && (*offset > 0 || TakesOpenSize(request));
  return part;
}

// Copies the stream to the client until either ends.
Answer Pump(HttpStream& stream, const std::string& contentType, const Part& part) {
  std::array<char, kChunk> buffer{};
  int count = stream.Read(buffer.data(), buffer.size());
  if (count < 0) {
    return Answer::Failure(kInternal, "The transcoder ended without a picture.");
  }
  SendHeaders(contentType, part);
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
  if (!IsUtf8(*path)) {
    return Answer::Failure(kBadRequest,
                           "The name of this film is not written in UTF-8. Rename it to play it.");
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
  const auto part = FindPart(request, stream, record.GetDuration(), refusal);
  if (!part) {
    return refusal;
  }
  const Profile profile = ProfileIn(record);
  if (request.Method() == "HEAD") {
    SendHeaders(ContentTypeOf(profile), *part);
    return Answer::Sent();
  }
  std::string audioId;
  if (!TakeOver(streamId, part->second, audioId)) {
    return Answer::Failure(kInternal);
  }
  if (!stream.Init(audioId)) {
    return Answer::Failure(stream.GetErrorString());
  }
  const pid_t me = getpid();
  if (!stream.Transcoding(TranscoderOf(profile), part->second)) {
    if (getpid() != me) {
      // A launch that failed in the detached process came back here. The connection is not its own.
      _exit(1);
    }
    return Answer::Failure(kInternal, "The transcoder could not be started.");
  }
  return Pump(stream, ContentTypeOf(profile), *part);
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
