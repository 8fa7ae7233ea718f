// Decides which web pages may make requests, and which host names this server accepts.
//
// Every page in a browser can use the network and the cookies of its user. This server therefore
// checks two things. The request must name one of this server's hosts; a foreign name that was
// redirected to this address is refused. It must come from this server's page, from a page on the
// list, or from no page at all.
//
// The configuration of the web server sets both lists in the environment, separated by blanks.
// MIREVO_HOSTS lists names or addresses. One without a port is valid for any port; "*" means any
// numeric address. The default is "localhost *". MIREVO_ORIGINS lists the origins of foreign pages
// ("https://tv.example").
#pragma once

#include <optional>

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// Returns a refusal if the request fails these checks.
std::optional<Answer> RefuseStranger(const Request& request);

// Returns a refusal if a GET may come from a page of another server that hides where it is from. A
// page can embed any address as a picture, and browsers report that to https and to this machine
// only. For calls that change something without a secret in their parameters.
std::optional<Answer> RefuseHiddenPage(const Request& request);

// The answer to OPTIONS: the allowed methods and, for a page on the list, the permission to use
// them.
Answer DescribeOptions(const Request& request);

// Sends the headers that let a page on the list read the answer. Call it before the answer is sent.
void SendOriginHeaders(const Request& request);

}  // namespace webapi
