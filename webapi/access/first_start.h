// The first start: nobody has an account yet, and somebody has to become the owner.
//
// On this machine whoever uses the service may do that. From elsewhere it takes the word that only
// the one who has started the service can read (accounts/first_word.h).
#pragma once

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// What the page has to ask for: "word" for the first account and that word; "open" for a first
// folder and, if wanted, an account; "none" if the service is set up.
const char* FirstStartOf(const Request& request);

// Creates the first account from "account" and "passwd", and begins its session. From elsewhere it
// also needs "word". The number of attempts is limited.
Answer BeginService(const Request& request);

}  // namespace webapi
