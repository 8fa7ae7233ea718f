#include "webapi/streams/streaming.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "accounts/secrets.h"
#include "platform/plat.h"
#include "policy/argument_helper.h"
#include "policy/profile_traits.h"
#include "policy/trans_loading.h"
#include "stream/liborvoqmx.h"
#include "util/json_utils.h"
#include "util/md5.h"
#include "util/system_files.h"
#include "webapi/access/network_address.h"
#include "webapi/access/ticket.h"
#include "webapi/choice/client_support.h"
#include "webapi/choice/profiles.h"
#include "webapi/library/media_library.h"
#include "webapi/streams/direct_playback.h"
#include "webapi/streams/hls_playback.h"
#include "webapi/streams/http_playback.h"
#include "webapi/streams/recent_streams.h"
#include "webapi/streams/revival.h"
#include "webapi/streams/smooth_playback.h"
#include "webapi/streams/webm_playback.h"

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
  const char* format;  // its name in the API
  const char* kind;    // its name in the library
  const char* name;    // the file name in an address, for players that look at it
  // Prepares an opened stream, and adds the data of this kind to the answer.
  Answer (*prepare)(const Ticket& ticket, Json::Value& data);
  Answer (*play)(const Request& request, const Ticket& ticket);
  void (*close)(const std::string& streamId);
};
constexpr std::array kStreamKinds = {
    StreamKind{"http", "HTTP", "", PrepareHttp, PlayHttp, CloseHttp},
    StreamKind{"hls", "HLS", "", PrepareHls, PlayHls, CloseHls},
    StreamKind{"webm", "WEBM", "", PrepareWebm, PlayWebm, CloseWebm},
    StreamKind{"ss", "SS", "/Manifest", PrepareSmooth, PlaySmooth, CloseSmooth},
    StreamKind{"direct", kDirectKind, "", PrepareDirect, PlayDirect, CloseDirect},
};

// Parameters of an opening that later requests of the stream need.
constexpr std::array kKeptParameters = {"audio_id", "audio_format", "subtitle_id",
                                        "subtitle_codepage", "force_open_qmx"};

const StreamKind* FindKind(const std::string& kind) {
  const auto found = std::find_if(kStreamKinds.begin(), kStreamKinds.end(),
                                  [&](const StreamKind& row) { return kind == row.kind; });
  return found == kStreamKinds.end() ? nullptr : found;
}

const StreamKind* FindFormat(const std::string& format) {
  const auto found = std::find_if(kStreamKinds.begin(), kStreamKinds.end(),
                                  [&](const StreamKind& row) { return format == row.format; });
  return found == kStreamKinds.end() ? nullptr : found;
}

const StreamKind* KindOf(const Request& request, Answer& refusal) {
  const std::string format = request.Text("format");
  if (const StreamKind* const found = FindFormat(format)) {
    return found;
  }
  refusal = Answer::Failure(
      kBadRequest, format.empty() ? "The parameter format is missing."
                                  : "This server does not stream the format " + format + ".");
  return nullptr;
}

// `authority`: the host and port in the address.
std::string AddressOf(const Request& request, const std::string& authority, const StreamKind& kind,
                      const Ticket& ticket) {
  const std::string link = StreamLink(ticket);
  return request.Scheme() + "://" + authority + "/webapi/entry.cgi" + kind.name +
         "?api=ORVO.Mirevo2.Streaming&version=1&method=stream&format=" + kind.format +
         "&stream_id=" + ticket.StreamId() + (link.empty() ? "" : "&_sid=" + link);
}

// The profile for a request that names none.
std::optional<JudgedProfile> UsualProfile(const std::string& format, const VideoMetaData& film,
                                          Answer& refusal) {
  const std::vector<JudgedProfile> profiles = JudgeProfiles(format, film);
  if (const JudgedProfile* const chosen = ChooseProfile(format, profiles, film)) {
    return *chosen;
  }
  refusal = Answer::Failure(kNoFilm);
  return std::nullopt;
}

// The profile that the request names.
std::optional<JudgedProfile> NamedProfile(const std::string& key, const std::string& format,
                                          const VideoMetaData& film, Answer& refusal) {
  const std::vector<Profile> profiles = ProfilesOf(format);
  const auto found = std::find_if(profiles.begin(), profiles.end(),
                                  [&](const Profile& profile) { return profile.key == key; });
  if (found == profiles.end()) {
    refusal = Answer::Failure(kBadRequest, "There is no profile with this name.");
    return std::nullopt;
  }
  const Verdict verdict = Judge(*found, film);
  if (verdict.method == "refused") {
    refusal = Answer::Failure(verdict.refusal, verdict.why);
    return std::nullopt;
  }
  return JudgedProfile{*found, verdict};
}

