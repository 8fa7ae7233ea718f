#include "webapi/access/sealed_ticket.h"

#include <ctime>
#include <utility>

#include "accounts/accounts.h"
#include "accounts/session_folder.h"
#include "webapi/cluster/cluster_keys.h"
#include "webapi/cluster/opening.h"
#include "webapi/cluster/seal.h"

namespace webapi {
namespace {

constexpr char kAccount[] = "account";
constexpr char kEra[] = "era";
constexpr char kLink[] = "link";

// An opening, and the key under which it was sealed.
struct Opened {
  Opening opening;
  const ClusterKey& key;
};

// The link follows from the account's present era, so a link that was made before a change of the
// password is no link on any box.
std::string LinkWith(const ClusterKey& key, const std::string& streamId, const std::string& account,
                     const std::string& era) {
  return DeriveSecret(key, streamId + "\n" + account + "\n" + era);
}

std::optional<Opened> OpenSeal(const std::string& streamId, const std::string& text) {
  for (const ClusterKey& key : OwnClusterKeys()) {
    const auto bytes = Unseal(key, streamId, text);
    auto opening = bytes ? Unpack(*bytes) : std::nullopt;
    if (opening) {
      return Opened{std::move(*opening), key};
    }
  }
  return std::nullopt;
}

// The key with which all boxes find this link; null if there is none.
const ClusterKey* KeyOf(const Ticket& ticket) {
  const std::string link = StreamLink(ticket);
  for (const ClusterKey& key : OwnClusterKeys()) {
    if (link.empty() || link == LinkWith(key, ticket.StreamId(), ticket.Parameter(kAccount),
                                         ticket.Parameter(kEra))) {
      return &key;
    }
  }
  return nullptr;
}

void AddOwner(const Opened& opened, const std::string& streamId, Json::Value& parameters) {
  const std::string name = parameters[kAccount].asString();
  const auto account = name.empty() ? std::nullopt : accounts::Find(name);
  if (account) {
    parameters[kEra] = account->era;
    parameters[kLink] = LinkWith(opened.key, streamId, name, account->era);
  }
}

// A ticket's content without the parts that only the film can tell.
Json::Value ContentOf(const Opened& opened, const std::string& streamId, const std::string& text) {
  Json::Value content(Json::objectValue);
  Json::Value& parameters = content["parameters"];
  for (const auto& [name, word] : opened.opening.words) {
    parameters[name] = word;
  }
  parameters[kSealedParameter] = text;
  AddOwner(opened, streamId, parameters);
  Json::Value kind;
  parameters.removeMember(kKindWord, &kind);
  parameters.removeMember(kPathWord, &content["record"]["path"]);
  parameters.removeMember(kProfileWord, &content["record"]["profile_key"]);
  content["kind"] = kind;
  content[kOpeningMember]["film"] = static_cast<Json::UInt64>(opened.opening.film);
  content[kOpeningMember]["plan"] = static_cast<Json::UInt64>(opened.opening.plan);
  content[kOpeningMember]["issued"] = static_cast<Json::Int64>(opened.opening.issued);
  return content;
}

Answer Expired() {
  return Answer::Failure(kGone, "This address has expired. Open the film again.");
}

std::optional<Answer> RefuseByTime(const Opening& opening, const std::string& streamId) {
  const time_t age = time(nullptr) - opening.issued;
  if (age > kTicketSeconds) {
    return Expired();
  }
  if (age < -accounts::kClockSeconds) {
    return Answer::Failure(kGone, "The clocks of the servers differ. Open the film again.");
  }
  return Ticket::ClosedAt(streamId) >= opening.issued
             ? std::optional(Answer::Failure(kGone, kStreamClosed))
             : std::nullopt;
}

}  // namespace

uint64_t FilmState(const orvo::MediaFile& film) {
  const struct stat& status = film.Status();
  return ChecksumOf(std::to_string(status.st_size) + " " + std::to_string(status.st_mtim.tv_sec) +
                    "." + std::to_string(status.st_mtim.tv_nsec));
}

std::string SealTicket(const Ticket& ticket, const Promise& promise) {
  const ClusterKey* const key = KeyOf(ticket);
  if (key == nullptr) {
    return "";
  }
  Opening opening{time(nullptr), promise.film, promise.plan, {}};
  const Json::Value& parameters = ticket.Content()["parameters"];
  for (const std::string& name : parameters.getMemberNames()) {
    opening.words[name] = ticket.Parameter(name);
  }
  opening.words[kPathWord] = ticket.Path();
  opening.words[kKindWord] = ticket.Kind();
  opening.words[kProfileWord] = ticket.ProfileKey();
  return Seal(*key, ticket.StreamId(), Pack(opening));
}

bool IsClosedHere(const Ticket& sealed) {
  return Ticket::ClosedAt(sealed.StreamId()) >=
         sealed.Content()[kOpeningMember]["issued"].asInt64();
}

Promise PromiseOf(const Ticket& sealed) {
  const Json::Value& opening = sealed.Content()[kOpeningMember];
  return {opening["film"].asUInt64(), opening["plan"].asUInt64()};
}

std::string LinkInCluster(const std::string& streamId, const std::string& account,
                          const std::string& era) {
  const auto& keys = OwnClusterKeys();
  return keys.empty() ? "" : LinkWith(keys.front(), streamId, account, era);
}

std::optional<Answer> RefuseSealedTicket(Request& request) {
  const std::string text = request.Text(kSealedParameter);
  const std::string streamId = request.StreamId();
  if (!IsInCluster() || text.empty() || !IsStreamId(streamId)) {
    return std::nullopt;
  }
  const auto known = Ticket::Read(streamId);
  if (known && time(nullptr) - known->LastUse() > kTicketSeconds) {
    return Expired();
  }
  if (known && known->Parameter(kSealedParameter) == text) {
    return std::nullopt;
  }
  const auto opened = OpenSeal(streamId, text);
  if (!opened) {
    return Answer::Failure(kForbidden, "The ticket in this address is not one of this cluster.");
  }
  if (known) {
    return std::nullopt;
  }
  request.SetSealedTicket(ContentOf(*opened, streamId, text));
  return RefuseByTime(opened->opening, streamId);
}

}  // namespace webapi
