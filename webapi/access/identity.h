// Who makes a request, and which calls that one may make.
#pragma once

#include <string>

#include "webapi/http/answer.h"
#include "webapi/http/caller.h"
#include "webapi/http/request.h"

namespace webapi {

// What a call asks of who makes it.
enum class Right {
  kAnyone,
  kLink,     // an account, or the link of the stream that the call names
  kAccount,  // an account
  kOwner,
};

// Finds out by the parameter "_sid", a session or, where `right` is content with it, a link; else
// by the session in the cookie of that name. Where the server shall not be used without accounts
// MIREVO_LOGIN is "required" in the environment.
Caller FindCaller(const Request& request, Right right);

// May the caller make a call that asks for `right`? Otherwise there is an answer in `refusal`.
bool HasRight(const Caller& caller, Right right, Answer& refusal);

// The session's id that the request's cookie holds; "" without one.
std::string SessionCookie(const Request& request);

}  // namespace webapi
