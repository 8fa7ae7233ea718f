#include "webapi/http_playback.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <optional>

#include "platform/io.h"
#include "platform/plat.h"
#include "policy/profile_traits.h"
#include "policy/trans_loading.h"
#include "stream/http_stream.h"
#include "util/qmxutils.h"
#include "util/random_string.h"
#include "webapi/guardian.h"
#include "webapi/profiles.h"
#include "webapi/ticket.h"

namespace webapi {
namespace {

using LibOrvoQMX::HttpStream;
using LibOrvoQMX::QMXMetaData;

constexpr char kKind[] = "HTTP";
constexpr char kBinFolder[] = "/var/packages/Mirevo/target/bin/";
constexpr int kOwnerLength = 16;
constexpr int kPatienceMilliseconds = 1000;
constexpr size_t kChunk = 65536;

std::string TranscoderOf(const Profile& profile) {
  const LibOrvoQMX::ProfileTraits traits = LibOrvoQMX::ProfileTraits::Of(profile.value);
  const char* const name = traits.gstreamer ? "orvo-gst" : traits.vaapi ? "ffmpeg_vaapi" : "ffmpeg";
  return orvo::SystemPath(kBinFolder + std::string(name));
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
  CloseHttp(streamId);
  ticket->SetOwner("", -1, ticket->StartSeconds());
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
  const HttpStream stream(streamId);
  StopTranscoder(stream);
  orvo::TouchFile(stream.GetQMXFileFullPath("access_status"));
  audioId = ticket->Parameter("audio_id");
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

// Starts the transcoder and reads its first bytes into `buffer`; how many, or -1.
int StartTranscoder(HttpStream& stream, const std::string& executable, int second,
                    std::array<char, kChunk>& buffer) {
  const pid_t me = getpid();
  const bool started = stream.Transcoding(executable, second);
  if (getpid() != me) {
    // A launch that failed in the detached process came back here. The connection is not its own.
    _exit(1);
  }
  return started ? stream.Read(buffer.data(), buffer.size()) : -1;
}

// Copies the stream to the client until either ends.
void Pump(HttpStream& stream, int count, std::array<char, kChunk>& buffer) {
  while (count > 0 && orvo::WriteAll(STDOUT_FILENO, {buffer.data(), static_cast<size_t>(count)})) {
    count = stream.Read(buffer.data(), buffer.size());
  }
}

}  // namespace

Answer PrepareHttp(const Ticket& ticket, Json::Value& data) {
  const Json::Value& record = ticket.Record();
  const Profile profile{record["profile_key"].asString(), record["profile_value"].asString()};
  HttpStream stream(ticket.StreamId());
  data["content_type"] = ContentTypeOf(profile);
  data["size"] = static_cast<Json::Int64>(stream.QMX_HTTP_PredictTransFileSize());
  return Answer::Sent();
}

Answer PlayHttp(const Request& request, const std::string& streamId) {
  if (!ReviveDirectory(streamId)) {
    return Answer::Failure(kNotFound, kStreamClosed);
  }
  QMXMetaData record(streamId, kKind);
  record.LoadMetaData();
  HttpStream stream(streamId);
  Answer refusal = Answer::Failure(kInternal);
  const auto part = FindPart(request, stream, record.GetDuration(), refusal);
  if (!part) {
    return refusal;
  }
  const Profile profile{record.GetProfileKey(), record.GetProfileValue()};
  const std::string contentType = ContentTypeOf(profile);
  if (request.Method() == "HEAD") {
    SendHeaders(contentType, *part);
    return Answer::Sent();
  }
  std::array<char, kChunk> buffer{};
  int count = -1;
  // Of two requests at the same instant the older may reach the register first. It has lost the
  // stream by then, and its transcoder goes when the newer one tries again.
  for (int attempt = 0; count < 0 && attempt < 2; ++attempt) {
    std::string audioId;
    if (!TakeOver(streamId, part->second, audioId)) {
      return Answer::Failure(kNotFound, kStreamClosed);
    }
    if (!stream.Init(audioId)) {
      return Answer::Failure(stream.GetErrorString());
    }
    count = StartTranscoder(stream, TranscoderOf(profile), part->second, buffer);
  }
  if (count < 0) {
    return Answer::Failure(kInternal, "The transcoder ended without a picture.");
  }
  SendHeaders(contentType, *part);
  Pump(stream, count, buffer);
  return Answer::Sent();
}

void CloseHttp(const std::string& streamId) {
  HttpStream stream(streamId);
  const pid_t transcoder = PlatReadPidFile(stream.GetQMXFileFullPath("monitor.pid"));
  stream.Close();
  // A busy encoder finishes its picture before it looks at a signal. On a slow machine that is
  // long.
  if (!orvo::WaitForExit(transcoder, kPatienceMilliseconds)) {
    kill(transcoder, SIGKILL);
  }
}

}  // namespace webapi
