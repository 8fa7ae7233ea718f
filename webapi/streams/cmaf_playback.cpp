#include "webapi/streams/cmaf_playback.h"

#include <unistd.h>

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

#include "cmaf/addresses.h"
#include "cmaf/presentation.h"
#include "contract/cmaf.h"
#include "platform/io.h"
#include "policy/trans_loading.h"
#include "stream/cmaf/cmaf_runs.h"
#include "stream/cmaf/warmed_streams.h"
#include "stream/http_live_stream.h"
#include "stream/liborvoqmx.h"
#include "util/base64_url.h"
#include "util/json_utils.h"
#include "webapi/access/pass.h"
#include "webapi/choice/copied_pictures.h"
#include "webapi/choice/profiles.h"
#include "webapi/cluster/balancer_client.h"
#include "webapi/http/number.h"
#include "webapi/http/send_file.h"
#include "webapi/streams/client_report.h"
#include "webapi/streams/cmaf_description.h"
#include "webapi/streams/cmaf_opening.h"
#include "webapi/streams/growing_segment.h"
#include "webapi/streams/kept_plans.h"
#include "webapi/streams/recent_streams.h"
#include "webapi/streams/start_times.h"
#include "webapi/streams/warm_runs.h"

namespace webapi {
namespace {

using LibOrvoQMX::CmafPresentation;
using LibOrvoQMX::CmafRendition;
using LibOrvoQMX::CmafRun;
using LibOrvoQMX::CmafWishes;
using LibOrvoQMX::QMXMetaData;

constexpr char kPlaylistType[] = "application/vnd.apple.mpegurl";
constexpr char kManifestType[] = "application/dash+xml";
constexpr char kChapterType[] = "application/json";
constexpr char kHls[] = "hls";
constexpr char kDash[] = "dash";
constexpr int64_t kMaxSegment = 9999999;
constexpr int kTries = 3;
constexpr int64_t kHighestBound = 1'000'000'000;

unsigned Bound(const Ticket& ticket, const char* name) {
  return static_cast<unsigned>(ParseNumber(ticket.Parameter(name)).value_or(0));
}

orvo::CmafKnowledge KnowledgeOf(const Ticket& ticket) {
  return orvo::CmafKnowledge::Parse(
      orvo::ReadText(ticket.Directory().FilePath(orvo::kCmafPicturesFile)));
}

CmafWishes WishesOf(const Ticket& ticket) {
  CmafWishes wishes;
  wishes.codecs = ticket.Parameter("codecs");
  wishes.showsHdr = ticket.Parameter("dynamic_range") == "hdr";
  wishes.maxHeight = Bound(ticket, "max_height");
  wishes.maxBitrate = Bound(ticket, "max_bitrate");
  wishes.maxEncoded = Bound(ticket, kLadderParameter);
  wishes.audioId = ticket.Parameter("audio_id");
  const auto known = KnowledgeOf(ticket);
  wishes.copying = known.copying;
  wishes.dynamicRange = known.dynamicRange;
  return wishes;
}

std::string WithLink(const Ticket& ticket, const std::string& parameters) {
  return parameters + AddressEnd(ticket);
}

// The film as it was when the stream was opened.
LibOrvoQMX::PassedFilm FilmOf(const Ticket& ticket) {
  return {ticket.Path(), ticket.Parameter(kFilmParameter), ""};
}

// Not read yet.
QMXMetaData RecordOf(const Ticket& ticket) {
  return QMXMetaData(ticket.StreamId(), LibOrvoQMX::kCmafKind);
}

// The presentation of an opened stream; nothing if its plan or its record cannot be read. `film` is
// the stream's record, which is read here.
std::optional<CmafPresentation> PresentationOf(const Ticket& ticket, QMXMetaData& film) {
  auto plan =
      orvo::CmafPlan::Parse(orvo::ReadText(ticket.Directory().FilePath(orvo::kCmafPlanFile)));
  if (!plan || !film.LoadMetaData()) {
    return std::nullopt;
  }
  CmafPresentation presentation;
  const CmafWishes wishes = WishesOf(ticket);
  presentation.plan = std::move(*plan);
  presentation.renditions = ListCmafRenditions(film, wishes);
  presentation.chapters = LibOrvoQMX::ChaptersOf(film.GetDocument(), presentation.plan);
  presentation.dynamicRange = wishes.dynamicRange;
  presentation.path = EntryPath();
  const std::string& id = ticket.StreamId();
  presentation.parameters = WithLink(
      ticket, "api=ORVO.Mirevo2.Streaming&version=1&method=stream&format=cmaf&stream_id=" + id);
  presentation.subtitleParameters =
      WithLink(ticket, "api=ORVO.Mirevo2.Subtitle&version=1&method=get&id=" + id);
  presentation.defaultSubtitle = ticket.Parameter("subtitle_id");
  return presentation;
}

// Looking for subtitles reads folders, so only what names them does it.
void AddSubtitles(const QMXMetaData& film, CmafPresentation& presentation) {
  for (const auto& [id, language] : LibOrvoQMX::HttpLiveStream(film).GetSubtitleMap("all")) {
    presentation.subtitles.push_back({id, language});
  }
  DescribeSubtitles(film, presentation.subtitles);
}

const char* ContentTypeOf(const CmafRendition& rendition) {
  return rendition.isPicture ? "video/mp4" : "audio/mp4";
}

// --- Segments ---

// One request for a segment.
class SegmentRequest {
 public:
  SegmentRequest(const Request& request, const Ticket& ticket, const CmafPresentation& presentation,
                 const CmafRendition& rendition, int number)
      : request_(request),
        ticket_(ticket),
        rendition_(rendition),
        tellsTheWait_(rendition.isPicture == presentation.renditions.front().isPicture),
        presentation_(presentation),
        run_(ticket.StreamId(), FilmOf(ticket), rendition),
        folder_(LibOrvoQMX::CmafFolder(ticket.StreamId(), rendition.name)),
        stream_(ticket.Directory()),
        number_(number) {}