// The way a stream will be played, and the reason.
struct Rendition {
  Profile profile;
  std::string method;
  std::string why;
  std::string contentType;  // set if it is the film's own type
};

std::optional<Rendition> DirectRendition(const Request& request, const VideoMetaData& film,
                                         Answer& refusal) {
  const std::string key = request.Text("profile");
  if (!key.empty() && key != kDirectProfile) {
    refusal = Answer::Failure(kBadRequest, "There is no profile with this name.");
    return std::nullopt;
  }
  const DirectVerdict verdict = JudgeDirect(film, ClientOf(request));
  if (!verdict.fits) {
    refusal = Answer::Failure(kNoFilm, verdict.why);
    return std::nullopt;
  }
  return Rendition{{kDirectProfile, ""}, kDirectProfile, verdict.why, verdict.contentType};
}

std::optional<Rendition> RenditionFor(const Request& request, const StreamKind& kind,
                                      const VideoMetaData& film, Answer& refusal) {
  if (kind.kind == std::string(kDirectKind)) {
    return DirectRendition(request, film, refusal);
  }
  const std::string key = request.Text("profile");
  const auto chosen = key.empty() ? UsualProfile(kind.format, film, refusal)
                                  : NamedProfile(key, kind.format, film, refusal);
  if (!chosen) {
    return std::nullopt;
  }
  return Rendition{chosen->profile, chosen->verdict.method, chosen->verdict.why, ""};
}

// A kind of stream with the way in which it plays a film.
struct Choice {
  const StreamKind* kind;
  Rendition rendition;
};

// The kinds for a request that names none, the one with the least work for the server first.
constexpr std::array kPreferred = {"direct", "hls", "http", "webm", "ss"};

// A file as it is plays its own first sound track.
bool ChoosesSound(const Request& request) {
  return request.Has("audio_id") || request.Has("audio_format") || request.Has("sound");
}

// The first kind that fits. If none does, `refusal` has the reason of the last one.
std::optional<Choice> ChooseKind(const Request& request, const VideoMetaData& film,
                                 Answer& refusal) {
  for (const char* format : kPreferred) {
    const StreamKind* const kind = FindFormat(format);
    if (kind->kind == std::string(kDirectKind) && ChoosesSound(request)) {
      continue;
    }
    if (auto rendition = RenditionFor(request, *kind, film, refusal)) {
      return Choice{kind, std::move(*rendition)};
    }
  }
  return std::nullopt;
}

// The kind that the request names, or the one that fits if it names none.
std::optional<Choice> ChoiceFor(const Request& request, const VideoMetaData& film,
                                Answer& refusal) {
  if (request.Text("format").empty()) {
    return ChooseKind(request, film, refusal);
  }
  const StreamKind* const kind = KindOf(request, refusal);
  auto rendition = kind != nullptr ? RenditionFor(request, *kind, film, refusal) : std::nullopt;
  return rendition ? std::optional(Choice{kind, std::move(*rendition)}) : std::nullopt;
}

bool HasAudioTrack(const VideoMetaData& film, const std::string& id) {
  return id.empty() || !LibOrvoQMX::ArgumentHelper(film).GetAudioTrackInfoByID(id).isNull();
}

constexpr std::array<std::string_view, 3> kSoundWishes = {"stereo", "night", "original"};

bool IsSoundWish(const Request& request) {
  const std::string wish = request.Text("sound");
  return !request.Has("sound") ||
         std::find(kSoundWishes.begin(), kSoundWishes.end(), wish) != kSoundWishes.end();
}

// Copied video needs no room in the register. The progressive kind asks for it in any case.
bool IsBusy(const StreamKind& kind, const Rendition& rendition) {
  const auto traits = LibOrvoQMX::ProfileTraits::Of(rendition.profile.value);
  const bool needsPlace = rendition.method == "transcode" || kind.kind == std::string("HTTP");
  return needsPlace && !LibMirevo::TransLoading().TransEnable(traits.hardware);
}

// The stream that a request joins.
struct Joined {
  std::string streamId;  // "" for a new one
  std::optional<Ticket> ticket;
};

// If the request may not join it, returns nothing and sets `refusal` to the answer.
std::optional<Joined> JoinedStream(const Request& request, const std::string& path,
                                   Answer& refusal) {
  if (!request.Has("stream_id")) {
    return Joined{};
  }
  Joined joined{StreamIdOf(request, refusal), Ticket::Of(request)};
  if (joined.streamId.empty() || joined.streamId.rfind(LibMirevo::GetMD5(path) + "_", 0) != 0) {
    refusal = Answer::Failure(kBadRequest, "This is not the id of a stream of this film.");
    return std::nullopt;
  }
  const bool isGood = !joined.ticket || MayUse(request.MadeBy(), *joined.ticket, refusal);
  return isGood ? std::optional(std::move(joined)) : std::nullopt;
}

