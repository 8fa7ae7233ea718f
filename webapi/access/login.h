// Login and logout.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "accounts/accounts.h"
#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// Checks "account" and "passwd" and starts a session. The answer has its id, also as a cookie. A
// refusal does not tell which of the two was wrong. The number of attempts is limited.
Answer LogIn(const Request& request);

// The account, if the password is right. Otherwise nothing, and sets `refusal`, which does not tell
// which of the two was wrong. The number of attempts is limited. `now`: seconds since the epoch.
std::optional<accounts::Account> CheckPassword(const Request& request, const std::string& name,
                                               const std::string& password, int64_t now,
                                               Answer& refusal);

// Begins a session of the account. The answer has its id, also as a cookie. `now`: seconds since
// the epoch.
Answer Welcome(const Request& request, const accounts::Account& account, int64_t now);

// The refusal for a client without tries, which has one again after `seconds`.
Answer AskForPatience(int64_t seconds);

// Ends the request's session, if it has one.
Answer LogOut(const Request& request);

// Tells whether a login is needed, who is logged in, and what a first start asks for.
Answer DescribeCaller(const Request& request);

}  // namespace webapi