  Answer Send() {
    if (request_.Method() == "HEAD") {
      if (!SendComplete()) {
        SendHeaders();
      }
      return Answer::Sent();
    }
    if (!run_.MakeFolder()) {
      return Answer::Failure(kInternal);
    }
    if (IsWarmRequest(request_)) {
      return Warm();
    }
    // Before anything is sent: the player's next request comes as soon as it has this answer, and
    // must find its own number here.
    Ask();
    WarmNext();
    if (SendComplete()) {
      return Answer::Sent();
    }
    auto place = run_.TakePlace();
    return MakeAndSend(place);
  }

 private:
  // A request for a complete segment moves the limit of the run, too.
  void Ask() const {
    if (LibOrvoQMX::EndCmafWarming(ticket_.StreamId())) {
      RememberStream(ticket_, kOpened);
    }
    KeepClientReport(request_, ticket_);
    folder_.AskFor(number_);
    folder_.MarkAccess();
    stream_.AskFor(number_);
  }

  Answer Warm() const {
    folder_.MarkAccess();
    return StartWarm({folder_, number_, rendition_.IsEncodedPicture(), false,
                      [this] { return run_.StartWhenFinished(number_); }});
  }

  void WarmNext() const {
    WarmNextBlocks(
        folder_, number_, [this](int other) { return other < presentation_.plan.Count(); },
        [this](int other) {
          return SegmentAddress(presentation_, rendition_.name) + std::to_string(other);
        });
  }

  bool SendComplete() const {
    const std::string path = run_.SegmentPath(number_);
    const std::string wait = WaitHeader();
    StartTimes times = wait_;
    const bool isNew = MarkPiece(path, times);
    const bool isSent = SendFile(request_, path, ContentTypeOf(rendition_), kKeepSegment, wait);
    Remember(isNew && isSent, times);
    if (isSent) {
      LeavePass(request_.MadeBy(), ticket_);
    }
    return isSent;
  }

