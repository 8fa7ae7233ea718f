// Who makes a request, and what that one may do.
#pragma once

#include <string>
#include <vector>

namespace webapi {

class Answer;
class Request;
class Ticket;

// What a call asks of who makes it.
enum class Right {
  kAnyone,
  kLink,     // an account, or the link of the stream that the call names
  kAccount,  // an account
  kOwner,
};

struct Caller {
  bool isLoginRequired = false;  // false where there are no accounts: everybody is the owner then
  std::string account;           // "" for nobody, and where there are no accounts
  std::string era;               // of the account
  bool isOwner = false;
  std::vector<std::string> roots;  // the account's media roots; empty for all
  std::string linkedStream;        // the only stream that a link opens; "" for a session

  // The refusal, in `refusal`, of a call that asks for more.
  bool Has(Right right, Answer& refusal) const;
};

// Finds out by the parameter "_sid", a session or, where `right` is content with it, a link; else
// by the session in the cookie of that name. Where the server shall not be used without accounts
// MIREVO_LOGIN is "required" in the environment.
Caller FindCaller(const Request& request, Right right);

// Is the stream the request's caller's to use? It is its account's alone, and the owner's, as long
// as they may see its film. Otherwise there is an answer in `refusal`.
bool MayUse(const Request& request, const Ticket& stream, Answer& refusal);
// The same to close it, whoever may see the film by now.
bool MayClose(const Request& request, const Ticket& stream, Answer& refusal);

// The session's id that the request's cookie holds; "" without one.
std::string SessionCookie(const Request& request);

}  // namespace webapi
