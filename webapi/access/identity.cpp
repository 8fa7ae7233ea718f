#include "webapi/access/identity.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <string_view>

#include "accounts/accounts.h"
#include "accounts/attempts.h"
#include "accounts/secrets.h"
#include "webapi/access/session.h"
#include "webapi/access/ticket.h"

namespace webapi {
namespace {

// A proxy on this machine speaks for others, and adds one of these.
constexpr std::array kProxyHeaders = {"X_FORWARDED_FOR", "FORWARDED", "VIA", "X_REAL_IP"};

bool IsFromHere(const Request& request) {
  const std::string client = request.ClientAddress();
  const bool isLoopback =
      client.starts_with("127.") || client == "::1" || client.starts_with("::ffff:127.");
  return isLoopback && std::all_of(kProxyHeaders.begin(), kProxyHeaders.end(),
                                   [&](const char* name) { return request.Header(name).empty(); });
}

// A link has its account's rights, and expires when the account's password changes.
std::optional<Caller> ByLink(const Request& request, const std::string& link) {
  if (!accounts::IsSecret(link)) {
    return std::nullopt;
  }
  const auto ticket = Ticket::Of(request);
  if (!ticket || !accounts::SameSecret(ticket->Parameter("link"), link)) {
    return std::nullopt;
  }
  const auto account = accounts::Find(ticket->Parameter("account"));
  if (!account || account->era != ticket->Parameter("era")) {
    return std::nullopt;
  }
  Caller caller = ToCaller(*account);
  caller.isOwner = false;
  caller.linkedStream = ticket->StreamId();
  caller.linkedTicket = ticket->Content();
  return caller;
}

std::optional<Caller> BySession(const std::string& id) {
  const auto account = UseSession(id, time(nullptr));
  return account ? std::optional(ToCaller(*account)) : std::nullopt;
}

}  // namespace

bool IsLoginRequired() {
  const char* const setting = secure_getenv("MIREVO_LOGIN");
  return (setting != nullptr && std::string_view(setting) == "required") || accounts::AreNeeded();
}

std::string ClientAt(const Request& request) {
  return "address " + accounts::ClientOf(request.ClientAddress());
}

Caller ToCaller(const accounts::Account& account) {
  Caller caller;
  caller.isLoginRequired = true;
  caller.account = account.name;
  caller.client = "account " + account.name;
  caller.era = account.era;
  caller.isOwner = account.owner;
  caller.roots = account.roots;
  return caller;
}

Caller FindCaller(const Request& request, Right right) {
  Caller caller;
  caller.client = ClientAt(request);
  caller.isLoginRequired = IsLoginRequired();
  caller.isOwner = !caller.isLoginRequired;
  caller.isHere = IsFromHere(request);
  if (!caller.isLoginRequired) {
    return caller;
  }
  const std::string id = request.Text("_sid");
  auto found = right == Right::kLink ? ByLink(request, id) : std::nullopt;
  if (!found) {
    found = BySession(id);
  }
  if (!found) {
    found = BySession(SessionCookie(request));
  }
  return found.value_or(caller);
}

bool HasRight(const Caller& caller, Right right, Answer& refusal) {
  if (right == Right::kManager && !caller.isLoginRequired && !caller.isHere) {
    refusal = Answer::Failure(kForbidden,
                              "Create an account on the server first. Without one, the settings "
                              "can be changed only there.");
    return false;
  }
  if (!caller.isLoginRequired || right == Right::kAnyone ||
      (right == Right::kLink && !caller.account.empty())) {
    return true;
  }
  if (caller.account.empty() || !caller.linkedStream.empty()) {
    refusal = Answer::Failure(kUnauthorized);
    return false;
  }
  refusal = Answer::Failure(kForbidden, "Only the owner of the system may do this.");
  return right == Right::kAccount || caller.isOwner;
}

std::string SessionCookie(const Request& request) {
  constexpr std::string_view kName = "_sid=";
  const std::string cookies = request.Header("COOKIE");
  size_t start = 0;
  while (start < cookies.size()) {
    start = std::min(cookies.find_first_not_of(" ;", start), cookies.size());
    const size_t end = std::min(cookies.find(';', start), cookies.size());
    if (cookies.compare(start, kName.size(), kName) == 0) {
      return cookies.substr(start + kName.size(), end - start - kName.size());
    }
    start = end;
  }
  return "";
}

}  // namespace webapi