// Adds the owner of the stream. A joined stream keeps its owner and its addresses.
void AddOwnership(const Request& request, const Joined& joined, Json::Value& parameters) {
  const Caller& caller = request.MadeBy();
  if (caller.account.empty()) {
    return;
  }
  parameters["account"] = caller.account;
  parameters["era"] = caller.era;
  parameters["link"] = accounts::NewSecret();
  if (joined.ticket && !StreamLink(*joined.ticket).empty()) {
    for (const char* name : {"account", "era", "link"}) {
      parameters[name] = joined.ticket->Parameter(name);
    }
  }
}

Json::Value ParametersToKeep(const Request& request, const Rendition& rendition) {
  Json::Value parameters(Json::objectValue);
  parameters["method"] = rendition.method;
  parameters["why"] = rendition.why;
  parameters["content_type"] = rendition.contentType;
  for (const char* name : kKeptParameters) {
    if (request.Has(name)) {
      parameters[name] = request.Text(name);
    }
  }
  return parameters;
}

// Makes the directory and the record of a stream, with the id `streamId` or a new one. Returns the
// id, or an error word for the client.
std::string Init(const Request& request, const StreamKind& kind, const VideoMetaData& film,
                 const Rendition& rendition, const std::string& streamId) {
  if (rendition.method == kDirectProfile) {
    return InitDirect(film, streamId);
  }
  QMXInitArgument argument(film.GetFilePath(), kind.kind, ProfileFile(), rendition.profile.key);
  argument.device = request.Text("device");
  argument.usePreAnalysis = request.Text("use_pre_analysis") != "false";
  argument.args["hls_header"] = request.Text("hls_header") == "true";
  // Only the transcoder program knows the wish.
  if (request.Has("sound") && !LibOrvoQMX::ProfileTraits::Of(rendition.profile.value).gstreamer) {
    argument.args["sound"] = request.Text("sound");
  }
  if (!streamId.empty()) {
    argument.args["stream_id"] = streamId;
  }
  return QMXStream::QMX_Init(argument);
}

// Is everything installed that this kind of stream needs?
bool HasPrograms(const StreamKind& kind) {
  return kind.kind == std::string_view(kDirectKind) || access(LibOrvoQMX::kFFmpeg, X_OK) == 0;
}

// Opens a stream of a film that passed all checks.
Answer Open(const Request& request, const StreamKind& kind, const VideoMetaData& film,
            const Rendition& rendition, const Joined& joined) {
  const std::string streamId = Init(request, kind, film, rendition, joined.streamId);
  if (streamId == "TransSapceNotEnough") {
    return Answer::Failure(streamId);
  }
  Json::Value parameters = ParametersToKeep(request, rendition);
  AddOwnership(request, joined, parameters);
  const auto ticket =
      streamId.empty() ? std::nullopt : HeldTicket::Create(streamId, kind.kind, parameters);
  if (!ticket) {
    return Answer::Failure(kInternal);
  }
  Json::Value data(Json::objectValue);
  const Answer prepared = kind.prepare(*ticket, data);
  if (prepared.IsFailure()) {
    ticket->Remove();
    kind.close(streamId);
    return prepared;
  }
  data["stream_id"] = streamId;
  data["format"] = kind.format;
  data["profile"] = rendition.profile.key;
  data["duration"] = film.GetDuration();
  data["url"] = AddressOf(request, request.Authority(), kind, *ticket);
  if (const std::string network = NetworkAuthority(request); !network.empty()) {
    data["network_url"] = AddressOf(request, network, kind, *ticket);
  }
  RememberStream(*ticket, kOpened);
  return Answer::Success(data);
}

// Has no request played the stream for a while?
bool IsAbandoned(const Ticket& ticket, time_t now) {
  return !PlatProcAlive(ticket.OwnerPid()) && now - ticket.LastUse() > kAbandonedSeconds;
}

}  // namespace

std::string StreamIdOf(const Request& request, Answer& refusal) {
  const std::string id = request.StreamId();
  if (IsStreamId(id)) {
    return id;
  }
  refusal = Answer::Failure(kBadRequest, "This is not the id of a stream.");
  return "";
}