  // Sends the segment while it is being made. Returns false if nothing of it has come.
  bool SendUnfinished() const {
    const std::string path = run_.UnfinishedPath(number_);
    StartTimes times = wait_;
    bool isNew = false;
    const bool isSent = SendGrowing(
        path, run_.SegmentPath(number_), [this] { return IsComing(); },
        [&] {
          isNew = MarkPiece(path, times);
          return OpenAnswer(ContentTypeOf(rendition_), WaitHeader());
        });
    Remember(isNew, times);
    return isSent;
  }

  // Returns whether the times are to be remembered.
  bool MarkPiece(const std::string& path, StartTimes& times) const {
    const bool isNew = tellsTheWait_ && WasMadeFor(ticket_, times);
    if (isNew) {
      times.MarkPiece(folder_, path);
    }
    return isNew;
  }

  void Remember(bool isNew, StartTimes& times) const {
    if (isNew) {
      times.Mark("sent");
      RememberStart(ticket_.StreamId(), times);
    }
  }

  void SendHeaders() const { SendFileHeaders(ContentTypeOf(rendition_), WaitHeader()); }

  // Tells the player how long the answer waited for the transcoder, in milliseconds. It must not
  // take that time for the network's.
  std::string WaitHeader() const {
    return "Server-Timing: wait;dur=" + std::to_string(wait_.Milliseconds()) + "\r\n";
  }

  Answer MakeAndSend(std::optional<LibOrvoQMX::StreamLock>& place) {
    for (int tries = 0; tries < kTries && !run_.IsReplaced(number_); ++tries) {
      if (!run_.Reach(number_, place)) {
        return Answer::Failure(kInternal, "The transcoder could not be started.");
      }
      if (Await()) {
        return Answer::Sent();
      }
      if (rendition_.IsEncodedPicture() && !LibMirevo::TransLoading().TransEnable(false)) {
        return Answer::Failure("TransEnable");
      }
    }
    return Answer::Failure("NotReady");
  }

  // Sends the segment if it comes.
  bool Await() {
    switch (run_.Await(number_)) {
      case CmafRun::State::kComplete:
        return SendComplete();
      case CmafRun::State::kGrowing:
        return SendUnfinished() || SendComplete();
      default:
        return SendComplete();
    }
  }

  bool IsComing() const {
    return run_.Look(number_) == CmafRun::State::kGrowing && !run_.IsReplaced(number_);
  }

