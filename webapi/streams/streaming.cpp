#include "webapi/streams/streaming.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

#include "accounts/secrets.h"
#include "platform/io.h"
#include "platform/plat.h"
#include "platform/process_launch.h"
#include "policy/argument_helper.h"
#include "policy/offline_conversion.h"
#include "policy/platform_utils.h"
#include "policy/profile_traits.h"
#include "policy/trans_loading.h"
#include "settings/limits.h"
#include "stream/cmaf/cmaf_runs.h"
#include "stream/cmaf/warmed_streams.h"
#include "stream/liborvoqmx.h"
#include "util/json_utils.h"
#include "util/md5.h"
#include "util/system_files.h"
#include "webapi/access/network_address.h"
#include "webapi/access/sealed_ticket.h"
#include "webapi/access/ticket.h"
#include "webapi/choice/client_support.h"
#include "webapi/choice/engine_rows.h"
#include "webapi/choice/profiles.h"
#include "webapi/cluster/cluster_keys.h"
#include "webapi/http/leaving.h"
#include "webapi/http/work.h"
#include "webapi/library/media_library.h"
#include "webapi/streams/adoption.h"
#include "webapi/streams/byte_playback.h"
#include "webapi/streams/client_streams.h"
#include "webapi/streams/close_elsewhere.h"
#include "webapi/streams/cmaf_opening.h"
#include "webapi/streams/cmaf_playback.h"
#include "webapi/streams/direct_playback.h"
#include "webapi/streams/hls_playback.h"
#include "webapi/streams/http_playback.h"
#include "webapi/streams/plan_checksum.h"
#include "webapi/streams/recent_streams.h"
#include "webapi/streams/revival.h"
#include "webapi/streams/smooth_playback.h"
#include "webapi/streams/start_times.h"
#include "webapi/streams/transcoder_work.h"
#include "webapi/streams/warm_runs.h"
#include "webapi/streams/webm_playback.h"

