// Login and logout.
#pragma once

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// Checks "account" and "passwd" and starts a session. The answer has its id, also as a cookie. A
// refusal does not tell which of the two was wrong. The number of attempts is limited.
Answer LogIn(const Request& request);

// Ends the request's session, if it has one.
Answer LogOut(const Request& request);

// Tells whether a login is needed, and who is logged in.
Answer DescribeCaller(const Request& request);

}  // namespace webapi
