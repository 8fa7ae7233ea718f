#include "webapi/television/television.h"
#include "webapi/access/identity.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <optional>
#include <string_view>

#include "accounts/secrets.h"
#include "metadata/video_metadata.h"
#include "platform/io.h"
#include "platform/network.h"
#include "util/json_utils.h"
#include "util/md5.h"
#include "webapi/access/identity.h"
#include "webapi/choice/profiles.h"
#include "webapi/http/deadline.h"
#include "webapi/http/send_file.h"
#include "webapi/http/work.h"
#include "webapi/library/media_library.h"
#include "webapi/library/media_types.h"
#include "webapi/library/picture.h"
#include "webapi/streams/streaming.h"
#include "webapi/television/admission.h"
#include "webapi/television/browse.h"
#include "webapi/television/object_id.h"
#include "webapi/television/resources.h"

namespace webapi {
namespace {

constexpr char kBrowse[] = "/browse";
constexpr char kBearer[] = "Bearer ";
constexpr unsigned kBrowseSeconds = 60;
constexpr unsigned kStreamSeconds = 300;
constexpr size_t kStreamNameLength = 8;
constexpr char kBrowserKey[] = "http_mp4_";
constexpr char kTelevisionKey[] = "http_ts_";

void AddText(Request& request, const std::string& name, const std::string& value) {
  request.AddParameters(name + "=" + EncodeQueryValue(value));
}

// As a JSON text: a path in quotes would be taken for one.
void AddPath(Request& request, const std::string& path) {
  std::string text = LibMirevo::FormatJson(Json::Value(path));
  text.pop_back();
  AddText(request, "path", text);
}

// Sends the headers that a television may ask for.
void SendTransferHeaders(const Request& request, const std::string& features, const char* mode) {
  std::string headers = std::string("transferMode.dlna.org: ") + mode + "\r\n";
  if (request.Header("GETCONTENTFEATURES_DLNA_ORG") == "1") {
    headers += "contentFeatures.dlna.org: " + features + "\r\n";
  }
  orvo::WriteAll(STDOUT_FILENO, headers);
}

Answer SendOwnForm(const Request& request, const orvo::MediaFile& film) {
  const std::string type = MediaTypeOf(film.Path());
  SendTransferHeaders(request, FeaturesOf(type), "Streaming");
  return SendFile(request, film, type);
}

Answer SendSubtitle(const Request& request, const orvo::MediaFile& film) {
  const orvo::MediaFile subtitle = SubtitleBeside(film);
  if (!subtitle.IsOpen()) {
    return Answer::Failure(kNotFound);
  }
  return SendFile(request, subtitle, "text/srt");
}

// The profile of a transport stream for this film; "" if there is none. Televisions play no other
// stream whose end is not known.
std::string TelevisionProfile(const orvo::MediaFile& file, Answer& refusal) {
  const auto place = TakePlace(kFilmWork);
  LibOrvoQMX::VideoMetaData film;
  if (!place || !film.LoadFile(file)) {
    refusal = Answer::Failure(place ? "TransVideoNotSupported" : kBusy);
    return "";
  }
  auto profiles = JudgeProfiles("http", film);
  const JudgedProfile* const usual = ChooseProfile("http", profiles, film);
  if (usual == nullptr || !usual->profile.key.starts_with(kBrowserKey)) {
    refusal = Answer::Failure("TransVideoNotSupported");
    return "";
  }
  return kTelevisionKey + usual->profile.key.substr(sizeof(kBrowserKey) - 1);
}

// The stream of this television and this film. Each new request of it takes the stream over, so a
// television that seeks has one transcoder.
std::string StreamFor(const Request& request, const std::string& path) {
  const std::string viewer =
      LibMirevo::GetMD5("television " + request.ClientAddress() + " " + path);
  return LibMirevo::GetMD5(path) + "_" + viewer.substr(0, kStreamNameLength);
}

// The second in "npt=12.3-" or "npt=0:00:12.3-", the two forms of TimeSeekRange.dlna.org; nothing
// for any other text.
std::optional<int64_t> SecondOf(const std::string& header) {
  constexpr std::string_view kUnit = "npt=";
  constexpr int64_t kMostDigits = 9;
  if (!header.starts_with(kUnit)) {
    return std::nullopt;
  }
  int64_t seconds = 0;
  int64_t number = 0;
  int64_t digits = 0;
  for (const char c : header.substr(kUnit.size())) {
    if (c == ':') {
      seconds = (seconds + number) * 60;
      number = 0;
    } else if (c == '.' || c == '-') {
      return seconds + number;
    } else if (std::isdigit(static_cast<unsigned char>(c)) == 0 || ++digits > kMostDigits) {
      return std::nullopt;
    } else {
      number = number * 10 + (c - '0');
    }
  }
  return std::nullopt;
}

// Begins where the television wants to, and tells it so.
void AddStart(Request& request, unsigned duration) {
  const auto second = SecondOf(request.Header("TIMESEEKRANGE_DLNA_ORG"));
  if (!second || *second >= duration) {
    return;
  }
  AddText(request, "start", std::to_string(*second));
  orvo::WriteAll(STDOUT_FILENO, "TimeSeekRange.dlna.org: npt=" + std::to_string(*second) + ".000-" +
                                    std::to_string(duration) + ".000/" + std::to_string(duration) +
                                    ".000\r\n");
}

// The stream is opened by the first request for it.
Answer OpenConversion(Request& request, const orvo::MediaFile& film) {
  Answer refusal = Answer::Failure(kInternal);
  const std::string profile = TelevisionProfile(film, refusal);
  if (profile.empty()) {
    return refusal;
  }
  AddText(request, "profile", profile);
  return OpenStream(request);
}

Answer SendConversion(Request& request, const orvo::MediaFile& film) {
  SetDeadline(kStreamSeconds);
  if (request.Method() == "HEAD") {
    SendTransferHeaders(request, FeaturesOfConversion(), "Streaming");
    SendFileHeaders(kConvertedType);
    return Answer::Sent();
  }
  AddPath(request, film.Path());
  AddText(request, "format", "http");
  AddText(request, "stream_id", StreamFor(request, film.Path()));
  AddText(request, "force_open_qmx", "true");
  if (!Ticket::Exists(request.StreamId())) {
    const Answer opened = OpenConversion(request, film);
    if (opened.IsFailure()) {
      return opened;
    }
  }
  const auto ticket = Ticket::Of(request);
  SendTransferHeaders(request, FeaturesOfConversion(), "Streaming");
  AddStart(request, ticket ? ticket->Duration() : 0);
  return PlayStream(request);
}

Answer SendForm(Request& request, const std::string& path, const std::string& form) {
  if (form == kPosterForm) {
    AddPath(request, path);
    return SendPoster(request);
  }
  Answer refusal = Answer::Failure(kInternal);
  const auto film = OpenFilm(path, refusal);
  if (!film) {
    return refusal;
  }
  if (form == kConvertedForm) {
    return SendConversion(request, *film);
  }
  if (form == kSubtitleForm) {
    return SendSubtitle(request, *film);
  }
  return form.starts_with(kOwnForm) ? SendOwnForm(request, *film) : Answer::Failure(kNotFound);
}

bool IsMediaServer(const Request& request, const Admission& admission) {
  const std::string shown = request.Header("AUTHORIZATION");
  return shown.starts_with(kBearer) &&
         accounts::SameSecret(shown.substr(sizeof(kBearer) - 1), admission.word);
}

Answer Browse(const Request& request, const Admission& admission) {
  if (!IsMediaServer(request, admission)) {
    return Answer::Failure(kForbidden);
  }
  std::string error;
  const auto read = Request::Read(error);
  return read ? BrowseForTelevision(*read, admission) : Answer::Failure(kBadRequest, error);
}

}  // namespace

std::string TelevisionAddress(const std::string& id) {
  return PathPrefix() + kTelevisionProgram + "/" + id;
}

Answer ServeTelevision(Request request) {
  const auto admission = AdmitTelevisions();
  if (!admission) {
    return Answer::Failure(kNotFound);
  }
  if (!orvo::IsPrivateAddress(request.ClientAddress())) {
    return Answer::Failure(kForbidden);
  }
  SetDeadline(kBrowseSeconds);
  Caller caller = admission->caller;
  caller.client = ClientAt(request);  // each television has places of its own
  request.SetCaller(caller);
  if (!admission->caller.roots.empty()) {
    LimitMediaRoots(admission->caller.roots);
  }
  const std::string path = request.PathInProgram().value_or("");
  if (path == kBrowse) {
    return Browse(request, *admission);
  }
  const size_t slash = std::min(path.find('/', 1), path.size());
  const auto place = slash > 1 && slash < path.size()
                         ? PathOfObject(*admission, path.substr(1, slash - 1))
                         : std::nullopt;
  return place ? SendForm(request, *place, path.substr(slash + 1)) : Answer::Failure(kNotFound);
}

}  // namespace webapi
