#include "webapi/streams/byte_playback.h"

#include <unistd.h>

#include <array>

#include "platform/io.h"
#include "util/random_string.h"
#include "webapi/streams/guardian.h"
#include "webapi/streams/revival.h"

namespace webapi {
namespace {

using LibOrvoQMX::DirectStream;

constexpr int kOwnerLength = 16;
constexpr size_t kChunk = 65536;
using Buffer = std::array<char, kChunk>;

// What the owner of a stream does when it ends: closes it, unless a newer request plays it now.
void CloseIfMine(const std::string& streamId, const std::string& owner,
                 void (*close)(const std::string&)) {
  auto ticket = HeldTicket::Take(streamId);
  if (!ticket || ticket->Owner() != owner) {
    return;
  }
  close(streamId);
  ticket->SetOwner("", -1, ticket->StartSeconds());
}

// Makes this request the one that plays the stream; an older one gives way. Fills in the audio
// track that the stream was opened for.
bool TakeOver(const BytePlayback& playback, std::string& audioId) {
  const std::string streamId = playback.stream.GetStreamID();
  const std::string owner = libmrv::util::RandomString("", kOwnerLength);
  // Before the lock is held: a child would hold it too, and longer.
  if (!WatchOverMe([&] { CloseIfMine(streamId, owner, playback.close); })) {
    return false;
  }
  auto ticket = HeldTicket::Take(streamId);
  if (!ticket || !ReviveDirectory(*ticket)) {
    return false;
  }
  playback.stop(streamId);
  ticket->Directory().MarkAccess();
  audioId = ticket->Parameter("audio_id");
  return ticket->SetOwner(owner, getpid(), playback.second);
}

// Starts the transcoder and reads its first bytes into `buffer`; how many, or less than 1.
int StartTranscoder(const BytePlayback& playback, Buffer& buffer) {
  const pid_t me = getpid();
  const bool started = playback.stream.Transcoding(playback.executable, playback.second);
  if (getpid() != me) {
    // A launch that failed in the detached process came back here. The connection is not its own.
    _exit(1);
  }
  return started ? playback.stream.Read(buffer.data(), buffer.size()) : -1;
}

// Copies the stream to the client until either ends.
void Pump(DirectStream& stream, int count, Buffer& buffer) {
  while (count > 0 && orvo::WriteAll(STDOUT_FILENO, {buffer.data(), static_cast<size_t>(count)})) {
    count = stream.Read(buffer.data(), buffer.size());
  }
}

}  // namespace

Answer PlayBytes(const BytePlayback& playback) {
  Buffer buffer{};
  int count = -1;
  // Of two requests at the same instant the older may reach the register first. It has lost the
  // stream by then, and its transcoder goes when the newer one tries again.
  for (int attempt = 0; count < 1 && attempt < 2; ++attempt) {
    std::string audioId;
    if (!TakeOver(playback, audioId)) {
      return Answer::Failure(kNotFound, kStreamClosed);
    }
    if (!playback.stream.Init(audioId)) {
      return Answer::Failure(playback.stream.GetErrorString());
    }
    count = StartTranscoder(playback, buffer);
  }
  if (count < 1) {
    return Answer::Failure(kInternal, "The transcoder ended without a picture.");
  }
  orvo::WriteAll(STDOUT_FILENO, playback.headers + "\r\n");
  Pump(playback.stream, count, buffer);
  return Answer::Sent();
}

std::optional<int> StartSecond(const Request& request, unsigned duration, Answer& refusal) {
  if (!request.Has("start")) {
    return 0;
  }
  const auto start = request.Number("start", duration);
  if (!start) {
    refusal = Answer::Failure(kBadRequest, "The start must be a whole second of the film.");
    return std::nullopt;
  }
  return static_cast<int>(*start);
}

Profile ProfileOf(const Ticket& ticket) {
  return {ticket.ProfileKey(), ticket.ProfileValue()};
}

std::string ByteHeaders(const std::string& status, const std::string& contentType) {
  return "Status: " + status + "\r\nContent-Type: " + contentType +
         "\r\nCache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n";
}

}  // namespace webapi
