#include "webapi/streaming.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string>

#include "accounts/secrets.h"
#include "platform/plat.h"
#include "policy/argument_helper.h"
#include "policy/profile_traits.h"
#include "policy/trans_loading.h"
#include "stream/liborvoqmx.h"
#include "util/json_utils.h"
#include "util/md5.h"
#include "webapi/caller.h"
#include "webapi/hls_playback.h"
#include "webapi/http_playback.h"
#include "webapi/media_library.h"
#include "webapi/profiles.h"
#include "webapi/ticket.h"

namespace webapi {
namespace {

using LibOrvoQMX::QMXInitArgument;
using LibOrvoQMX::QMXStream;
using LibOrvoQMX::VideoMetaData;

constexpr char kNoFilm[] = "TransVideoNotSupported";
constexpr time_t kAbandonedSeconds = 900;
constexpr time_t kTicketSeconds = 24 * 3600;

// The kinds of streams that this server offers.
struct StreamKind {
  const char* format;  // what the API calls it
  const char* kind;    // what the library calls it
  const char* name;    // behind the request program in an address, for players that look at it
  // Makes ready what was opened; adds to the answer what only this kind has to say.
  Answer (*prepare)(const Ticket& ticket, Json::Value& data);
  Answer (*play)(const Request& request, const std::string& streamId);
  void (*close)(const std::string& streamId);
};
constexpr std::array kStreamKinds = {
    StreamKind{"http", "HTTP", "", PrepareHttp, PlayHttp, CloseHttp},
    StreamKind{"hls", "HLS", "", PrepareHls, PlayHls, CloseHls},
};

// Parameters of an opening that every later request of the stream needs.
constexpr std::array kKeptParameters = {"audio_id", "audio_format", "subtitle_id",
                                        "subtitle_codepage", "force_open_qmx"};

const StreamKind* FindKind(const std::string& kind) {
  const auto found = std::find_if(kStreamKinds.begin(), kStreamKinds.end(),
                                  [&](const StreamKind& row) { return kind == row.kind; });
  return found == kStreamKinds.end() ? nullptr : found;
}

const StreamKind* KindOf(const Request& request, Answer& refusal) {
  const std::string format = request.Text("format");
  const auto found = std::find_if(kStreamKinds.begin(), kStreamKinds.end(),
                                  [&](const StreamKind& row) { return format == row.format; });
  if (found != kStreamKinds.end()) {
    return found;
  }
  refusal = Answer::Failure(
      kBadRequest, format.empty() ? "The parameter format is missing."
                                  : "This server does not stream the format " + format + ".");
  return nullptr;
}

std::string AddressOf(const Request& request, const StreamKind& kind, const Ticket& ticket) {
  const std::string link = StreamLink(ticket);
  return request.Scheme() + "://" + request.Authority() + "/webapi/entry.cgi" + kind.name +
         "?api=ORVO.Mirevo2.Streaming&version=1&method=stream&format=" + kind.format +
         "&stream_id=" + ticket.StreamId() + (link.empty() ? "" : "&_sid=" + link);
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
std::optional<Profile> ProfileFor(const Request& request, const std::string& format,
                                  const VideoMetaData& film, Answer& refusal) {
  const std::string key = request.Text("profile");
  if (key.empty()) {
    const auto chosen = ChooseProfile(format, film);
    if (!chosen) {
      refusal = Answer::Failure(kNoFilm);
    }
    return chosen;
  }
  const std::vector<Profile> profiles = ProfilesOf(format);
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

// A copied video needs no place among the transcoders. The progressive kind asks for one all the
// same.
bool IsBusy(const StreamKind& kind, const Profile& profile) {
  const auto traits = LibOrvoQMX::ProfileTraits::Of(profile.value);
  const bool needsPlace = !traits.remux || kind.kind == std::string("HTTP");
  return needsPlace && !LibMirevo::TransLoading().TransEnable(traits.hardware);
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
  return MayUse(request, streamId, refusal);
}

// Whose the stream is. One that is joined stays whose it was, and its addresses stay good.
void AddOwnership(const Request& request, const std::string& streamId, Json::Value& parameters) {
  const Caller& caller = request.MadeBy();
  if (caller.account.empty()) {
    return;
  }
  parameters["account"] = caller.account;
  parameters["era"] = caller.era;
  parameters["link"] = accounts::NewSecret();
  const auto joined = Ticket::Take(streamId);
  if (joined && !StreamLink(*joined).empty()) {
    for (const char* name : {"account", "era", "link"}) {
      parameters[name] = joined->Parameter(name);
    }
  }
}

Json::Value ParametersToKeep(const Request& request) {
  Json::Value parameters(Json::objectValue);
  for (const char* name : kKeptParameters) {
    if (request.Has(name)) {
      parameters[name] = request.Text(name);
    }
  }
  return parameters;
}

// Opens the stream of a film that has been found fit for it.
Answer Open(const Request& request, const StreamKind& kind, QMXInitArgument& argument,
            const VideoMetaData& film) {
  const std::string streamId = QMXStream::QMX_Init(argument);
  if (streamId == "TransSapceNotEnough") {
    return Answer::Failure(streamId);
  }
  Json::Value parameters = ParametersToKeep(request);
  AddOwnership(request, streamId, parameters);
  if (streamId.empty() || !Ticket::Create(streamId, kind.kind, parameters)) {
    return Answer::Failure(kInternal);
  }
  auto ticket = Ticket::Take(streamId);
  Json::Value data(Json::objectValue);
  const Answer prepared = ticket ? kind.prepare(*ticket, data) : Answer::Failure(kInternal);
  if (prepared.IsFailure()) {
    if (ticket) {
      ticket->Remove();
    }
    kind.close(streamId);
    return prepared;
  }
  data["stream_id"] = streamId;
  data["format"] = kind.format;
  data["profile"] = argument.profileKey;
  data["duration"] = film.GetDuration();
  data["url"] = AddressOf(request, kind, *ticket);
  return Answer::Success(data);
}

}  // namespace

Answer OpenStream(const Request& request) {
  Answer refusal = Answer::Failure(kInternal);
  const StreamKind* const kind = KindOf(request, refusal);
  if (kind == nullptr) {
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
  const auto profile = ProfileFor(request, kind->format, film, refusal);
  if (!profile) {
    return refusal;
  }
  if (!HasAudioTrack(film, request.Text("audio_id"))) {
    return Answer::Failure(kBadRequest, "The film has no audio track of this id.");
  }
  // A stream that is joined has its place already.
  if (streamId.empty() && IsBusy(*kind, *profile)) {
    return Answer::Failure("TransEnable");
  }
  SweepStreams();
  QMXInitArgument argument(*path, kind->kind, ProfileFile(), profile->key);
  argument.device = request.Text("device");
  argument.usePreAnalysis = request.Text("use_pre_analysis") != "false";
  argument.args["hls_header"] = request.Text("hls_header") == "true";
  if (!streamId.empty()) {
    argument.args["stream_id"] = streamId;
  }
  return Open(request, *kind, argument, film);
}

Answer PlayStream(const Request& request) {
  Answer refusal = Answer::Failure(kInternal);
  const StreamKind* const kind = KindOf(request, refusal);
  const std::string streamId = kind != nullptr ? StreamIdOf(request, refusal) : "";
  if (streamId.empty() || !MayUse(request, streamId, refusal)) {
    return refusal;
  }
  {
    // Not held for as long as the film is played.
    const auto ticket = Ticket::Take(streamId);
    if (!ticket || ticket->Kind() != kind->kind) {
      return Answer::Failure(kNotFound, kStreamClosed);
    }
    const Answer revived = ReviveStream(*ticket);
    if (revived.IsFailure()) {
      return revived;
    }
  }
  return kind->play(request, streamId);
}

Answer CloseStream(const Request& request) {
  Answer refusal = Answer::Failure(kInternal);
  const StreamKind* const kind = KindOf(request, refusal);
  const std::string streamId = kind != nullptr ? StreamIdOf(request, refusal) : "";
  if (streamId.empty() || !MayUse(request, streamId, refusal)) {
    return refusal;
  }
  if (auto ticket = Ticket::Take(streamId)) {
    ticket->Remove();
  }
  kind->close(streamId);
  return Answer::Success(Json::Value(Json::objectValue));
}

Answer ReviveStream(const Ticket& ticket) {
  const StreamKind* const kind = FindKind(ticket.Kind());
  if (ticket.HasDirectory() || kind == nullptr) {
    return Answer::Sent();
  }
  Json::Value ignored;
  return ticket.Revive() ? kind->prepare(ticket, ignored) : Answer::Failure("TransSapceNotEnough");
}

void SweepStreams() {
  const time_t now = time(nullptr);
  for (const std::string& id : Ticket::All()) {
    auto ticket = Ticket::Take(id);
    if (!ticket || PlatProcAlive(ticket->OwnerPid())) {
      continue;
    }
    const StreamKind* const kind = FindKind(ticket->Kind());
    const time_t idle = now - ticket->LastUse();
    if (idle > kAbandonedSeconds && kind != nullptr) {
      kind->close(id);
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
  for (const StreamKind& kind : kStreamKinds) {
    std::error_code failure;
    const std::string folder = KindFolder(kind.kind);
    for (const auto& entry : std::filesystem::directory_iterator(folder, failure)) {
      kind.close(entry.path().filename().string());
    }
  }
}

}  // namespace webapi
