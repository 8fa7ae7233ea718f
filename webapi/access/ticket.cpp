#include "webapi/access/ticket.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <string_view>
#include <utility>

#include "platform/io.h"
#include "platform/log.h"
#include "platform/plat.h"
#include "util/json_utils.h"
#include "util/private_folder.h"
#include "webapi/library/media_library.h"

namespace webapi {
namespace {

using LibOrvoQMX::StreamDirectory;

constexpr char kFolder[] = "/tmp/Mirevo/tickets";
constexpr char kLock[] = "/.locks";
constexpr char kClosedEnding[] = ".closed";
constexpr mode_t kMode = 0600;  // a ticket's link works like a login
constexpr size_t kDigestLength = 32;
constexpr size_t kStreamIdLength = 41;

std::string TicketFolder() {
  return orvo::SystemPath(kFolder);
}

std::string PathOf(const std::string& streamId) {
  return TicketFolder() + "/" + streamId;
}

std::string ClosedPathOf(const std::string& streamId) {
  return PathOf(streamId) + kClosedEnding;
}

// A ticket may be damaged. A member of the wrong type counts as absent.
std::string TextIn(const Json::Value& content, const char* key) {
  return content[key].isString() ? content[key].asString() : "";
}

int NumberIn(const Json::Value& content, const char* key, int otherwise) {
  return content[key].isInt() ? content[key].asInt() : otherwise;
}

bool IsContent(const Json::Value& content) {
  return content.isObject() && content["record"].isObject() && !TextIn(content, "kind").empty();
}

// The lock of one ticket, or of another file beside it. All tickets share one lock file, which is
// never removed. A lock file that disappears with its ticket would not protect the next ticket of
// that name.
orvo::FileLock Hold(const std::string& streamId) {
  return orvo::FileLock::WaitFor(streamId, TicketFolder() + kLock);
}

time_t ModifiedAt(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_mtime : 0;
}

// A file that cannot be looked at may be there.
bool IsThere(const std::string& path) {
  return access(path.c_str(), F_OK) == 0 || (errno != ENOENT && errno != ENOTDIR);
}

bool IsHis(const Caller& caller, const Ticket& ticket) {
  return caller.linkedStream.empty()
             ? caller.isOwner || caller.account == ticket.Parameter("account")
             : caller.linkedStream == ticket.StreamId();
}

// The account may have lost access to the film since it opened the stream.
bool MaySeeFilm(const Caller& caller, const Ticket& ticket) {
  return caller.roots.empty() || MaySee(ticket.Path());
}

bool IsAllowed(const Caller& caller, bool isGood, Answer& refusal) {
  if (!caller.isLoginRequired || isGood) {
    return true;
  }
  refusal = Answer::Failure(kForbidden, "This stream belongs to another account.");
  return false;
}

}  // namespace

bool IsStreamId(const std::string& text) {
  constexpr std::string_view kHex = "0123456789abcdef";
  const auto isHex = [&](char c) { return kHex.find(c) != std::string_view::npos; };
  const auto isLetterOrDigit = [](unsigned char c) { return c < 128 && std::isalnum(c) != 0; };
  return text.size() == kStreamIdLength && text[kDigestLength] == '_' &&
         std::all_of(text.begin(), text.begin() + kDigestLength, isHex) &&
         std::all_of(text.begin() + kDigestLength + 1, text.end(), isLetterOrDigit);
}

Ticket::Ticket(std::string streamId, Json::Value content)
    : streamId_(std::move(streamId)), content_(std::move(content)) {}

std::optional<Ticket> Ticket::Read(const std::string& streamId) {
  const std::string path = PathOf(streamId);
  if (!IsStreamId(streamId) || !orvo::IsOwnFolder(TicketFolder()) || !IsThere(path)) {
    return std::nullopt;
  }
  Json::Value content;
  if (LibMirevo::ReadJsonFromFileWithoutLock(path, content) && IsContent(content)) {
    return Ticket(streamId, std::move(content));
  }
  // Another request may have removed it since the first check.
  if (IsThere(path)) {
    ORVO_LOG("The ticket [%s] cannot be read", path.c_str());
  }
  return std::nullopt;
}

std::optional<Ticket> Ticket::Of(const Request& request) {
  const std::string streamId = request.StreamId();
  const Caller& caller = request.MadeBy();
  if (!caller.linkedStream.empty() && caller.linkedStream == streamId) {
    return Ticket(streamId, caller.linkedTicket);
  }
  auto ticket = Read(streamId);
  if (!ticket && IsContent(request.SealedTicket())) {
    ticket = Ticket(streamId, request.SealedTicket());
  }
  return ticket;
}

std::optional<Ticket> Ticket::Draft(const std::string& streamId, const std::string& kind,
                                    const Json::Value& parameters) {
  Json::Value content(Json::objectValue);
  content["kind"] = kind;
  content["parameters"] = parameters;
  const bool isRead = LibMirevo::ReadJsonFromFileWithoutLock(
      StreamDirectory(kind, streamId).RecordPath(), content["record"]);
  return isRead && IsContent(content) ? std::optional(Ticket(streamId, std::move(content)))
                                      : std::nullopt;
}

std::vector<std::string> Ticket::All() {
  std::vector<std::string> ids;
  std::error_code failure;
  for (const auto& entry : std::filesystem::directory_iterator(TicketFolder(), failure)) {
    // The folder also holds the lock file and, for a moment, temporary files.
    const std::string name = entry.path().filename().string();
    if (IsStreamId(name)) {
      ids.push_back(name);
    }
  }
  return ids;
}

time_t Ticket::ChangedAt(const std::string& streamId) {
  return ModifiedAt(PathOf(streamId));
}

bool Ticket::Exists(const std::string& streamId) {
  return IsStreamId(streamId) && IsThere(PathOf(streamId));
}

void Ticket::MarkClosed(const std::string& streamId) {
  if (IsStreamId(streamId) && orvo::MakePrivateFolder(TicketFolder())) {
    orvo::ReplaceFile(ClosedPathOf(streamId), "", kMode);
  }
}

time_t Ticket::ClosedAt(const std::string& streamId) {
  return IsStreamId(streamId) ? ModifiedAt(ClosedPathOf(streamId)) : 0;
}

void Ticket::ForgetClosed(time_t before, size_t most) {
  std::vector<std::pair<time_t, std::string>> closed;
  std::error_code failure;
  for (const auto& entry : std::filesystem::directory_iterator(TicketFolder(), failure)) {
    if (entry.path().extension() == kClosedEnding) {
      closed.emplace_back(ModifiedAt(entry.path()), entry.path());
    }
  }
  std::sort(closed.rbegin(), closed.rend());
  for (size_t i = 0; i < closed.size(); ++i) {
    if (i >= most || closed[i].first < before) {
      unlink(closed[i].second.c_str());
    }
  }
}

std::string Ticket::FolderPath() {
  return TicketFolder();
}

orvo::FileLock Ticket::LockFolder(const std::string& name) {
  orvo::MakePrivateFolder(TicketFolder());
  return Hold(name);
}

bool Ticket::IsSealed() const {
  return content_.isMember(kOpeningMember);
}

std::string Ticket::Kind() const {
  return TextIn(content_, "kind");
}

std::string Ticket::Parameter(const std::string& name) const {
  const Json::Value& parameters = content_["parameters"];
  return parameters.isObject() ? TextIn(parameters, name.c_str()) : "";
}

const Json::Value& Ticket::Record() const {
  return content_["record"];
}
std::string Ticket::Path() const {
  return TextIn(Record(), "path");
}
unsigned Ticket::Duration() const {
  const Json::Value& duration = Record()["duration"];
  return duration.isUInt() ? duration.asUInt() : 0;
}
std::string Ticket::ProfileKey() const {
  return TextIn(Record(), "profile_key");
}
std::string Ticket::ProfileValue() const {
  return TextIn(Record(), "profile_value");
}

int Ticket::StartSeconds() const {
  return NumberIn(content_, "start", 0);
}
Json::Value Ticket::Times() const {
  const Json::Value& times = content_["times"];
  return times.isObject() ? times : Json::Value(Json::objectValue);
}
std::string Ticket::Owner() const {
  return TextIn(content_, "owner");
}
pid_t Ticket::OwnerPid() const {
  return NumberIn(content_, "owner_pid", -1);
}

time_t Ticket::LastUse() const {
  return std::max(ModifiedAt(PathOf(streamId_)), Directory().LastAccess());
}

void Ticket::MarkUse() const {
  if (HasDirectory()) {
    Directory().MarkAccess();
  }
}

StreamDirectory Ticket::Directory() const {
  return StreamDirectory(Kind(), streamId_);
}

std::string Ticket::Folder() const {
  return Directory().Path();
}

std::string Ticket::FilePath() const {
  return PathOf(streamId_);
}

std::string Ticket::PassPath() const {
  return FilePath() + ".pass";
}

std::string Ticket::RecordPath() const {
  return Directory().RecordPath();
}

bool Ticket::HasDirectory() const {
  return IsThere(RecordPath());
}

HeldTicket::HeldTicket(std::string streamId, Json::Value content, orvo::FileLock lock)
    : Ticket(std::move(streamId), std::move(content)), lock_(std::move(lock)) {}

std::optional<HeldTicket> HeldTicket::Create(const std::string& streamId, const std::string& kind,
                                             const Json::Value& parameters) {
  const auto draft = Draft(streamId, kind, parameters);
  if (!draft || !orvo::MakePrivateFolder(TicketFolder())) {
    return std::nullopt;
  }
  HeldTicket ticket(streamId, draft->Content(), Hold(streamId));
  return ticket.lock_.IsHeld() && ticket.Save() ? std::optional(std::move(ticket)) : std::nullopt;
}

std::optional<HeldTicket> HeldTicket::Take(const std::string& streamId) {
  Answer ignored = Answer::Failure(kNotFound);
  return Take(streamId, ignored);
}

std::optional<HeldTicket> HeldTicket::Take(const std::string& streamId, Answer& refusal) {
  refusal = Answer::Failure(kNotFound, kStreamClosed);
  // A lock would create its file. Without a ticket there is nothing to lock.
  if (!Exists(streamId)) {
    return std::nullopt;
  }
  auto lock = Hold(streamId);
  if (!lock.IsHeld()) {
    refusal = Answer::Failure(kBusy, "Another request of this stream has not ended.");
    return std::nullopt;
  }
  auto ticket = Read(streamId);
  return ticket ? std::optional(HeldTicket(streamId, ticket->Content(), std::move(lock)))
                : std::nullopt;
}

bool HeldTicket::SetParameter(const std::string& name, const std::string& value) {
  content_["parameters"][name] = value;
  return Save();
}

bool HeldTicket::SetOwner(const std::string& owner, pid_t pid, int startSeconds) {
  content_["owner"] = owner;
  content_["owner_pid"] = pid;
  content_["start"] = startSeconds;
  return Save();
}

bool HeldTicket::AddTimes(const Json::Value& steps) {
  Json::Value times = Times();
  for (const std::string& step : steps.getMemberNames()) {
    times[step] = steps[step];
  }
  content_["times"] = times;
  return Save();
}

bool HeldTicket::Save() const {
  return orvo::ReplaceFile(PathOf(streamId_), LibMirevo::FormatJson(content_), kMode);
}

void HeldTicket::Remove() const {
  unlink(PathOf(streamId_).c_str());
  unlink(PassPath().c_str());
}

std::optional<orvo::MediaFile> OpenFilmOf(const Ticket& ticket, Answer& refusal) {
  auto film = OpenFilm(ticket.Path(), refusal);
  const std::string identity = ticket.Parameter(kFilmParameter);
  if (film && !identity.empty() && film->Identity() != identity) {
    refusal = Answer::Failure(kNotFound, "The film has been replaced. Open it again.");
    return std::nullopt;
  }
  return film;
}

std::string StreamLink(const Ticket& ticket) {
  return ticket.Parameter("link");
}

std::string AddressEnd(const Ticket& ticket) {
  const std::string link = StreamLink(ticket);
  const std::string sealed = ticket.Parameter(kSealedParameter);
  return (link.empty() ? "" : "&_sid=" + link) +
         (sealed.empty() ? "" : std::string("&") + kSealedParameter + "=" + sealed);
}

bool MayUse(const Caller& caller, const Ticket& stream, Answer& refusal) {
  return IsAllowed(caller, IsHis(caller, stream) && MaySeeFilm(caller, stream), refusal);
}

bool MayClose(const Caller& caller, const Ticket& stream, Answer& refusal) {
  return IsAllowed(caller, IsHis(caller, stream), refusal);
}

}  // namespace webapi
