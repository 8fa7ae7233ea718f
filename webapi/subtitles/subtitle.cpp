#include "webapi/subtitles/subtitle.h"

#include <unistd.h>

#include <fstream>
#include <limits>
#include <optional>
#include <string>

#include "platform/confinement.h"
#include "platform/io.h"
#include "util/file_lock.h"
#include "util/md5.h"
#include "webapi/access/ticket.h"
#include "webapi/http/deadline.h"
#include "webapi/http/work.h"
#include "webapi/streams/streaming.h"
#include "webapi/subtitles/character_set.h"
#include "webapi/subtitles/subtitle_source.h"
#include "webapi/subtitles/webvtt.h"

namespace webapi {
namespace {

constexpr char kContentType[] = "text/vtt; charset=utf-8";
constexpr int64_t kLastSecond = 1000 * 3600;

struct Span {
  int64_t start = 0;  // milliseconds
  int64_t end = std::numeric_limits<int64_t>::max();
};

// Reads an optional time into `milliseconds`. Returns false if it is not a whole second.
bool ReadTime(const Request& request, const char* name, int64_t& milliseconds) {
  if (!request.Has(name)) {
    return true;
  }
  const auto seconds = request.Number(name, kLastSecond);
  milliseconds = seconds.value_or(0) * 1000;
  return seconds.has_value();
}

std::optional<Span> SpanOf(const Request& request) {
  Span span;
  const bool isRead = ReadTime(request, "webvtt_start_time", span.start) &&
                      ReadTime(request, "webvtt_end_time", span.end);
  return isRead && span.start <= span.end ? std::optional(span) : std::nullopt;
}

// The data of the stream that a request needs. It is copied, so the ticket is not held while a film
// is read.
struct Stream {
  Json::Value film;
  std::string folder;
};

// The duration is in whole seconds, so a film lasts up to a second longer. A playlist's last span
// ends at the whole second.
bool ReachesTheEnd(const Span& span, const Json::Value& film) {
  const Json::Value& duration = film["duration"];
  return duration.isUInt() && span.end >= int64_t{duration.asUInt()} * 1000;
}

std::optional<Stream> StreamOf(const Request& request, Answer& refusal) {
  const auto ticket = Ticket::Of(request);
  if (!ticket) {
    refusal = Answer::Failure(kNotFound, kStreamClosed);
    return std::nullopt;
  }
  if (!MayUse(request.MadeBy(), *ticket, refusal)) {
    return std::nullopt;
  }
  // The folder stores the converted track. Without it, the film can still be read.
  ReviveStream(*ticket);
  ticket->MarkUse();
  return Stream{ticket->Record(), ticket->Folder()};
}

// A converted track on disk. Several requests may convert the same track at the same time. The file
// gets its name when it is complete.
class KeptTrack {
 public:
  KeptTrack(const std::string& folder, const std::string& subtitleId, const std::string& codepage)
      // No code page's name contains a line end, so two pairs never have the same key.
      : folder_(folder),
        path_(folder + "/subtitle-" + LibMirevo::GetMD5(subtitleId + "\n" + codepage) + ".vtt"),
        lock_(folder + "/subtitle-" + LibMirevo::GetMD5(subtitleId) + ".lock") {}

  bool Load(std::string& webVtt) const {
    webVtt.clear();
    std::ifstream file(path_, std::ios::binary);
    return orvo::ReadAll(file, webVtt) && !webVtt.empty();
  }

  // The stored track only saves time, so a full disk or a removed folder is not a failure.
  void Save(const std::string& webVtt) const { orvo::ReplaceFile(path_, webVtt); }

  // The lock for the conversions of the track, whatever the code page: each reads the whole film.
  // Not held if there is no folder for it, or if another conversion takes too long.
  orvo::FileLock Lock() const {
    return orvo::FileLock::Wait(lock_, kSubtitleWork.queue.milliseconds);
  }
  bool HasFolder() const { return access(folder_.c_str(), F_OK) == 0; }

 private:
  std::string folder_;
  std::string path_;
  std::string lock_;
};

// The time for one conversion; 0 for no limit.
unsigned ConversionSeconds() {
  constexpr unsigned kParsing = 60;
  const uint64_t extraction = orvo::LimitsOf(orvo::Job::kSubtitles).wall;
  return extraction == 0 ? 0 : static_cast<unsigned>(extraction) + kParsing;
}

// The whole track, stored or newly converted. Returns false and sets the refusal on failure.
bool GetTrack(const Stream& stream, const std::string& subtitleId, const std::string& codepage,
              std::string& webVtt, Answer& refusal) {
  const KeptTrack kept(stream.folder, subtitleId, codepage);
  if (kept.Load(webVtt)) {
    return true;
  }
  const auto source = SubtitleSource::Find(stream.film, subtitleId, refusal);
  if (source == nullptr) {
    return false;
  }
  // One request converts the track; the others wait for its result.
  const auto lock = kept.Lock();
  if (kept.Load(webVtt)) {
    return true;
  }
  const auto place = lock.IsHeld() || !kept.HasFolder() ? TakePlace(kSubtitleWork) : std::nullopt;
  if (!place) {
    refusal = Answer::Failure(kBusy,
                              "The server is reading other subtitles. Try again in a few seconds.");
    return false;
  }
  SetDeadline(ConversionSeconds());
  if (!source->Convert(codepage, webVtt, refusal)) {
    return false;
  }
  kept.Save(webVtt);
  return true;
}

Answer Send(const std::string& webVtt, bool headersOnly) {
  std::string text = std::string("Status: 200 OK\r\nContent-Type: ") + kContentType;
  text += "\r\nContent-Length: " + std::to_string(webVtt.size());
  text += "\r\nCache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n\r\n";
  orvo::WriteAll(STDOUT_FILENO, headersOnly ? text : text + webVtt);
  return Answer::Sent();
}

}  // namespace

Answer GetSubtitle(const Request& request) {
  Answer refusal = Answer::Failure(kInternal);
  if (StreamIdOf(request, refusal).empty()) {
    return refusal;
  }
  auto span = SpanOf(request);
  if (!span) {
    return Answer::Failure(kBadRequest,
                           "The times must be whole seconds, the end not before the start.");
  }
  if (!request.Has("subtitle_id")) {
    return Answer::Failure(kBadRequest, "The parameter subtitle_id is missing.");
  }
  const std::string codepage = request.Text("subtitle_codepage");
  if (!codepage.empty() && !IsCharacterSet(codepage)) {
    return Answer::Failure(kBadRequest, "This server knows no code page of this name.");
  }
  const auto stream = StreamOf(request, refusal);
  if (!stream) {
    return refusal;
  }
  std::string webVtt;
  if (!GetTrack(*stream, request.Text("subtitle_id"), codepage, webVtt, refusal)) {
    return refusal;
  }
  if (ReachesTheEnd(*span, stream->film)) {
    span->end = Span().end;
  }
  // The track is parsed and written again even if all of it is sent, because the stored file may be
  // damaged.
  return Send(WriteWebVtt(Slice(ParseWebVtt(webVtt), span->start, span->end)),
              request.Method() == "HEAD");
}

}  // namespace webapi
