#include "webapi/subtitles/subtitle.h"

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/confinement.h"
#include "platform/io.h"
#include "util/file_lock.h"
#include "util/md5.h"
#include "webapi/access/ticket.h"
#include "webapi/http/deadline.h"
#include "webapi/http/send_file.h"
#include "webapi/http/work.h"
#include "webapi/streams/streaming.h"
#include "webapi/subtitles/character_set.h"
#include "webapi/subtitles/subtitle_source.h"
#include "webapi/subtitles/webvtt.h"

namespace webapi {
namespace {

// What a caller may ask for (`output`).
struct Output {
  std::string_view word;
  SubtitleForm form;  // of the subtitles that have this output; kNone: all but pictures
  const char* contentType;
};
constexpr std::array kOutputs = {
    Output{"", SubtitleForm::kNone, "text/vtt; charset=utf-8"},
    Output{"webvtt", SubtitleForm::kNone, "text/vtt; charset=utf-8"},
    Output{"ass", SubtitleForm::kAss, "text/x-ssa; charset=utf-8"},
    Output{"sup", SubtitleForm::kPicture, "application/octet-stream"},
};
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
  orvo::MediaFile file;
  std::string folder;
};

// The duration is in whole seconds, so a film lasts up to a second longer. A playlist's last span
// ends at the whole second.
bool ReachesTheEnd(const Span& span, const Json::Value& film) {
  const Json::Value& duration = film["duration"];
  return duration.isUInt() && span.end >= int64_t{duration.asUInt()} * 1000;
}

std::optional<Stream> StreamOf(const Request& request, Answer& refusal) {
  auto ticket = Ticket::Of(request);
  if (!ticket) {
    refusal = Answer::Failure(kNotFound, kStreamClosed);
    return std::nullopt;
  }
  if (!MayUse(request.MadeBy(), *ticket, refusal) || !MakeKnown(request, ticket, refusal)) {
    return std::nullopt;
  }
  // The folder stores the converted track. Without it, the film can still be read.
  ReviveStream(*ticket);
  ticket->MarkUse();
  auto file = OpenFilmOf(*ticket, refusal);
  return file ? std::optional(Stream{ticket->Record(), std::move(*file), ticket->Folder()})
              : std::nullopt;
}

// A file in the stream's directory that saves work: an extracted text or a converted track. Several
// requests may make it at the same time. It gets its name when it is complete.
class KeptFile {
 public:
  KeptFile(const std::string& folder, const std::string& key, const char* ending)
      : path_(folder + "/subtitle-" + LibMirevo::GetMD5(key) + ending) {}

  bool Load(std::string& content) const {
    content = orvo::ReadOwnFile(path_, kLargest).value_or("");
    return !content.empty();
  }

  // A full disk or a removed folder is not a failure.
  void Save(const std::string& content) const { orvo::ReplaceFile(path_, content); }

  // The lock for making the file. Not held if there is no folder for it, or if another request
  // takes too long.
  orvo::FileLock Lock() const {
    return orvo::FileLock::Wait(LockPath(), kSubtitleWork.queue.milliseconds);
  }
  bool HasLock() const { return access(LockPath().c_str(), F_OK) == 0; }

 private:
  // More than the longest WebVTT that the largest subtitle file gives.
  static constexpr size_t kLargest = 256 << 20;

  std::string LockPath() const { return path_ + ".lock"; }