  const Request& request_;
  const Ticket& ticket_;
  const CmafRendition& rendition_;
  bool tellsTheWait_;  // sound comes beside the pictures
  const CmafPresentation& presentation_;
  CmafRun run_;
  LibOrvoQMX::StreamDirectory folder_;
  LibOrvoQMX::StreamDirectory stream_;
  int number_;
  StartTimes wait_;
};

Answer SendHeader(const Request& request, const Ticket& ticket, const CmafRendition& rendition) {
  const CmafRun run(ticket.StreamId(), FilmOf(ticket), rendition);
  if (!run.MakeFolder() || !run.MakeHeader()) {
    return Answer::Failure(kInternal, "The header of this rendition could not be made.");
  }
  return SendFile(request, run.HeaderPath(), ContentTypeOf(rendition), kKeepSegment)
             ? Answer::Sent()
             : Answer::Failure(kInternal);
}

Answer SendPiece(const Request& request, const Ticket& ticket, const CmafPresentation& presentation,
                 const CmafRendition& rendition) {
  if (request.Text("segment") == "init") {
    return SendHeader(request, ticket, rendition);
  }
  const auto number = request.Number("segment", kMaxSegment);
  if (!number) {
    return Answer::Failure(kBadRequest, "The segment must be a number or init.");
  }
  if (*number >= presentation.plan.Count()) {
    return Answer::Failure(kNotFound, "The film ends before this segment.");
  }
  return SegmentRequest(request, ticket, presentation, rendition, static_cast<int>(*number)).Send();
}

// --- Playlists ---

Answer SendSubtitlePlaylist(const Request& request, const QMXMetaData& film,
                            CmafPresentation& presentation) {
  AddSubtitles(film, presentation);
  const std::string id = request.Text("subtitle_id");
  for (const auto& subtitle : presentation.subtitles) {
    if (subtitle.id == id) {
      return SendText(request, kPlaylistType, SubtitlePlaylist(presentation, id));
    }
  }
  return Answer::Failure(kNotFound, "The film has no such subtitles.");
}

Answer SendPlaylist(const Request& request, const QMXMetaData& film,
                    CmafPresentation& presentation) {
  const std::string type = request.Text("playlist_type");
  if (type == "subtitle") {
    return SendSubtitlePlaylist(request, film, presentation);
  }
  if (type == "chapters") {
    return SendText(request, kChapterType, ChapterList(presentation));
  }
  AddSubtitles(film, presentation);
  return type == kDash ? SendText(request, kManifestType, DashManifest(presentation))
                       : SendText(request, kPlaylistType, MultivariantPlaylist(presentation));
}

// Can a viewer see nothing without a transcoder?
bool NeedsPlace(const CmafPresentation& presentation) {
  const auto& list = presentation.renditions;
  return std::all_of(list.begin(), list.end(),
                     [](const CmafRendition& rendition) {
                       return !rendition.isPicture || rendition.IsEncodedPicture();
                     }) &&
         std::any_of(list.begin(), list.end(),
                     [](const CmafRendition& rendition) { return rendition.isPicture; });
}

bool HasPlan(const Ticket& ticket) {
  return access(ticket.Directory().FilePath(orvo::kCmafPlanFile).c_str(), F_OK) == 0;
}

// Lets descriptions of the film tell what the plan has found out.
void Remember(const Ticket& ticket, const orvo::CmafKnowledge& known) {
  Answer ignored = Answer::Failure(kInternal);
  if (const auto file = OpenFilmOf(ticket, ignored)) {
    KeepCmafKnowledge(*file, known);
  }
}

// Plans the segments, or takes the plan of an earlier opening.
bool MakePlan(const Ticket& ticket) {
  const bool usesAnalysis = !ticket.Parameter(kAnalysisParameter).empty();
  Answer ignored = Answer::Failure(kInternal);
  const auto film = OpenFilmOf(ticket, ignored);
  if (film && (HasPlan(ticket) || UseKeptPlan(*film, usesAnalysis, ticket.Directory()))) {
    return true;
  }
  if (!LibOrvoQMX::MakeCmafPlan(ticket.StreamId(), FilmOf(ticket), usesAnalysis)) {
    return false;
  }
  if (film) {
    KeepPlan(*film, usesAnalysis, ticket.Directory());
  }
  return true;
}

// --- Starting ahead ---

// Starts the run of a rendition, unless it goes on. A refused place shows in the player's first
// request.
void StartRun(const Ticket& ticket, const CmafRendition& rendition, int number) {
  const CmafRun run(ticket.StreamId(), FilmOf(ticket), rendition);
  const LibOrvoQMX::StreamDirectory folder =
      LibOrvoQMX::CmafFolder(ticket.StreamId(), rendition.name);
  if (run.MakeFolder()) {
    folder.AskFor(number);
    folder.MarkAccess();
    auto place = run.TakePlace();
    (void)run.Reach(number, place);
  }
}

// The box whose turn it is may be another one. A stream that nobody has asked for yet is begun with
// its first block.
void WarmBoxes(const Ticket& ticket, const CmafPresentation& presentation,
               const CmafRendition& rendition, int number) {
  const bool isWanted = !LibOrvoQMX::IsCmafWarmed(ticket.StreamId());
  WarmFirstBlocks(
      number, isWanted ? CountBoxes() : 1,
      [&](int other) { return other < presentation.plan.Count(); },
      [&](int other) {
        return SegmentAddress(presentation, rendition.name) + std::to_string(other);
      });
}

// The rendition's header, in base64url; "" if it cannot be made or is unusually large.
std::string HeaderText(const Ticket& ticket, const CmafRendition& rendition) {
  constexpr size_t kLargest = 16384;
  const CmafRun run(ticket.StreamId(), FilmOf(ticket), rendition);
  const std::string header = run.MakeHeader() ? orvo::ReadText(run.HeaderPath()) : "";
  return header.size() > kLargest ? "" : orvo::Base64Url(header);
}

}  // namespace

std::string CmafComplaint(const Request& request) {
  constexpr std::string_view kCodecCharacters =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789.,-_ ";
  constexpr size_t kLongest = 1000;
  const std::string codecs = request.Text("codecs");
  if (codecs.size() > kLongest || codecs.find_first_not_of(kCodecCharacters) != std::string::npos) {
    return "The codecs are names with commas between them.";
  }
  const std::string renditions = request.Text("renditions");
  if (renditions.size() > kLongest ||
      renditions.find_first_not_of(kCodecCharacters) != std::string::npos) {
    return "The renditions are names with commas between them.";
  }
  const std::string playlists = request.Text(kCmafPlaylists);
  if (request.Has(kCmafPlaylists) && playlists != kHls && playlists != kDash) {
    return "The playlists are hls or dash.";
  }
  const std::string range = request.Text("dynamic_range");
  if (request.Has("dynamic_range") && range != "hdr" && range != "sdr") {
    return "The dynamic_range is hdr or sdr.";
  }
  for (const char* const name : {"max_height", "max_bitrate"}) {
    if (request.Has(name) && !request.Number(name, kHighestBound)) {
      return std::string("The ") + name + " must be a whole number.";
    }
  }
  return "";
}

std::string InitCmaf(const LibOrvoQMX::VideoMetaData& film, const std::string& streamId) {
  using LibOrvoQMX::QMXStream;
  const std::string id =
      streamId.empty() ? QMXStream::GetRandStreamID(film.GetFilePath()) : streamId;
  Json::Value record = film.GetDocument();
  record["profile_key"] = kCmafProfile;
  record["profile_value"] = "";
  if (id.empty()) {
    return "";
  }
  if (!QMXStream::CreateTmpDir(id, LibOrvoQMX::kCmafKind, ProfileFile(), kCmafProfile, 0)) {
    return "TransSapceNotEnough";
  }
  const LibOrvoQMX::StreamDirectory directory(LibOrvoQMX::kCmafKind, id);
  return LibMirevo::WriteJsonToFile(directory.RecordPath(), record) ? id : "";
}

Answer PrepareCmaf(const Ticket& ticket, Json::Value& data) {
  if (!MakePlan(ticket)) {
    CloseCmaf(ticket.StreamId());
    return Answer::Failure("TransVideoNotSupported",
                           "The segments of this film cannot be planned.");
  }
  const orvo::CmafKnowledge known = KnowledgeOf(ticket);
  if (known.copying == orvo::kCmafClockJumps) {
    CloseCmaf(ticket.StreamId());
    return Answer::Failure("TransVideoNotSupported",
                           "The clock of this film jumps, so it cannot be cut into segments. It "
                           "plays in the formats hls and http.");
  }
  QMXMetaData film = RecordOf(ticket);
  const auto presentation = PresentationOf(ticket, film);
  if (!presentation || presentation->renditions.empty()) {
    CloseCmaf(ticket.StreamId());
    return Answer::Failure("TransVideoNotSupported");
  }
  if (NeedsPlace(*presentation) && !LibMirevo::TransLoading().TransEnable(false)) {
    CloseCmaf(ticket.StreamId());
    return Answer::Failure("TransEnable");
  }
  Remember(ticket, known);
  ticket.Directory().MarkAccess();
  data["content_type"] = kPlaylistType;
  data["presentation"] = DescribeCmaf(*presentation);
  return Answer::Sent();
}

void StartCmaf(const Ticket& ticket, double second, Json::Value& data) {
  QMXMetaData film = RecordOf(ticket);
  const auto presentation = PresentationOf(ticket, film);
  if (!presentation) {
    return;
  }
  const int number = presentation->plan.At(static_cast<int64_t>(second * orvo::kPlanClock));
  const auto renditions = FirstRenditions(*presentation, ticket.Parameter("renditions"));
  for (const CmafRendition* const rendition : renditions) {
    if (CountBoxes() < 2) {
      StartRun(ticket, *rendition, number);
    } else {
      WarmBoxes(ticket, *presentation, *rendition, number);
    }
  }
  for (const CmafRendition* const rendition : renditions) {
    data["headers"][rendition->name] = HeaderText(ticket, *rendition);
  }
}

void AddCmafPlaylists(const Request& request, const Ticket& ticket, Json::Value& data) {
  if (!request.Has(kCmafPlaylists)) {
    return;
  }
  QMXMetaData film = RecordOf(ticket);
  auto presentation = PresentationOf(ticket, film);
  if (!presentation) {
    return;
  }
  AddSubtitles(film, *presentation);
  Json::Value& texts = data[kCmafPlaylists] = Json::Value(Json::objectValue);
  if (request.Text(kCmafPlaylists) == kDash) {
    texts[data["dash"].asString()] = DashManifest(*presentation);
    return;
  }
  texts[data["url"].asString()] = MultivariantPlaylist(*presentation);
  for (const CmafRendition* const rendition :
       FirstRenditions(*presentation, ticket.Parameter("renditions"))) {
    texts[MediaPlaylistAddress(*presentation, rendition->name)] =
        MediaPlaylist(*presentation, *rendition);
  }
}

Answer PlayCmaf(const Request& request, const Ticket& ticket) {
  QMXMetaData film = RecordOf(ticket);
  auto presentation = PresentationOf(ticket, film);
  if (!presentation) {
    return Answer::Failure(kInternal);
  }
  if (!request.Has("rendition")) {
    return SendPlaylist(request, film, *presentation);
  }
  const CmafRendition* const rendition = presentation->Find(request.Text("rendition"));
  if (rendition == nullptr) {
    return Answer::Failure(kNotFound, "This stream has no such rendition.");
  }
  return request.Has("segment")
             ? SendPiece(request, ticket, *presentation, *rendition)
             : SendText(request, kPlaylistType, MediaPlaylist(*presentation, *rendition));
}

void CloseCmaf(const std::string& streamId) {
  LibOrvoQMX::CloseCmafStream(streamId);
}

std::string WhyCmafIsNotCopied(const Ticket& ticket) {
  const CmafWishes wishes = WishesOf(ticket);
  QMXMetaData film = RecordOf(ticket);
  const bool hasPicture = !wishes.copying.empty() && wishes.copying != orvo::kCmafNoPicture;
  return hasPicture && film.LoadMetaData() ? WhyNotCopied(film, wishes) : "";
}

double CmafPosition(const Ticket& ticket) {
  const auto plan =
      orvo::CmafPlan::Parse(orvo::ReadText(ticket.Directory().FilePath(orvo::kCmafPlanFile)));
  const int64_t asked = ticket.Directory().LastAskedFor();
  if (!plan || asked < 0 || asked >= plan->Count()) {
    return 0;
  }
  return static_cast<double>(plan->Start(static_cast<int>(asked))) / orvo::kPlanClock;
}

}  // namespace webapi
