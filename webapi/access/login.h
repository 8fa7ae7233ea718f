// Logging in and out.
#pragma once

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// "account" and "passwd" give a session: its id, and the same as a cookie. What was wrong is not
// told, and how often may be tried is limited.
Answer LogIn(const Request& request);

// Ends the session that the request brings, if it brings one.
Answer LogOut(const Request& request);

// Whether a login is needed here, and who is logged in.
Answer DescribeCaller(const Request& request);

}  // namespace webapi
