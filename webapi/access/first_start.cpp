#include "webapi/access/first_start.h"

#include <ctime>
#include <string>

#include "accounts/accounts.h"
#include "accounts/attempts.h"
#include "accounts/first_word.h"
#include "webapi/access/login.h"
#include "webapi/http/work.h"
#include "webapi/library/media_library.h"

namespace webapi {
namespace {

using accounts::Attempts;
using accounts::Outcome;

// May this request create the first account? Takes one of the client's tries if it has a wrong
// word; `wait` is then 0, or the seconds until the next try.
bool IsAllowed(const Request& request, int64_t now, int64_t& wait) {
  wait = 0;
  if (!request.MadeBy().isLoginRequired && request.MadeBy().isHere) {
    return true;
  }
  const Attempts tries("address " + accounts::ClientOf(request.ClientAddress()),
                       accounts::kPerAddress, now);
  wait = tries.Take();
  const bool isAllowed = wait == 0 && accounts::IsFirstWord(request.Text("word"));
  if (isAllowed) {
    tries.GiveBack();
  }
  return isAllowed;
}

Answer Create(const Request& request, int64_t now) {
  const std::string name = request.Text("account");
  const auto place = TakePlace(kLoginWork);
  if (!place) {
    return Answer::Failure(kBusy);
  }
  const Outcome outcome = accounts::CreateFirst(name, request.Text("passwd"));
  if (outcome != Outcome::kDone) {
    return Answer::Failure(
        outcome == Outcome::kFailed || outcome == Outcome::kDamaged ? kInternal : kBadRequest,
        accounts::Describe(outcome));
  }
  accounts::RemoveFirstWord();
  const auto account = accounts::Find(name);
  return account ? Welcome(request, *account, now) : Answer::Failure(kInternal);
}

}  // namespace

const char* FirstStartOf(const Request& request) {
  if (accounts::AreNeeded()) {
    return "none";
  }
  if (request.MadeBy().isLoginRequired) {
    return accounts::HasFirstWord() ? "word" : "none";
  }
  return MediaRoots().empty() && request.MadeBy().isHere ? "open" : "none";
}

Answer BeginService(const Request& request) {
  const int64_t now = time(nullptr);
  if (accounts::AreNeeded()) {
    return Answer::Failure(kForbidden, accounts::Describe(Outcome::kNotFirst));
  }
  int64_t wait = 0;
  if (!IsAllowed(request, now, wait)) {
    return wait > 0 ? AskForPatience(wait)
                    : Answer::Failure(kUnauthorized,
                                      "The word is wrong. The service shows it where it starts.");
  }
  return Create(request, now);
}

}  // namespace webapi
