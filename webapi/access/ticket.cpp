#include "webapi/access/ticket.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <ctime>
#include <filesystem>
#include <string_view>

#include "platform/io.h"
#include "platform/plat.h"
#include "util/json_utils.h"
#include "webapi/library/media_library.h"

namespace webapi {
namespace {

using LibOrvoQMX::StreamDirectory;

constexpr char kFolder[] = "/tmp/Mirevo/tickets";
constexpr size_t kDigestLength = 32;
constexpr size_t kStreamIdLength = 41;

std::string TicketFolder() {
  return orvo::SystemPath(kFolder);
}

std::string PathOf(const std::string& streamId) {
  return TicketFolder() + "/" + streamId;
}

// Anyone may have damaged a ticket: a member of the wrong type counts as absent.
std::string TextIn(const Json::Value& content, const char* key) {
  return content[key].isString() ? content[key].asString() : "";
}

int NumberIn(const Json::Value& content, const char* key, int otherwise) {
  return content[key].isInt() ? content[key].asInt() : otherwise;
}

time_t ModifiedAt(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_mtime : 0;
}

bool Exists(const std::string& path) {
  return access(path.c_str(), F_OK) == 0;
}

bool IsHis(const Caller& caller, const Ticket& ticket) {
  return caller.linkedStream.empty()
             ? caller.isOwner || caller.account == ticket.Parameter("account")
             : caller.linkedStream == ticket.StreamId();
}

// What an account may see can have become less since it opened the stream.
bool MaySeeFilm(const Caller& caller, const Ticket& ticket) {
  const Json::Value& path = ticket.Record()["path"];
  return caller.roots.empty() || (path.isString() && MaySee(path.asString()));
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

Ticket::Ticket(std::string streamId, std::unique_ptr<LibMirevo::Lock> lock, Json::Value content)
    : streamId_(std::move(streamId)), lock_(std::move(lock)), content_(std::move(content)) {}

bool Ticket::Create(const std::string& streamId, const std::string& kind,
                    const Json::Value& parameters) {
  Json::Value content(Json::objectValue);
  if (!LibMirevo::ReadJsonFromFile(StreamDirectory(kind, streamId).RecordPath(),
                                   content["record"])) {
    return false;
  }
  content["kind"] = kind;
  content["parameters"] = parameters;
  const auto lock = std::make_unique<LibMirevo::Lock>(PathOf(streamId), true);
  return lock->IsLockSucess() && LibMirevo::WriteJsonToFileWithoutLock(PathOf(streamId), content);
}

std::optional<Ticket> Ticket::Take(const std::string& streamId) {
  const std::string path = PathOf(streamId);
  if (!IsStreamId(streamId) || !Exists(path)) {
    return std::nullopt;
  }
  auto lock = std::make_unique<LibMirevo::Lock>(path, true);
  Json::Value content;
  if (!lock->IsLockSucess()) {
    return std::nullopt;
  }
  if (!LibMirevo::ReadJsonFromFileWithoutLock(path, content) || !content.isObject() ||
      !content["record"].isObject() || TextIn(content, "kind").empty()) {
    // Removed while this waited for the lock, or damaged: no ticket either way.
    unlink(path.c_str());
    return std::nullopt;
  }
  return Ticket(streamId, std::move(lock), std::move(content));
}

std::vector<std::string> Ticket::All() {
  std::vector<std::string> ids;
  std::error_code failure;
  for (const auto& entry : std::filesystem::directory_iterator(TicketFolder(), failure)) {
    ids.push_back(entry.path().filename().string());
  }
  return ids;
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
int Ticket::StartSeconds() const {
  return NumberIn(content_, "start", 0);
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

bool Ticket::SetOwner(const std::string& owner, pid_t pid, int startSeconds) {
  content_["owner"] = owner;
  content_["owner_pid"] = pid;
  content_["start"] = startSeconds;
  return LibMirevo::WriteJsonToFileWithoutLock(PathOf(streamId_), content_);
}

StreamDirectory Ticket::Directory() const {
  return StreamDirectory(Kind(), streamId_);
}

std::string Ticket::Folder() const {
  return Directory().Path();
}

std::string Ticket::RecordPath() const {
  return Directory().RecordPath();
}

bool Ticket::HasDirectory() const {
  return Exists(RecordPath());
}

void Ticket::Remove() {
  unlink(PathOf(streamId_).c_str());
}

std::string StreamLink(const Ticket& ticket) {
  return ticket.Parameter("link");
}

bool MayUse(const Caller& caller, const Ticket& stream, Answer& refusal) {
  return IsAllowed(caller, IsHis(caller, stream) && MaySeeFilm(caller, stream), refusal);
}

bool MayClose(const Caller& caller, const Ticket& stream, Answer& refusal) {
  return IsAllowed(caller, IsHis(caller, stream), refusal);
}

std::string KindFolder(const std::string& kind) {
  return orvo::SystemPath("/tmp/Mirevo/" + kind);
}

}  // namespace webapi
