// Finds out who makes a request, and which calls that caller may make.
#pragma once

#include <string>

#include "accounts/accounts.h"
#include "webapi/http/answer.h"
#include "webapi/http/caller.h"
#include "webapi/http/request.h"

namespace webapi {

// The right that a call needs.
enum class Right {
  kAnyone,
  kLink,     // an account, or the link of the call's stream
  kAccount,  // an account
  kOwner,
  kManager,  // an owner; as long as there are no accounts, somebody on this machine: a proxy in
             // front of it may have let in anybody
};

// Do only accounts have rights? If MIREVO_LOGIN is "required" in the environment, that is so even
// if there are no accounts.
bool IsLoginRequired();

// What a caller without an account is counted as (Caller::client).
std::string ClientAt(const Request& request);

// The caller who has proved to be this account.
Caller ToCaller(const accounts::Account& account);

// Finds the caller by the parameter "_sid": a session or, if `right` allows it, a link. Without the
// parameter, finds it by the session in the cookie of that name.
Caller FindCaller(const Request& request, Right right);

// May the caller make a call that needs `right`? If not, sets `refusal` to the answer.
bool HasRight(const Caller& caller, Right right, Answer& refusal);

// The session id in the request's cookie; "" if there is none.
std::string SessionCookie(const Request& request);

}  // namespace webapi
