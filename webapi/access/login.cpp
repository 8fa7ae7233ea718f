#include "webapi/access/login.h"

#include <ctime>
#include <string>

#include "accounts/attempts.h"
#include "accounts/known_clients.h"
#include "accounts/sessions.h"
#include "webapi/access/first_start.h"
#include "webapi/access/identity.h"
#include "webapi/access/session.h"
#include "webapi/http/work.h"

namespace webapi {
namespace {

using accounts::Attempts;

// Scripts cannot read the cookie, and browsers do not send it with requests from other sites.
std::string CookieOf(const Request& request, const std::string& value, int64_t seconds) {
  return "_sid=" + value + "; Path=" + PathPrefix() + "/; Max-Age=" + std::to_string(seconds) +
         "; HttpOnly; SameSite=Strict" + (request.Scheme() == "https" ? "; Secure" : "");
}

// The bucket of tries for this account. Strangers share one. A client from which the account has
// logged in before, or whose session is the account's, has one of its own.
std::string AccountBucket(const Request& request, const std::string& name,
                          const std::string& client) {
  if (request.MadeBy().account == name && !name.empty()) {
    return "session of " + name;
  }
  return accounts::IsKnownClient(name, client) ? "account " + name + " at " + client
                                               : "account " + name;
}

}  // namespace

Answer AskForPatience(int64_t seconds) {
  Answer answer = Answer::Failure(
      kTooManyRequests, "There were too many login attempts. Wait a moment, then try again.");
  answer.AddHeader("Retry-After", std::to_string(seconds));
  return answer;
}

Answer Welcome(const Request& request, const accounts::Account& account, int64_t now) {
  const std::string id = webapi::BeginSession(account, now);
  if (id.empty()) {
    return Answer::Failure(kInternal, "The session could not be stored.");
  }
  Json::Value data(Json::objectValue);
  data["_sid"] = id;
  data["account"] = account.name;
  data["owner"] = account.owner;
  data["expires"] = static_cast<Json::Int64>(now + accounts::kSessionIdleSeconds);
  Answer answer = Answer::Success(data);
  answer.AddHeader("Set-Cookie", CookieOf(request, id, accounts::kSessionSeconds));
  return answer;
}

std::optional<accounts::Account> CheckPassword(const Request& request, const std::string& name,
                                               const std::string& password, int64_t now,
                                               Answer& refusal) {
  const std::string client = accounts::ClientOf(request.ClientAddress());
  const Attempts byAddress("address " + client, accounts::kPerAddress, now);
  const Attempts byAccount(AccountBucket(request, name, client), accounts::kPerAccount, now);
  int64_t wait = byAddress.Take();
  wait = wait > 0 ? wait : byAccount.Take();
  if (wait > 0) {
    refusal = AskForPatience(wait);
    return std::nullopt;
  }
  const auto place = TakePlace(kLoginWork);
  if (!place) {
    byAddress.GiveBack();
    byAccount.GiveBack();
    refusal = Answer::Failure(kBusy, "Many people are logging in. Try again in a few seconds.");
    return std::nullopt;
  }
  auto account = accounts::Verify(name, password);
  if (!account) {
    refusal = Answer::Failure(kUnauthorized, "The name or the password is wrong.");
    return std::nullopt;
  }
  byAddress.GiveBack();
  byAccount.GiveBack();
  Attempts::Sweep(now);
  accounts::RememberClient(account->name, client);
  return account;
}

Answer LogIn(const Request& request) {
  if (!accounts::AreNeeded()) {
    return Answer::Failure(kBadRequest, "This server has no accounts.");
  }
  const int64_t now = time(nullptr);
  Answer refusal = Answer::Failure(kInternal);
  const auto account =
      CheckPassword(request, request.Text("account"), request.Text("passwd"), now, refusal);
  return account ? Welcome(request, *account, now) : refusal;
}

Answer LogOut(const Request& request) {
  const int64_t now = time(nullptr);
  EndSession(request.Text("_sid"), now);
  EndSession(SessionCookie(request), now);
  Answer answer = Answer::Success(Json::Value(Json::objectValue));
  answer.AddHeader("Set-Cookie", CookieOf(request, "", 0));
  return answer;
}

Answer DescribeCaller(const Request& request) {
  const Caller& caller = request.MadeBy();
  Json::Value data(Json::objectValue);
  data["login_required"] = caller.isLoginRequired;
  data["account"] = caller.account;
  data["owner"] = caller.isOwner;
  data["first_start"] = FirstStartOf(request);
  return Answer::Success(data);
}

}  // namespace webapi