namespace webapi {
namespace {

using LibOrvoQMX::QMXInitArgument;
using LibOrvoQMX::QMXStream;
using LibOrvoQMX::VideoMetaData;

constexpr char kCmafFormat[] = "cmaf";
constexpr char kForced[] = "force_open_qmx";
constexpr char kWarm[] = "warm";
constexpr time_t kAbandonedSeconds = 900;
// A stream counts as used for this time after a request, so a client with more players than this
// is refused, and a forgotten stream gives way.
constexpr time_t kUsedSeconds = 60;
// So many closed streams are remembered. Addresses of older ones make their stream again, for the
// same account, until the tickets in them are too old.
constexpr size_t kMostClosed = 10000;
// How often a request starts a sweep.
constexpr time_t kSweepSeconds = 60;
constexpr int kSweepNiceness = 10;

// The kinds of streams that this server offers.
struct StreamKind {
  const char* format;  // its name in the API
  const char* kind;    // its name in the library
  const char* name;    // the file name in an address, for players that look at it
  // Prepares an opened stream, and adds the data of this kind to the answer.
  Answer (*prepare)(const Ticket& ticket, Json::Value& data);
  Answer (*play)(const Request& request, const Ticket& ticket);
  void (*close)(const std::string& streamId);
  // Starts the work for a player that will begin at this second, and may add to the answer; null if
  // the work begins with the first request.
  void (*startAhead)(const Ticket& ticket, double second, Json::Value& data) = nullptr;
};
constexpr std::array kStreamKinds = {
    StreamKind{"http", "HTTP", "", PrepareHttp, PlayHttp, CloseHttp},
    StreamKind{"hls", "HLS", "", PrepareHls, PlayHls, CloseHls, StartHls},
    StreamKind{"webm", "WEBM", "", PrepareWebm, PlayWebm, CloseWebm},
    StreamKind{"ss", "SS", "/Manifest", PrepareSmooth, PlaySmooth, CloseSmooth, StartSmooth},
    StreamKind{"direct", kDirectKind, "", PrepareDirect, PlayDirect, CloseDirect},
    StreamKind{kCmafFormat, LibOrvoQMX::kCmafKind, "/master.m3u8", PrepareCmaf, PlayCmaf, CloseCmaf,
               StartCmaf},
};

// Parameters of an opening that later requests of the stream need.
constexpr std::array kKeptParameters = {
    "audio_id", "audio_format",  "subtitle_id", "subtitle_codepage", kForced,
    "codecs",   "dynamic_range", "max_height",  "max_bitrate",       "renditions"};

// Further ones that another box needs to make the same stream.
constexpr std::array kBoxParameters = {"device", "hls_header", "use_pre_analysis", "sound"};

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
  return request.Scheme() + "://" + authority + EntryPath() + kind.name +
         "?api=ORVO.Mirevo2.Streaming&version=1&method=stream&format=" + kind.format +
         "&stream_id=" + ticket.StreamId() + AddressEnd(ticket);
}

// The profile for a request that names none.
std::optional<JudgedProfile> UsualProfile(const std::string& format, const VideoMetaData& film,
                                          Answer& refusal) {
  std::vector<JudgedProfile> profiles = JudgeProfiles(format, film);
  if (const JudgedProfile* const chosen = ChooseProfile(format, profiles, film)) {
    return *chosen;
  }
  refusal = Answer::Failure(kNoFilm);
  return std::nullopt;
}

std::optional<Profile> FindProfile(const std::string& format, const std::string& key) {
  const std::vector<Profile> profiles = ProfilesOf(format);
  const auto found = std::find_if(profiles.begin(), profiles.end(),
                                  [&](const Profile& profile) { return profile.key == key; });
  return found == profiles.end() ? std::nullopt : std::optional(*found);
}

// The profile that the request names.
std::optional<JudgedProfile> NamedProfile(const std::string& key, const std::string& format,
                                          const VideoMetaData& film, Answer& refusal) {
  const auto found = FindProfile(format, key);
  if (!found) {
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

bool IsCmaf(const StreamKind& kind) {
  return kind.format == std::string(kCmafFormat);
}

// The client chooses among several renditions while it plays.
std::optional<Rendition> CmafRendition(const Request& request, Answer& refusal) {
  const std::string complaint = CmafComplaint(request);
  if (!complaint.empty()) {
    refusal = Answer::Failure(kBadRequest, complaint);
    return std::nullopt;
  }
  return Rendition{{kCmafProfile, ""},
                   "adaptive",
                   "The player chooses among the film's own video and sound and converted ones.",
                   ""};
}

std::optional<Rendition> RenditionFor(const Request& request, const StreamKind& kind,
                                      const VideoMetaData& film, Answer& refusal) {
  if (kind.kind == std::string(kDirectKind)) {
    return DirectRendition(request, film, refusal);
  }
  if (IsCmaf(kind)) {
    return CmafRendition(request, refusal);
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

// A viewer who says so does not wait for a conversion in the background. With VA-API both have
// room.
void MakeConversionGiveWay(bool isForced) {
  if (isForced && !libmrv::util::PlatformUtils::GetInst().IsSupportVaapi()) {
    LibMirevo::AskOfflineConversionToGiveWay();
  }
}

bool IsForced(const std::string& value) {
  return value == "true";
}

// A stream of this kind that no viewer has asked for yet.
bool IsWarming(const Request& request, const StreamKind& kind) {
  return IsCmaf(kind) && request.Text(kWarm) == "true" && !request.Has("stream_id");
}

// A viewer comes before films that play only perhaps. Returns whether one of them had a place.
bool MakeWarmedGiveWay() {
  return !LibMirevo::TransLoading().TransEnable(false) && LibOrvoQMX::MakeWarmedCmafGiveWay();
}

// Copied video needs no room in the register. The progressive kind asks for it in any case.
bool NeedsPlace(const StreamKind& kind, const Rendition& rendition) {
  return rendition.method == "transcode" || kind.kind == std::string("HTTP");
}

bool IsBusy(const StreamKind& kind, const Rendition& rendition) {
  return NeedsPlace(kind, rendition) &&
         !LibMirevo::TransLoading().TransEnable(RunsOnHardware(rendition.profile.value));
}

// Makes room for the transcoder of an opening.
void MakeOthersGiveWay(const Request& request, const Choice& choice) {
  const bool mayNeedPlace = NeedsPlace(*choice.kind, choice.rendition) || IsCmaf(*choice.kind);
  if (mayNeedPlace && !IsWarming(request, *choice.kind)) {
    MakeConversionGiveWay(IsForced(request.Text(kForced)));
    (void)MakeWarmedGiveWay();
  }
}

// A conversion or a warmed stream may have taken the room while the viewer paused. Returns whether
// one of them gives way.
bool HaveOthersGivenWay(const Ticket& ticket) {
  const bool isForced = IsForced(ticket.Parameter(kForced));
  MakeConversionGiveWay(isForced);
  return MakeWarmedGiveWay() || isForced;
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

std::string NewLink(const std::string& streamId, const Caller& caller) {
  return IsInCluster() ? LinkInCluster(streamId, caller.account, caller.era)
                       : accounts::NewSecret();
}

// Adds the owner of the stream. A joined stream keeps its owner and its addresses.
void AddOwnership(const Request& request, const Joined& joined, const std::string& streamId,
                  Json::Value& parameters) {
  const Caller& caller = request.MadeBy();
  if (caller.account.empty()) {
    return;
  }
  parameters["account"] = caller.account;
  parameters["era"] = caller.era;
  parameters["link"] = NewLink(streamId, caller);
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
  const auto keep = [&](const char* name) {
    if (request.Has(name)) {
      parameters[name] = request.Text(name);
    }
  };
  std::for_each(kKeptParameters.begin(), kKeptParameters.end(), keep);
  if (IsInCluster()) {
    std::for_each(kBoxParameters.begin(), kBoxParameters.end(), keep);
  }
  return parameters;
}

// A film that this request has opened and probed.
struct KnownFilm {
  const orvo::MediaFile& file;
  const VideoMetaData& facts;
};

// The profile of a stream that another box has opened; nothing if this box does not have it.
std::optional<Profile> ProfileElsewhere(const StreamKind& kind, const std::string& key) {
  const bool hasProfiles = kind.kind != std::string(kDirectKind) && !IsCmaf(kind);
  return hasProfiles ? FindProfile(kind.format, key) : std::optional(Profile{key, ""});
}

// What the library is told of an opening: texts by the names of parameters, "" for none.
using Wishes = std::function<std::string(const char* name)>;

// Makes the directory and the record of a stream, with the id `streamId` or a new one. Returns the
// id, or an error word for the client.
std::string Init(const Wishes& wishes, const StreamKind& kind, const KnownFilm& film,
                 const Profile& profile, const std::string& streamId) {
  if (kind.kind == std::string(kDirectKind)) {
    return InitDirect(film.facts, streamId);
  }
  if (IsCmaf(kind)) {
    return InitCmaf(film.facts, streamId);
  }
  QMXInitArgument argument(film.file.Path(), kind.kind, ProfileFile(), profile.key);
  argument.device = wishes("device");
  argument.usePreAnalysis = wishes("use_pre_analysis") != "false";
  argument.args["hls_header"] = wishes("hls_header") == "true";
  // Only the transcoder program knows the wish.
  const std::string sound = wishes("sound");
  if (!sound.empty() && !LibOrvoQMX::ProfileTraits::Of(profile.value).gstreamer) {
    argument.args["sound"] = sound;
  }
  if (!streamId.empty()) {
    argument.args["stream_id"] = streamId;
  }
  return QMXStream::QMX_Init(argument, film.file);
}

// Did no request use the stream for a while?
bool IsUnusedFor(time_t seconds, const Ticket& ticket, time_t now) {
  return !PlatProcAlive(ticket.OwnerPid()) && now - ticket.LastUse() > seconds;
}

// Closes a stream with its ticket.
void CloseForGood(const HeldTicket& ticket) {
  if (const StreamKind* const kind = FindKind(ticket.Kind())) {
    RememberStream(ticket, kClosed);
    kind->close(ticket.StreamId());
  }
  ticket.Remove();
}

bool CloseIfUnused(const std::string& streamId) {
  const auto ticket = HeldTicket::Take(streamId);
  const bool isUnused = ticket && IsUnusedFor(kUsedSeconds, *ticket, time(nullptr));
  if (isUnused) {
    CloseForGood(*ticket);
  }
  return isUnused;
}

// Makes room for one more stream of the client: if it has too many, closes the oldest one that
// nobody uses. Returns false if all are in use.
bool MakeRoom(const ClientStreams& own) {
  return own.Ids().size() < static_cast<size_t>(settings::ValueOf(settings::kStreamsPerViewer)) ||
         std::any_of(own.Ids().begin(), own.Ids().end(), CloseIfUnused);
}

// The streams of the request's client, with room for one more unless `isKnown`: the stream is one
// of them. Nothing, with the answer in `refusal`, if there is no room or the list cannot be had.
std::optional<ClientStreams> FindRoom(const Request& request, bool isKnown, Answer& refusal) {
  auto own = ClientStreams::Hold(request);
  refusal = Answer::Failure(kBusy);
  if (own && !isKnown && !MakeRoom(*own)) {
    refusal =
        Answer::Failure(kTooManyRequests, "You have too many open streams. Close some of them.")
            .AddHeader("Retry-After", std::to_string(kUsedSeconds));
    return std::nullopt;
  }
  return own;
}

// A client that says where it will begin waits for less. The work starts before the answer: a
// request for the first piece would otherwise start it, too, and one of the two would stop the
// other. Without room for a transcoder the player's first request says so. A request in a crowd has
// a lower priority than the web server, which the transcoder would keep; the first request for a
// piece starts it then.
void StartAhead(const Request& request, const StreamKind& kind, const Ticket& ticket,
                Json::Value& data) {
  Answer ignored = Answer::Failure(kInternal);
  const auto start = StartSecond(request, ticket.Duration(), ignored);
  const bool isInCrowd =
      getpriority(PRIO_PROCESS, 0) > getpriority(PRIO_PROCESS, static_cast<id_t>(getppid()));
  if (request.Has("start") && start && kind.startAhead != nullptr && !isInCrowd) {
    kind.startAhead(ticket, std::min<double>(*start, std::max(ticket.Duration(), 1U) - 1), data);
  }
}

// A client that leaves while it opens a new stream does not learn its id, and cannot close it. The
// same holds if the web server has ended.
void CloseIfForsaken(const std::string& streamId) {
  if (const auto ticket = HasClientLeft() ? HeldTicket::Take(streamId) : std::nullopt) {
    CloseForGood(*ticket);
  }
}

// Is everything installed that this kind of stream needs?
bool HasPrograms(const StreamKind& kind) {
  return kind.kind == std::string_view(kDirectKind) || access(LibOrvoQMX::kFFmpeg, X_OK) == 0;
}

// Fixes what another box would choose by its own analysis of the film.
void FixAnalysis(HeldTicket& ticket) {
  std::error_code failure;
  const std::string kept = ticket.Directory().KeptPlanPath();
  const bool isUsed = std::filesystem::file_size(kept, failure) > 0 && !failure;
  if (ticket.Kind() == "HLS" && !isUsed) {
    ticket.SetParameter("use_pre_analysis", "false");
  }
}

// Prepares an opened stream. In a cluster it does so twice: the ticket in the addresses tells the
// plan, and the playlists carry the addresses.
Answer Prepare(const StreamKind& kind, const orvo::MediaFile& film, HeldTicket& ticket,
               Json::Value& data) {
  Answer prepared = kind.prepare(ticket, data);
  if (prepared.IsFailure() || !IsInCluster()) {
    return prepared;
  }
  FixAnalysis(ticket);
  const std::string sealed = SealTicket(ticket, {FilmState(film), PlanChecksum(ticket)});
  return ticket.SetParameter(kSealedParameter, sealed) ? kind.prepare(ticket, data)
                                                       : Answer::Failure(kInternal);
}

// Opens a stream of a film that passed all checks.
Answer Open(const Request& request, const StreamKind& kind, const KnownFilm& film,
            const Rendition& rendition, const Joined& joined, StartTimes& times) {
  Answer refusal = Answer::Failure(kInternal);
  auto own = FindRoom(request, !joined.streamId.empty(), refusal);
  if (!own) {
    return refusal;
  }
  OutliveClient();  // from here on there is something to remove
  const std::string streamId = Init([&](const char* name) { return request.Text(name); }, kind,
                                    film, rendition.profile, joined.streamId);
  if (streamId == "TransSapceNotEnough") {
    return Answer::Failure(streamId);
  }
  Json::Value parameters = ParametersToKeep(request, rendition);
  AddOwnership(request, joined, streamId, parameters);
  parameters[kFilmParameter] = film.file.Identity();
  if (IsCmaf(kind)) {
    FixCmafChoices(film.facts, joined.ticket, parameters);
  }
  auto ticket =
      streamId.empty() ? std::nullopt : HeldTicket::Create(streamId, kind.kind, parameters);
  if (!ticket) {
    return Answer::Failure(kInternal);
  }
  Json::Value data(Json::objectValue);
  const Answer prepared = Prepare(kind, film.file, *ticket, data);
  if (prepared.IsFailure()) {
    ticket->Remove();
    kind.close(streamId);
    return prepared;
  }
  own->Add(streamId);
  data["stream_id"] = streamId;
  data["format"] = kind.format;
  data["profile"] = rendition.profile.key;
  data["duration"] = film.facts.GetDuration();
  data["url"] = AddressOf(request, request.Authority(), kind, *ticket);
  if (const std::string network = NetworkAuthority(request); !network.empty()) {
    data["network_url"] = AddressOf(request, network, kind, *ticket);
  }
  if (IsCmaf(kind)) {
    StreamKind manifest = kind;
    manifest.name = "/manifest.mpd";
    data["dash"] =
        AddressOf(request, request.Authority(), manifest, *ticket) + "&playlist_type=dash";
    AddCmafPlaylists(request, *ticket, data);
  }
  if (IsWarming(request, kind)) {
    LibOrvoQMX::MarkCmafWarmed(streamId);
  }
  RememberStream(*ticket, kOpened);
  times.Mark("prepare");
  ticket->AddTimes(times.Steps());
  const Ticket opened = *ticket;
  // The process that is started now must hold neither.
  ticket.reset();
  own.reset();
  StartAhead(request, kind, opened, data);
  if (joined.streamId.empty()) {
    CloseIfForsaken(streamId);
  }
  return Answer::Success(data);
}

// Can the ticket be skipped without a look into it? It was changed a moment ago, or has no
// directory left to remove and is not yet old.
bool IsPassedOver(const std::string& streamId, time_t age) {
  return age <= kAbandonedSeconds ||
         (age <= kTicketSeconds &&
          std::none_of(kStreamKinds.begin(), kStreamKinds.end(), [&](const StreamKind& row) {
            return access(LibOrvoQMX::StreamDirectory(row.kind, streamId).Path().c_str(), F_OK) ==
                   0;
          }));
}

// Removes an abandoned stream, and its ticket if that is old.
void Sweep(const std::string& streamId, time_t now) {
  const auto seen = Ticket::Read(streamId);
  if (!seen || !IsUnusedFor(kAbandonedSeconds, *seen, now)) {
    return;
  }
  const auto ticket = HeldTicket::Take(streamId);
  if (!ticket || !IsUnusedFor(kAbandonedSeconds, *ticket, now)) {
    return;
  }
  if (now - ticket->LastUse() > kTicketSeconds) {
    CloseForGood(*ticket);
  } else if (const StreamKind* const kind = FindKind(ticket->Kind())) {
    kind->close(streamId);
  }
}

void SweepStreams() {
  const time_t now = time(nullptr);
  for (const std::string& id : Ticket::All()) {
    if (!IsPassedOver(id, now - Ticket::ChangedAt(id))) {
      Sweep(id, now);
    }
  }
  Ticket::ForgetClosed(now - kTicketSeconds, kMostClosed);
  ClientStreams::ForgetEmpty(now - kTicketSeconds);
}

// The addresses of a closed stream would make it again. So it is marked before its ticket goes,
// also if it was never made here.
void KeepClosed(const Request& request, const std::string& streamId) {
  Answer ignored = Answer::Failure(kInternal);
  const auto ticket = IsInCluster() ? Ticket::Of(request) : std::nullopt;
  if (ticket && MayClose(request.MadeBy(), *ticket, ignored)) {
    Ticket::MarkClosed(streamId);
  }
}

// Makes the stream of another box's request, which does not wait for that. The stream cannot be
// made as long as the transcoder's place is taken.
Answer WarmUnmade(const Request& request) {
  return StartWarmLater([&request] {
    Answer refusal = Answer::Failure(kInternal);
    const auto ticket = FindStream(request, refusal);
    if (ticket) {
      FindKind(ticket->Kind())->play(request, *ticket);
    }
    return ticket || !refusal.IsFor("TransEnable");
  });
}

// The stream of a request that its caller may use; it may not have been made here.
std::optional<Ticket> FindTicket(const Request& request, Answer& refusal) {
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

}  // namespace

std::string StreamIdOf(const Request& request, Answer& refusal) {
  const std::string id = request.StreamId();
  if (IsStreamId(id)) {
    return id;
  }
  refusal = Answer::Failure(kBadRequest, "This is not the id of a stream.");
  return "";
}

bool MakeKnown(const Request& request, std::optional<Ticket>& ticket, Answer& refusal) {
  const StreamKind* const kind = ticket ? FindKind(ticket->Kind()) : nullptr;
  if (kind == nullptr || !ticket->IsSealed()) {
    return kind != nullptr;
  }
  StartSweep();
  const Ticket sealed = *ticket;
  const auto wishes = [&](const char* name) { return sealed.Parameter(name); };
  const auto profile = ProfileElsewhere(*kind, sealed.ProfileKey());
  if (!profile) {
    refusal = Answer::Failure(kGone, "This server lacks the quality of this address.");
    return false;
  }
  const StreamSteps steps = {
      [&](const orvo::MediaFile& file, const VideoMetaData& facts) {
        return Init(wishes, *kind, {file, facts}, *profile, sealed.StreamId());
      },
      [&](const Ticket& own) {
        Json::Value ignored;
        return kind->prepare(own, ignored);
      },
      [&] { kind->close(sealed.StreamId()); },
      [&](Answer& noRoom) { return FindRoom(request, false, noRoom); }};
  ticket = AdoptStream(sealed, steps, refusal);
  return ticket.has_value();
}

std::optional<Ticket> FindStream(const Request& request, Answer& refusal) {
  auto ticket = FindTicket(request, refusal);
  return ticket && MakeKnown(request, ticket, refusal) ? ticket : std::nullopt;
}

Answer OpenStream(const Request& request) {
  Answer refusal = Answer::Failure(kInternal);
  if (!request.Text("format").empty() && KindOf(request, refusal) == nullptr) {
    return refusal;
  }
  const auto file = OpenFilm(request.Text("path"), refusal);
  const auto joined = file ? JoinedStream(request, file->Path(), refusal) : std::nullopt;
  if (!joined) {
    return refusal;
  }
  if (!IsUtf8(file->Path())) {
    return Answer::Failure(kBadRequest,
                           "The name of this film is not valid UTF-8. Rename the file to play it.");
  }
  // This comes before the place, because the new process would inherit the place and hold it
  // longer.
  StartSweep();
  const auto place = TakePlace(kFilmWork);
  if (!place) {
    return Answer::Failure(kBusy);
  }
  // All checks come before the stream is made, so a refusal leaves nothing behind.
  VideoMetaData film;
  StartTimes times;
  if (!LoadFilm(*file, film, refusal)) {
    return refusal;
  }
  times.Mark("probe");
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
  if (!StartSecond(request, film.GetDuration(), refusal)) {
    return refusal;
  }
  MakeOthersGiveWay(request, *choice);
  // A joined stream already has room for its transcoder.
  if (joined->streamId.empty() && IsBusy(*choice->kind, choice->rendition)) {
    return Answer::Failure("TransEnable");
  }
  times.Mark("admission");
  return Open(request, *choice->kind, {*file, film}, choice->rendition, *joined, times);
}

Answer PlayStream(const Request& request) {
  Answer refusal = Answer::Failure(kInternal);
  auto ticket = FindTicket(request, refusal);
  if (ticket && ticket->IsSealed() && IsWarmRequest(request)) {
    return WarmUnmade(request);
  }
  if (!ticket || !MakeKnown(request, ticket, refusal)) {
    return refusal;
  }
  const Answer revived = ReviveStream(*ticket);
  if (revived.IsFailure()) {
    return revived;
  }
  ticket->MarkUse();
  const auto play = FindKind(ticket->Kind())->play;
  Answer answer = play(request, *ticket);
  if (answer.IsFor("TransEnable") && HaveOthersGivenWay(*ticket)) {
    answer = play(request, *ticket);
  }
  return answer;
}

Answer CloseStream(const Request& request) {
  Answer refusal = Answer::Failure(kInternal);
  const StreamKind* const kind = KindOf(request, refusal);
  const std::string streamId = kind != nullptr ? StreamIdOf(request, refusal) : "";
  if (streamId.empty()) {
    return refusal;
  }
  KeepClosed(request, streamId);
  const auto ticket = HeldTicket::Take(streamId, refusal);
  if (ticket) {
    if (!MayClose(request.MadeBy(), *ticket, refusal)) {
      return refusal;
    }
    LearnFrom(*ticket);
    RememberStream(*ticket, kClosed);
    ticket->Remove();
  } else if (Ticket::Exists(streamId)) {
    return refusal;
  }
  kind->close(streamId);
  CloseElsewhere(request, streamId,
                 ticket ? ticket->Parameter(kSealedParameter) : request.Text(kSealedParameter));
  return Answer::Success(Json::Value(Json::objectValue));
}

Answer ReviveStream(const Ticket& ticket) {
  const StreamKind* const kind = FindKind(ticket.Kind());
  if (ticket.HasDirectory() || kind == nullptr) {
    return Answer::Sent();
  }
  // One of several requests makes the directory; the others find it.
  Answer refusal = Answer::Failure(kInternal);
  const auto held = HeldTicket::Take(ticket.StreamId(), refusal);
  if (!held) {
    return refusal;
  }
  if (held->HasDirectory()) {
    return Answer::Sent();
  }
  Json::Value ignored;
  return ReviveDirectory(ticket) ? kind->prepare(ticket, ignored)
                                 : Answer::Failure("TransSapceNotEnough");
}

void StartSweep() {
  const std::string mark = Ticket::FolderPath() + "/.swept";
  struct stat status {};
  const bool isMarked = stat(mark.c_str(), &status) == 0;
  // The clock may have been set back.
  if ((isMarked && std::abs(time(nullptr) - status.st_mtime) < kSweepSeconds) ||
      !orvo::TouchFile(mark)) {
    return;
  }
  orvo::LaunchOptions options;
  options.detached = true;
  options.group = orvo::ProcessGroup::kSession;
  options.niceness = kSweepNiceness;
  const auto sweep = [] {
    SweepStreams();
    return 0;
  };
  orvo::Fork(sweep, options);
}

size_t CountStreams() {
  size_t count = 0;
  for (const StreamKind& kind : kStreamKinds) {
    std::error_code failure;
    const std::filesystem::directory_iterator folder(LibOrvoQMX::StreamKindPath(kind.kind),
                                                     failure);
    count += static_cast<size_t>(std::distance(begin(folder), end(folder)));
  }
  return count;
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