  std::string path_;
};

// The time for one conversion; 0 for no limit.
unsigned ConversionSeconds() {
  constexpr unsigned kParsing = 60;
  const uint64_t extraction = orvo::LimitsOf(orvo::Job::kSubtitles).wall;
  return extraction == 0 ? 0 : static_cast<unsigned>(extraction) + kParsing;
}

std::optional<orvo::Place> TakeSubtitlePlace(Answer& refusal) {
  auto place = TakePlace(kSubtitleWork);
  if (!place) {
    refusal = Answer::Failure(kBusy,
                              "The server is reading other subtitles. Try again in a few seconds.");
  }
  return place;
}

// The text of a track in the film. One request extracts it; the others wait for that one, but not
// for ever.
bool GetExtractedText(const Stream& stream, const SubtitleSource& source,
                      const std::string& subtitleId, std::string& text, Answer& refusal) {
  const KeptFile kept(stream.folder, subtitleId, ".txt");
  if (kept.Load(text)) {
    return true;
  }
  const auto lock = kept.Lock();
  if (kept.Load(text)) {
    return true;
  }
  // Where no lock can be made, there is nothing to share.
  if (!lock.IsHeld() && kept.HasLock()) {
    refusal = Answer::Failure(kBusy, "These subtitles are being read from the film. Try again.");
    return false;
  }
  const auto place = TakeSubtitlePlace(refusal);
  if (!place || !source.Read(text, refusal)) {
    return false;
  }
  kept.Save(text);
  return true;
}

bool GetText(const Stream& stream, const SubtitleSource& source, const std::string& subtitleId,
             std::string& text, Answer& refusal) {
  SetDeadline(ConversionSeconds());
  return source.IsExtracted() ? GetExtractedText(stream, source, subtitleId, text, refusal)
                              : source.Read(text, refusal);
}

// The request's parameters after their check.
struct Wish {
  std::string subtitleId;
  std::string codepage;
  Span span;
  const Output* output = nullptr;
};

bool IsOffered(SubtitleForm form, const Output& output) {
  return output.form == SubtitleForm::kNone ? form != SubtitleForm::kPicture : form == output.form;
}

// The source of the wanted subtitles. Returns null and sets the refusal if they do not exist or do
// not have this output.
std::unique_ptr<SubtitleSource> SourceOf(const Stream& stream, const Wish& wish, Answer& refusal) {
  auto source = SubtitleSource::Find(stream.film, stream.file, wish.subtitleId, refusal);
  if (source != nullptr && !IsOffered(source->Form(), *wish.output)) {
    refusal = Answer::Failure(kBadRequest, "These subtitles have another form than this output.");
    return nullptr;
  }
  return source;
}

// The whole track, stored or newly converted. No lock is held while it is converted. Returns false
// and sets the refusal on failure.
bool GetTrack(const Stream& stream, const Wish& wish, std::string& webVtt, Answer& refusal) {
  // No code page's name contains a line end, so two pairs never have the same key.
  const KeptFile kept(stream.folder, wish.subtitleId + "\n" + wish.codepage, ".vtt");
  if (kept.Load(webVtt)) {
    return true;
  }
  const auto source = SourceOf(stream, wish, refusal);
  std::string text;
  if (source == nullptr || !GetText(stream, *source, wish.subtitleId, text, refusal)) {
    return false;
  }
  const auto place = TakeSubtitlePlace(refusal);
  if (!place) {
    return false;
  }
  webVtt = source->Convert(text, wish.codepage);
  kept.Save(webVtt);
  return true;
}

// Reads the parameters. Returns nothing and sets the refusal if one is missing or wrong.
std::optional<Wish> WishOf(const Request& request, Answer& refusal) {
  const auto fail = [&refusal](const char* message) {
    refusal = Answer::Failure(kBadRequest, message);
    return std::nullopt;
  };
  const auto span = SpanOf(request);
  if (!span) {
    return fail("The times must be whole seconds, the end not before the start.");
  }
  if (!request.Has("subtitle_id")) {
    return fail("The parameter subtitle_id is missing.");
  }
  const std::string codepage = request.Text("subtitle_codepage");
  if (!codepage.empty() && !IsCharacterSet(codepage)) {
    return fail("This server knows no code page of this name.");
  }
  const std::string word = request.Text("output");
  const auto* const output = std::find_if(kOutputs.begin(), kOutputs.end(),
                                          [&](const Output& one) { return one.word == word; });
  if (output == kOutputs.end()) {
    return fail("The output must be webvtt, ass or sup.");
  }
  return Wish{request.Text("subtitle_id"), codepage, *span, output};
}

Answer SendWebVtt(const Request& request, const Stream& stream, Wish wish) {
  Answer refusal = Answer::Failure(kInternal);
  std::string webVtt;
  if (!GetTrack(stream, wish, webVtt, refusal)) {
    return refusal;
  }
  if (ReachesTheEnd(wish.span, stream.film)) {
    wish.span.end = Span().end;
  }
  // The track is parsed and written again even if all of it is sent, because the stored file may be
  // damaged.
  const auto cues = Slice(ParseWebVtt(webVtt), wish.span.start, wish.span.end);
  return SendText(request, wish.output->contentType, WriteWebVtt(cues));
}

// Sends the whole track as the film has it. Scripts come in UTF-8.
Answer SendAsItIs(const Request& request, const Stream& stream, const Wish& wish) {
  Answer refusal = Answer::Failure(kInternal);
  const auto source = SourceOf(stream, wish, refusal);
  std::string text;
  if (source == nullptr || !GetText(stream, *source, wish.subtitleId, text, refusal)) {
    return refusal;
  }
  const bool isScript = source->Form() == SubtitleForm::kAss;
  return SendText(request, wish.output->contentType, isScript ? ToUtf8(text, wish.codepage) : text);
}

}  // namespace

Answer GetSubtitle(const Request& request) {
  Answer refusal = Answer::Failure(kInternal);
  if (StreamIdOf(request, refusal).empty()) {
    return refusal;
  }
  const auto wish = WishOf(request, refusal);
  if (!wish) {
    return refusal;
  }
  const auto stream = StreamOf(request, refusal);
  if (!stream) {
    return refusal;
  }
  return wish->output->form == SubtitleForm::kNone ? SendWebVtt(request, *stream, *wish)
                                                   : SendAsItIs(request, *stream, *wish);
}

}  // namespace webapi
