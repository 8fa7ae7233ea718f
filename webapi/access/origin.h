// Which web pages may make requests, and under which names this server answers.
//
// A browser lends every page in the world its owner's network and cookies. So a request counts only
// when it names a host that this server goes by (a page whose own name was pointed at this address
// does not), and when it comes from this server's page, from a page on the list, or from no page at
// all.
//
// Both lists are in the environment, set by whoever configures the web server, separated by blanks.
// MIREVO_HOSTS: a name or address, which stands for any port, or one with its port; "*" is any
// address written as a number. Without it: "localhost *". MIREVO_ORIGINS: the origins of foreign
// pages
// ("https://tv.example").
#pragma once

#include <optional>

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// The refusal of a request that does not count.
std::optional<Answer> RefuseStranger(const Request& request);

// The answer to OPTIONS: what may be asked, and, to the browser of a page on the list, that it may.
Answer DescribeOptions(const Request& request);

// Sends the headers that let a page on the list read the answer, ahead of whatever answers.
void SendOriginHeaders(const Request& request);

}  // namespace webapi