std::optional<Ticket> FindStream(const Request& request, Answer& refusal) {
  const StreamKind* const kind = KindOf(request, refusal);
  const std::string streamId = kind != nullptr ? StreamIdOf(request, refusal) : "";
  if (streamId.empty()) {
    return std::nullopt;
  }
  auto ticket = Ticket::Of(request);
  if (ticket && !MayUse(request.MadeBy(), *ticket, refusal)) {
    return std::nullopt;
  }
  if (!ticket || ticket->Kind() != kind->kind) {
    refusal = Answer::Failure(kNotFound, kStreamClosed);
    return std::nullopt;
  }
  return ticket;
}

Answer OpenStream(const Request& request) {
  Answer refusal = Answer::Failure(kInternal);
  if (!request.Text("format").empty() && KindOf(request, refusal) == nullptr) {
    return refusal;
  }
  const auto path = ResolveFilm(request.Text("path"), refusal);
  const auto joined = path ? JoinedStream(request, *path, refusal) : std::nullopt;
  if (!joined) {
    return refusal;
  }
  if (!IsUtf8(*path)) {
    return Answer::Failure(kBadRequest,
                           "The name of this film is not valid UTF-8. Rename the file to play it.");
  }
  // All checks come before the stream is made, so a refusal leaves nothing behind.
  VideoMetaData film;
  if (!film.LoadFile(*path)) {
    return Answer::Failure(kNoFilm, "This file is not a film that can be played.");
  }
  const auto choice = ChoiceFor(request, film, refusal);
  if (!choice) {
    return refusal;
  }
  if (!HasPrograms(*choice->kind)) {
    return Answer::Failure(kUnavailable);
  }
  if (!HasAudioTrack(film, request.Text("audio_id"))) {
    return Answer::Failure(kBadRequest, "The film has no audio track with this id.");
  }
  if (!IsSoundWish(request)) {
    return Answer::Failure(kBadRequest, "The sound is one of stereo, night and original.");
  }
  // A joined stream already has room for its transcoder.
  if (joined->streamId.empty() && IsBusy(*choice->kind, choice->rendition)) {
    return Answer::Failure("TransEnable");
  }
  SweepStreams();
  return Open(request, *choice->kind, film, choice->rendition, *joined);
}

Answer PlayStream(const Request& request) {
  Answer refusal = Answer::Failure(kInternal);
  const auto ticket = FindStream(request, refusal);
  if (!ticket) {
    return refusal;
  }
  const Answer revived = ReviveStream(*ticket);
  if (revived.IsFailure()) {
    return revived;
  }
  ticket->MarkUse();
  return FindKind(ticket->Kind())->play(request, *ticket);
}

Answer CloseStream(const Request& request) {
  Answer refusal = Answer::Failure(kInternal);
  const StreamKind* const kind = KindOf(request, refusal);
  const std::string streamId = kind != nullptr ? StreamIdOf(request, refusal) : "";
  if (streamId.empty()) {
    return refusal;
  }
  if (const auto ticket = HeldTicket::Take(streamId)) {
    if (!MayClose(request.MadeBy(), *ticket, refusal)) {
      return refusal;
    }
    RememberStream(*ticket, kClosed);
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
  // One of several requests makes the directory; the others find it.
  const auto held = HeldTicket::Take(ticket.StreamId());
  if (!held) {
    return Answer::Failure(kNotFound, kStreamClosed);
  }
  if (held->HasDirectory()) {
    return Answer::Sent();
  }
  Json::Value ignored;
  return ReviveDirectory(ticket) ? kind->prepare(ticket, ignored)
                                 : Answer::Failure("TransSapceNotEnough");
}

void SweepStreams() {
  const time_t now = time(nullptr);
  for (const std::string& id : Ticket::All()) {
    const auto seen = Ticket::Read(id);
    if (!seen || !IsAbandoned(*seen, now)) {
      continue;
    }
    const auto ticket = HeldTicket::Take(id);
    if (!ticket || !IsAbandoned(*ticket, now)) {
      continue;
    }
    const StreamKind* const kind = FindKind(ticket->Kind());
    const time_t idle = now - ticket->LastUse();
    if (kind != nullptr) {
      kind->close(id);
    }
    if (idle > kTicketSeconds) {
      RememberStream(*ticket, kClosed);
      ticket->Remove();
    }
  }
}

void CloseAllStreams() {
  for (const std::string& id : Ticket::All()) {
    if (const auto ticket = HeldTicket::Take(id)) {
      ticket->Remove();
    }
  }
  for (const StreamKind& kind : kStreamKinds) {
    std::error_code failure;
    const std::string folder = LibOrvoQMX::StreamKindPath(kind.kind);
    for (const auto& entry : std::filesystem::directory_iterator(folder, failure)) {
      kind.close(entry.path().filename().string());
    }
  }
}

}  // namespace webapi
