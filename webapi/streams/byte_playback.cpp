#include "webapi/streams/byte_playback.h"

#include <unistd.h>

#include <array>

#include "util/random_string.h"
#include "webapi/http/send_file.h"
#include "webapi/streams/film_report.h"
#include "webapi/streams/guardian.h"
#include "webapi/streams/revival.h"
#include "webapi/streams/start_times.h"

namespace webapi {
namespace {

using LibOrvoQMX::DirectStream;

constexpr int kOwnerLength = 16;
constexpr size_t kChunk = 65536;
using Buffer = std::array<char, kChunk>;

// Closes the stream when its owner ends, unless a newer request plays it now.
void CloseIfMine(const std::string& streamId, const std::string& owner,
                 void (*close)(const std::string&)) {
  auto ticket = HeldTicket::Take(streamId);
  if (!ticket || ticket->Owner() != owner) {
    return;
  }
  close(streamId);
  ticket->SetOwner("", -1, ticket->StartSeconds());
}

// Makes this request the owner of the stream; an older owner ends. Sets `audioId` to the audio
// track of the opening. Returns false and sets the refusal on failure.
bool TakeOver(const BytePlayback& playback, std::string& audioId, Answer& refusal) {
  const std::string streamId = playback.stream.GetStreamID();
  const std::string owner = libmrv::util::RandomString("", kOwnerLength);
  // This comes before the lock, because a child would inherit the lock and hold it longer.
  if (!WatchOverMe([&] { CloseIfMine(streamId, owner, playback.close); })) {
    return false;
  }
  auto ticket = HeldTicket::Take(streamId, refusal);
  if (!ticket || !ReviveDirectory(*ticket)) {
    return false;
  }
  // The older request learns this way why its transcoder ends.
  if (!ticket->SetOwner(owner, getpid(), playback.second)) {
    return false;
  }
  playback.stop(streamId);
  ticket->Directory().MarkAccess();
  audioId = ticket->Parameter("audio_id");
  return true;
}

// Starts the transcoder and reads its first bytes into `buffer`. Returns their number, or less than
// 1 on failure.
int StartTranscoder(const BytePlayback& playback, Buffer& buffer, StartTimes& times) {
  const pid_t me = getpid();
  const bool started = playback.stream.Transcoding(playback.executable, playback.second);
  if (getpid() != me) {
    // This is the detached process after a failed launch. It must not use the connection.
    _exit(1);
  }
  times.Mark("start");
  const int count = started ? playback.stream.Read(buffer.data(), buffer.size()) : -1;
  times.Mark("first_bytes");
  return count;
}

// Has the client closed the stream, or asked for another part of the film? It needs no more of this
// answer.
bool IsGivenUp(const std::string& streamId) {
  const auto ticket = Ticket::Read(streamId);
  return !ticket || ticket->OwnerPid() != getpid();
}

// Copies the stream to the client until one of them ends. An answer without its end tells the
// client that the film was not over.
void Pump(DirectStream& stream, int count, Buffer& buffer, const OpenAnswer& answer,
          const FilmReport& report) {
  while (count > 0 && answer.Send({buffer.data(), static_cast<size_t>(count)})) {
    count = stream.Read(buffer.data(), buffer.size());
  }
  if (count < 1 && (report.IsWhole() || IsGivenUp(stream.GetStreamID()))) {
    answer.Finish();
  }
}

}  // namespace

Answer PlayBytes(const BytePlayback& playback) {
  Buffer buffer{};
  StartTimes times;
  std::optional<FilmReport> report;
  int count = -1;
  // Of two requests at the same time, the older may enter the register first. It has already lost
  // the stream, and its transcoder ends when the newer request tries again.
  for (int attempt = 0; count < 1 && attempt < 2; ++attempt) {
    std::string audioId;
    Answer refusal = Answer::Failure(kNotFound, kStreamClosed);
    if (!TakeOver(playback, audioId, refusal)) {
      return refusal;
    }
    if (!playback.stream.Init(audioId)) {
      return Answer::Failure(playback.stream.GetErrorString());
    }
    times.Mark("admission");
    report.reset();
    report.emplace();
    count = StartTranscoder(playback, buffer, times);
  }
  if (count < 1) {
    return Answer::Failure(kInternal, "The transcoder produced no picture.");
  }
  const OpenAnswer answer(playback.headers);
  times.Mark("sent");
  RememberStart(playback.stream.GetStreamID(), times);
  Pump(playback.stream, count, buffer, answer, *report);
  return Answer::Sent();
}

std::optional<int> StartSecond(const Request& request, unsigned duration, Answer& refusal) {
  if (!request.Has("start")) {
    return 0;
  }
  const auto start = request.Number("start", duration);
  if (!start) {
    refusal = Answer::Failure(kBadRequest, "The start must be a whole second within the film.");
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
